// The event of a handle: no raise is lost wherever it falls, and nobody else is disturbed. Waits here are without a limit,
// so a lost wake-up is a hang that the watchdog names.
#include "ZVHttpBase/EngineEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"

namespace {

class EngineEventTest : public testing::Test {
 protected:
  EngineEventTest() { EXPECT_TRUE(EventInit(&event_)); }
  ~EngineEventTest() override {
    EventRelease(&event_);
    EXPECT_EQ(nullptr, event_.cond);
  }

  EngineEvent event_ = {};
  const Watchdog watchdog_{60, testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(EngineEventTest, ARaiseBetweenTheTestAndTheSleepIsNotLost) {
  int tests = 0;
  EXPECT_TRUE(EventWait(&event_, kEventWork, kWaitForEver, [&] {
    if (++tests == 1) {
      EventRaise(&event_, kEventWork);  // the state changes while the waiter believes in the old one
      return false;
    }
    return true;
  }));
  EXPECT_EQ(2, tests);
}

TEST_F(EngineEventTest, AnotherKindWakesNobodyForGood) {
  std::atomic<bool> ready{false};
  std::thread waiter([&] { EXPECT_TRUE(EventWait(&event_, kEventData, kWaitForEver, [&] { return ready.load(); })); });
  ASSERT_TRUE(WaitUntil([&] { return event_.waiters[kEventData].load() == 1; }));
  const uint32_t before = event_.raised.load();
  EventRaise(&event_, kEventWork);
  EventRaise(&event_, kEventStop);
  EXPECT_EQ(before, event_.raised.load()) << "a raise that nobody waits for takes no lock";
  ready.store(true);
  EventRaise(&event_, kEventData);
  waiter.join();
  EXPECT_EQ(0, event_.waiters[kEventData].load());
}

TEST_F(EngineEventTest, OneRaiseWakesEveryWaiterOfItsKind) {
  constexpr int kWaiters = 8;
  std::atomic<bool> ready{false};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back(
        [&] { EXPECT_TRUE(EventWait(&event_, kEventStop, kWaitForEver, [&] { return ready.load(); })); });
  }
  ASSERT_TRUE(WaitUntil([&] { return event_.waiters[kEventStop].load() == kWaiters; }));
  ready.store(true);
  EventRaise(&event_, kEventStop);
  for (std::thread& waiter : waiters) {
    waiter.join();
  }
}

TEST_F(EngineEventTest, AWaitEndsWithItsTimeAndSaysWhatHolds) {
  const struct {
    int64_t ms;
    bool holds;
  } rows[] = {{0, false}, {0, true}, {-5, false}, {30, false}, {30, true}};
  for (const auto& row : rows) {
    const int64_t start = ZV_ChronoGetTick();
    EXPECT_EQ(row.holds, EventWait(&event_, kEventWork, row.ms, [&] { return row.holds; })) << row.ms;
    EXPECT_GE(ZV_ChronoGetTick() - start, row.holds ? 0 : row.ms);
  }
}

TEST_F(EngineEventTest, RaisesForOthersDoNotLengthenAWait) {
  int tests = 0;
  EXPECT_FALSE(EventWait(&event_, kEventWork, 100, [&] {
    ++tests;
    EventRaise(&event_, kEventWork);
    return false;
  }));
  EXPECT_GE(tests, 2);
}

TEST_F(EngineEventTest, TwoThreadsThatWaitForEachOtherLoseNoTurn) {
  constexpr int kTurns = 20000;
  std::atomic<int> turn{0};
  const auto play = [&](int parity) {
    for (int next = parity; next < kTurns; next += 2) {
      EventWait(&event_, kEventWork, kWaitForEver, [&] { return turn.load() == next; });
      turn.store(next + 1);
      EventRaise(&event_, kEventWork);
    }
  };
  std::thread other(play, 1);
  play(0);
  other.join();
  EXPECT_EQ(kTurns, turn.load());
}

TEST(EngineEvent, WithoutAConditionThereIsNone) {
  EngineEvent event = {};
  fault_platform::FailNth(fault_platform::Kind::kCondition, 1);
  EXPECT_FALSE(EventInit(&event));
  EventRelease(&event);
  fault_platform::Reset();
}

}  // namespace
