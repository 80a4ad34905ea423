// Which connection gets a task, at the instants when threads are starting or gone. The records are set by hand, since the
// real threads pass through these states too fast to be met there.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "Deadline.h"
#include "ZVHttpBase/Engine.h"

namespace {

class ThreadChoiceTest : public testing::Test {
 protected:
  ThreadChoiceTest() {
    EXPECT_TRUE(EventInit(&hb_->event));
    hb_->configParam.closeFlag.store(kUnset);
    hb_->configParam.releaseFlag.store(kUnset);
    for (HttpBaseServiceThread& record : hb_->serviceThread) {
      Set(&record, kLifeDead, -1);
    }
  }
  ~ThreadChoiceTest() override { EventRelease(&hb_->event); }

  static void Set(HttpBaseServiceThread* record, ThreadLife life, int32_t busy, int32_t result = kPerformNever) {
    record->threadBusy.store(busy);
    record->performResult.store(result);
    record->alive.store(life);
  }

  // Chooses on another thread and runs then once that thread waits, or has given up waiting.
  template <typename Action>
  HttpBaseServiceThread* ChooseWhile(Action then) {
    HttpBaseServiceThread* chosen = nullptr;
    std::atomic<bool> done{false};
    std::thread chooser([&] {
      chosen = ChooseIdleThread(hb_.get());
      done.store(true);
    });
    EXPECT_TRUE(WaitUntil([&] { return done.load() || hb_->event.waiters[kEventWork].load() == 1; }));
    then();
    EventRaise(&hb_->event, kEventWork);
    chooser.join();
    return chosen;
  }

  HttpBaseServiceThread* Record(int index) { return &hb_->serviceThread[index]; }

  std::unique_ptr<HttpBase> hb_ = std::make_unique<HttpBase>();
  const Watchdog watchdog_{60, "ThreadChoiceTest"};
};

TEST_F(ThreadChoiceTest, PassesOverWhatIsDeadBusyOrHasFailed) {
  Set(Record(1), kLifeAlive, -1, kPerformRunning);
  Set(Record(2), kLifeAlive, 0, kPerformFailed);
  Set(Record(3), kLifeAlive, 0, kPerformUnreachable);
  EXPECT_EQ(nullptr, FindIdleThread(hb_.get()));
  Set(Record(4), kLifeAlive, 0, kPerformDone);
  EXPECT_EQ(Record(4), FindIdleThread(hb_.get()));
}

TEST_F(ThreadChoiceTest, GivesUpWhenNobodyLives) {
  EXPECT_EQ(nullptr, ChooseIdleThread(hb_.get()));
}

TEST_F(ThreadChoiceTest, WaitsForAThreadThatStarts) {
  Set(Record(2), kLifeStarting, -1);
  EXPECT_EQ(Record(2), ChooseWhile([&] { Set(Record(2), kLifeAlive, 0); }));
}

TEST_F(ThreadChoiceTest, GivesUpWhenTheLastThreadThatStartsDies) {
  Set(Record(2), kLifeStarting, -1);
  EXPECT_EQ(nullptr, ChooseWhile([&] { Set(Record(2), kLifeDead, -1); }));
}

TEST_F(ThreadChoiceTest, GivesUpWhenTheHandleIsClosed) {
  Set(Record(2), kLifeStarting, -1);
  EXPECT_EQ(nullptr, ChooseWhile([&] { hb_->configParam.closeFlag.store(kHappened); }));
}

}  // namespace
