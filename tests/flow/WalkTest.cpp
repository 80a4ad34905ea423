// Random walks: downloads with everything drawn, against an origin that misbehaves, read by a reader that dawdles, closed
// or released at any instant. Each byte is checked, and the invariants after each step.
//
// ZV_WALK_SECONDS: how long (5). ZV_SEED repeats a walk, ZV_WALK_FROM begins it at that step, ZV_WALK_LOG keeps the
// library's log for the message of a failure (off: its lock would hide races).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "LumLog.h"
#include "WalkWalker.h"

namespace flow::walk {
namespace {

constexpr int kWalkers = 2;  // as many at once: much of a walk is waiting
constexpr int kTimeScale = 100;
constexpr int kSecondsPerStep = 60;
constexpr int kDefaultSeconds = 5;
constexpr size_t kKeptLines = 3000;

int64_t NumberOf(const char* variable, int64_t otherwise) {
  const char* const text = getenv(variable);
  return text == nullptr ? otherwise : atoll(text);
}

// The last lines of the log.
class LogTail {
 public:
  LogTail() { LumLogSetCallback(Take, this); }
  ~LogTail() {
    LumLogSetCallback(nullptr, nullptr);
    if (testing::Test::HasFailure()) {
      for (const std::string& line : lines_) {
        printf("%s\n", line.c_str());
      }
    }
  }
  LogTail(const LogTail&) = delete;
  LogTail& operator=(const LogTail&) = delete;

 private:
  static void Take(void* self, int32_t, const char*, const char*, int32_t, const char* text) {
    LogTail* const tail = static_cast<LogTail*>(self);
    const std::lock_guard<std::mutex> guard(tail->mutex_);
    tail->lines_.push_back(text);
    if (tail->lines_.size() > kKeptLines) {
      tail->lines_.pop_front();
    }
  }

  std::mutex mutex_;
  std::deque<std::string> lines_;
};

// Watches over the walkers until all have come back; a step that does not end ends the program.
void Watch(const std::vector<std::unique_ptr<Walker>>& walkers) {
  const auto areAllBack = [&] {
    return std::all_of(walkers.begin(), walkers.end(), [](const auto& walker) { return walker->IsBack(); });
  };
  while (!WaitUntil(areAllBack, 1000)) {
    for (const auto& walker : walkers) {
      if (!walker->IsBack() && walker->SecondsInStep() > kSecondsPerStep) {
        fprintf(stderr, "a step has not ended within %d s: %s\n", kSecondsPerStep, walker->Describe().c_str());
        abort();
      }
    }
  }
}

TEST(WalkTest, EveryByteIsRightWhateverHappens) {
  const Leftovers leftovers(fault_platform::LiveGauges());
  const uint64_t seed = Seed("the walk");
  const int64_t seconds = NumberOf("ZV_WALK_SECONDS", kDefaultSeconds);
  const std::unique_ptr<LogTail> tail = NumberOf("ZV_WALK_LOG", 0) != 0 ? std::make_unique<LogTail>() : nullptr;
  fault_platform::SetTimeScale(kTimeScale);
  {
    std::vector<std::unique_ptr<Walker>> walkers;
    std::vector<std::thread> threads;
    for (int i = 0; i < kWalkers; ++i) {
      walkers.push_back(std::make_unique<Walker>(seed, i, NumberOf("ZV_WALK_FROM", 0)));
      threads.emplace_back([walker = walkers.back().get(), seconds] { walker->Walk(seconds); });
    }
    Watch(walkers);
    for (int i = 0; i < kWalkers; ++i) {
      threads[static_cast<size_t>(i)].join();
      printf("walker %d made %lld steps, %lld bytes\n", i,
             static_cast<long long>(walkers[static_cast<size_t>(i)]->Steps()),
             static_cast<long long>(walkers[static_cast<size_t>(i)]->Bytes()));
    }
  }
  fault_platform::Reset();
}

}  // namespace
}  // namespace flow::walk
