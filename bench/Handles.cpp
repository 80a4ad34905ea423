// What handles cost while they do nothing, as the kernel counts it for this process.
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "Commands.h"
#include "Support.h"

namespace {

constexpr auto kSteadyTime = std::chrono::milliseconds(200);
constexpr auto kSteadyStep = std::chrono::milliseconds(20);
constexpr auto kSteadyLimit = std::chrono::seconds(10);

// The number behind key in a file of lines "key: number ..."; -1 when there is none.
int64_t NumberBehind(const std::filesystem::path& file, const std::string& key) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    if (line.starts_with(key + ":")) {
      return std::stoll(line.substr(key.size() + 1));
    }
  }
  return -1;
}

int64_t ResidentKib() {
  return NumberBehind("/proc/self/smaps_rollup", "Rss");
}

int64_t ThreadCount() {
  return NumberBehind("/proc/self/status", "Threads");
}

// The threads of new handles are still touching memory: the figure counts once it has stood still.
nlohmann::json SteadyFigures() {
  const auto limit = Clock::now() + kSteadyLimit;
  int64_t resident = ResidentKib();
  auto since = Clock::now();
  while (Clock::now() - since < kSteadyTime && Clock::now() < limit) {
    std::this_thread::sleep_for(kSteadyStep);
    const int64_t now = ResidentKib();
    if (now != resident) {
      resident = now;
      since = Clock::now();
    }
  }
  return {{"residentKib", resident}, {"threads", ThreadCount()}};
}

void DownloadAndClose(HttpBase* handle, const Outcome& outcome, const std::string& url) {
  static char buffer[65536];
  uint32_t count = 0;
  OpenUrl(handle, url);
  while (ZV_HttpBaseRead(handle, buffer, sizeof buffer, &count) == 1) {
    if (count == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  ZV_HttpBaseClose(handle);
  const int32_t code = outcome.failureCode;
  if (code != 0) {
    throw std::runtime_error("the download failed with code " + std::to_string(code));
  }
}

// A thread that is woken gives its core up again, or has it taken: both count.
int64_t SwitchesOfOtherThreads() {
  const auto own = NumberBehind("/proc/thread-self/status", "Pid");
  int64_t sum = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() != std::to_string(own)) {
      sum += NumberBehind(task.path() / "status", "voluntary_ctxt_switches");
      sum += NumberBehind(task.path() / "status", "nonvoluntary_ctxt_switches");
    }
  }
  return sum;
}

}  // namespace

nlohmann::json MeasureHandles(int count, const std::string& url) {
  Outcome outcome;
  std::vector<HandlePtr> handles;
  handles.reserve(static_cast<size_t>(count));
  nlohmann::json figures = {{"handles", count}, {"before", SteadyFigures()}};
  for (int i = 0; i < count; ++i) {
    handles.push_back(MakeHandle(outcome));
  }
  figures["idle"] = SteadyFigures();
  if (!url.empty()) {
    for (const HandlePtr& handle : handles) {
      DownloadAndClose(handle.get(), outcome, url);
    }
    figures["after"] = SteadyFigures();
  }
  return figures;
}

nlohmann::json MeasureIdle(double seconds) {
  Outcome outcome;
  const HandlePtr handle = MakeHandle(outcome);
  SteadyFigures();
  const int64_t before = SwitchesOfOtherThreads();
  const auto start = Clock::now();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const int64_t switches = SwitchesOfOtherThreads() - before;
  return {{"switches", switches}, {"perSecond", static_cast<double>(switches) * 1000 / MillisecondsSince(start)}};
}

nlohmann::json MeasureInitRelease(int repeat) {
  std::vector<double> samples;
  for (int i = 0; i < repeat; ++i) {
    Outcome outcome;
    const auto start = Clock::now();
    MakeHandle(outcome).reset();
    samples.push_back(MillisecondsSince(start));
  }
  return Summarize(std::move(samples));
}
