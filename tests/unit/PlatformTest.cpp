// The platform's contract, as its header states it.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "Common/Guard.h"
#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "ZVBase.h"

namespace {

TEST(Platform, AtollTakesTheNumberAtTheStart) {
  const struct {
    const char* text;
    int64_t value;
  } rows[] = {
      {"0", 0},
      {"42", 42},
      {"  \t42", 42},
      {"+42", 42},
      {"-42", -42},
      {"007", 7},
      {"12abc", 12},
      {"1 2", 1},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      {"-99999999999999999999", INT64_MIN},
      {"", 0},
      {"abc", 0},
      {"- 5", 0},
      {"0x10", 0},
      {nullptr, 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.value, ZV_Atoll(row.text)) << (row.text == nullptr ? "null" : row.text);
  }
}

TEST(Platform, StrnicmpIgnoresTheCaseOfAsciiLettersOnly) {
  const struct {
    const char* left;
    const char* right;
    size_t count;
    int sign;
  } rows[] = {
      {"http://", "HTTP://", 7, 0},
      {"HTTP://A", "http://b", 7, 0},
      {"abc", "abd", 2, 0},
      {"abc", "abd", 3, -1},
      {"abd", "ABC", 3, 1},
      {"ab", "abc", 3, -1},
      {"abc", "ab", 3, 1},
      {"ab", "AB", 99, 0},
      {"", "", 5, 0},
      {"a", "b", 0, 0},
      {"[", "{", 1, -1},
      {"@", "`", 1, -1},
      {"\xC4", "\xE4", 1, -1},
      {"\xFF", "a", 1, 1},
      {"Z", "[", 1, 1},
  };
  for (const auto& row : rows) {
    const int32_t result = ZV_Strnicmp(row.left, row.right, row.count);
    EXPECT_EQ(row.sign, (result > 0) - (result < 0)) << row.left << " " << row.right << " " << row.count;
  }
}

TEST(Platform, FreeAndReleaseAcceptNothingAndLeaveNull) {
  const Leftovers leftovers(fault_platform::LiveGauges());
  ZV_Free(nullptr);
  ZV_MutexRelease(nullptr);
  ZV_ConditionRelease(nullptr);
  ZV_ThreadRelease(nullptr);
  char* block = static_cast<char*>(ZV_Calloc(1000));
  ASSERT_NE(nullptr, block);
  EXPECT_EQ(std::string(1000, '\0'), std::string(block, 1000));
  ZVMutex* mutex = ZV_MutexInit();
  ZVCondition* condition = ZV_ConditionInit();
  ZVThread* thread = ZV_ThreadInit([](void*) { return 0; }, nullptr);
  ZV_ThreadJoin(thread);
  for (int round = 0; round < 2; ++round) {
    ZV_Free(&block);
    ZV_MutexRelease(&mutex);
    ZV_ConditionRelease(&condition);
    ZV_ThreadRelease(&thread);
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(nullptr, mutex);
    EXPECT_EQ(nullptr, condition);
    EXPECT_EQ(nullptr, thread);
  }
}

struct Meeting {
  ZVCondition* condition = ZV_ConditionInit();
  std::atomic<int> waiting{0};
  bool isOpen = false;  // under the condition's lock
};

int32_t WaitForOpening(void* argument) {
  Meeting* const meeting = static_cast<Meeting*>(argument);
  const ConditionGuard guard(meeting->condition);
  meeting->waiting.fetch_add(1);
  while (!meeting->isOpen) {
    ZV_ConditionWait(meeting->condition);
  }
  return 0;
}

TEST(Platform, OneSignalWakesEveryWaiter) {
  const Watchdog watchdog(60, "OneSignalWakesEveryWaiter");
  Meeting meeting;
  ZVThread* threads[4];
  for (ZVThread*& thread : threads) {
    thread = ZV_ThreadInit(WaitForOpening, &meeting);
    ASSERT_NE(nullptr, thread);
  }
  ASSERT_TRUE(WaitUntil([&] { return meeting.waiting.load() == 4; }));
  {
    const ConditionGuard guard(meeting.condition);  // all four wait: they hold the lock until they do
    meeting.isOpen = true;
    ZV_ConditionSignal(meeting.condition);
  }
  for (ZVThread*& thread : threads) {
    ZV_ThreadJoin(thread);
    ZV_ThreadRelease(&thread);
  }
  ZV_ConditionRelease(&meeting.condition);
}

TEST(Platform, TheClockNeverGoesBackAndSleepsLastTheirTime) {
  const int64_t start = ZV_ChronoGetTick();
  ZV_SleepFor(0);
  ZV_SleepFor(-1000000);
  ZV_SleepFor(15);
  EXPECT_GE(ZV_ChronoGetTick() - start, 15);
}

}  // namespace
