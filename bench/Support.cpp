#include "Support.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace {

int32_t RecordMessage(void* userData, int32_t code) {
  if (code != ZV_HTTP_CODE_OK && code != ZV_HTTP_CODE_REDIRECTED) {
    static_cast<Outcome*>(userData)->failureCode = code;
  }
  return 0;
}

// The smallest sample that at least share of all samples do not exceed.
double Percentile(const std::vector<double>& sorted, double share) {
  const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(sorted.size())));
  return sorted[std::max<size_t>(rank, 1) - 1];
}

}  // namespace

void ReleaseHandle::operator()(HttpBase* handle) const {
  ZV_HttpBaseRelease(&handle);
}

HandlePtr MakeHandle(Outcome& outcome) {
  HandlePtr handle(ZV_HttpBaseInit(RecordMessage, &outcome));
  if (!handle) {
    throw std::runtime_error("a handle could not be made");
  }
  return handle;
}

void OpenUrl(HttpBase* handle, const std::string& url) {
  if (ZV_HttpBaseOpen(handle, url.c_str()) != 0) {
    throw std::runtime_error("the handle refused to open " + url);
  }
}

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void AwaitThat(const std::string& what, const std::function<bool()>& predicate, std::chrono::seconds limit,
               std::chrono::microseconds step) {
  const auto deadline = Clock::now() + limit;
  while (!predicate()) {
    if (Clock::now() > deadline) {
      throw std::runtime_error("in vain waited until " + what);
    }
    std::this_thread::sleep_for(step);
  }
}

ScratchFolder::ScratchFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "zvbenchXXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no folder for cache files can be made");
  }
  prefix_ = name + "/";
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(prefix_, ignored);
}

nlohmann::json Summarize(std::vector<double> samples) {
  if (samples.empty()) {
    throw std::runtime_error("nothing was measured");
  }
  std::vector<double> sorted = samples;
  std::sort(sorted.begin(), sorted.end());
  return {{"median", Percentile(sorted, 0.5)},
          {"p99", Percentile(sorted, 0.99)},
          {"min", sorted.front()},
          {"max", sorted.back()},
          {"samples", std::move(samples)}};
}
