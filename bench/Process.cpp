#include "Process.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "Support.h"

namespace {

constexpr auto kSteadyTime = std::chrono::milliseconds(200);
constexpr auto kSteadyStep = std::chrono::milliseconds(20);
constexpr auto kSteadyLimit = std::chrono::seconds(10);
constexpr auto kQuietLimit = std::chrono::seconds(30);

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

void AwaitQuiet(std::chrono::milliseconds quiet) {
  int64_t last = -1;
  auto since = Clock::now();
  const auto isQuiet = [&] {
    const int64_t switches = SwitchesOfOtherThreads();
    if (switches != last) {
      last = switches;
      since = Clock::now();
    }
    return Clock::now() - since >= quiet;
  };
  AwaitThat("the other threads are at rest", isQuiet, kQuietLimit);
}

nlohmann::json WakeUps(double seconds) {
  const int64_t before = SwitchesOfOtherThreads();
  const auto start = Clock::now();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const int64_t switches = SwitchesOfOtherThreads() - before;
  return {{"switches", switches}, {"perSecond", static_cast<double>(switches) * 1000 / MillisecondsSince(start)}};
}
