// The log sink.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>

#include "Deadline.h"
#include "LogCapture.h"
#include "LumLog.h"

namespace {

int32_t Log(int32_t level, const char* text) {
  return LumLog(level, "tag", "path", 7, "%s", text);
}

TEST(LogSink, WritesNothingUnlessAsked) {
  EXPECT_EQ(0, Log(LUM_LEVEL_FAILURE, "nobody hears this"));
}

TEST(LogSink, HandsOverEveryPartOfAMessage) {
  const LogCapture log;
  EXPECT_EQ(11, LumLog(2, "tag", "path", 42, "%s: %d %lld", "Name", -7, 12LL));
  ASSERT_EQ(1U, log.Lines().size());
  const LogLine line = log.Lines()[0];
  EXPECT_EQ("2 tag path 42 Name: -7 12", std::to_string(line.level) + " " + line.tag + " " + line.path + " " +
                                             std::to_string(line.line) + " " + line.text);
}

TEST(LogSink, DropsWhatLiesBelowTheLevel) {
  const struct {
    int32_t threshold;
    size_t heard;
  } rows[] = {{LUM_LEVEL_TRACE, 3}, {1, 2}, {LUM_LEVEL_ERROR, 2}, {LUM_LEVEL_FAILURE, 1}, {LUM_LEVEL_NONE, 0}};
  for (const auto& row : rows) {
    const LogCapture log(row.threshold);
    Log(LUM_LEVEL_TRACE, "trace");
    Log(LUM_LEVEL_ERROR, "error");
    Log(LUM_LEVEL_FAILURE, "failure");
    EXPECT_EQ(row.heard, log.Lines().size()) << row.threshold;
  }
}

TEST(LogSink, CutsLongTextsAndSaysHowLongTheyWere) {
  const LogCapture log;
  for (const size_t length : {size_t{0}, size_t{2047}, size_t{2048}, size_t{100000}}) {
    EXPECT_EQ(static_cast<int32_t>(length), Log(0, std::string(length, 'x').c_str()));
    EXPECT_EQ(std::min(length, size_t{2047}), log.Lines().back().text.size());
  }
}

struct SlowReceiver {
  std::atomic<bool> entered{false};
  std::atomic<bool> mayLeave{false};
  std::atomic<bool> left{false};

  static void Receive(void* self, int32_t level, const char*, const char*, int32_t, const char*) {
    SlowReceiver* const receiver = static_cast<SlowReceiver*>(self);
    if (level != LUM_LEVEL_FAILURE) {
      return;
    }
    receiver->entered.store(true);
    while (!receiver->mayLeave.load()) {
      std::this_thread::yield();
    }
    receiver->left.store(true);
  }
};

TEST(LogSink, AReplacedCallbackIsNoLongerRunningWhenTheCallReturns) {
  const Watchdog watchdog(60, "AReplacedCallback");
  SlowReceiver receiver;
  LumLogSetCallback(SlowReceiver::Receive, &receiver);
  std::thread logger([] { Log(LUM_LEVEL_FAILURE, "slow"); });
  ASSERT_TRUE(WaitUntil([&] { return receiver.entered.load(); }));
  std::thread setter([&] {
    LumLogSetCallback(nullptr, nullptr);
    EXPECT_TRUE(receiver.left.load());
  });
  // Once this message is dropped, the setter has taken the callback away and can only be waiting for it.
  ASSERT_TRUE(WaitUntil([] { return Log(LUM_LEVEL_TRACE, "dropped") == 0; }));
  receiver.mayLeave.store(true);
  setter.join();
  logger.join();
}

}  // namespace
