// What the measurements share: a handle that releases itself, the outcome its callback collects, a folder for cache files,
// a clock and statistics.
#ifndef BENCH_SUPPORT_H
#define BENCH_SUPPORT_H

#include <ZVHttpBase.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;

// Filled by the message callback, on the handle's threads.
struct Outcome {
  std::atomic<int32_t> failureCode{0};
};

struct ReleaseHandle {
  void operator()(HttpBase* handle) const;
};
using HandlePtr = std::unique_ptr<HttpBase, ReleaseHandle>;

// Never null: throws when the handle cannot be made. outcome must outlive the handle.
HandlePtr MakeHandle(Outcome& outcome);

// Throws unless the download could be started.
void OpenUrl(HttpBase* handle, const std::string& url);

double MillisecondsSince(Clock::time_point start);

constexpr auto kAwaitLimit = std::chrono::seconds(10);
constexpr auto kAwaitStep = std::chrono::microseconds(200);

// Waits in short steps until predicate holds; throws, naming what was awaited, when the limit has passed.
void AwaitThat(const std::string& what, const std::function<bool()>& predicate,
               std::chrono::seconds limit = kAwaitLimit, std::chrono::microseconds step = kAwaitStep);

// A new folder in the system's temporary one, removed with all its files at the end.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // The folder with its separator, as the caches want it.
  const std::string& Prefix() const { return prefix_; }

 private:
  std::string prefix_;
};

// {median, p99, max, min, samples} of milliseconds.
nlohmann::json Summarize(std::vector<double> samples);

#endif
