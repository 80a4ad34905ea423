// The ring buffer by its own functions. Byte p of every stream is PatternByte(p), so what comes out is checked by its
// position alone.
#include "ZVHttpBase/RingBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "Pattern.h"

namespace {

constexpr uint32_t kMostReadBytes = 1000;

struct FragmentView {
  int32_t state;
  int32_t dataLen;
};

class RingBufferTest : public testing::Test {
 protected:
  RingBufferTest() { EXPECT_EQ(kRingOk, ZVIner_RingBufferInit(&rb_)); }
  ~RingBufferTest() override {
    Check();
    ZVIner_RingBufferRelease(&rb_);
    fault_platform::Reset();
  }

  void Check() {
    const char* const broken = ZVIner_CheckRingBuffer(&rb_);
    EXPECT_EQ(nullptr, broken) << broken;
  }

  // As many fragments of that length as the array holds; the usual test wants few and small ones, so it takes the array
  // away first.
  void Cut(int32_t count, int32_t length) {
    {
      const MutexGuard guard(rb_.mutex);
      ZV_Free(&rb_.data);
      rb_.size = 0;
    }
    ASSERT_EQ(kRingOk, ZVIner_RingBufferReInit(&rb_, count * length, length));
    index_ = 0;
    written_ = 0;
    read_ = 0;
  }

  // Appends the stream's next len bytes where the last push ended.
  int32_t Push(uint32_t len, bool* busy = nullptr) {
    std::vector<uint8_t> bytes(len + 1);
    origin::FillPattern(bytes.data(), written_, len);
    bool isBusy = false;
    const int32_t result = ZVIner_RingBufferPushAndTell(&rb_, index_, &index_, bytes.data(), len, &isBusy);
    written_ += result == kRingOk ? len : 0;
    if (busy != nullptr) {
      *busy = isBusy;
    }
    Check();
    return result;
  }

  // Reads up to size bytes, checks them and says how many came.
  int32_t Read(uint32_t size, uint32_t* count) {
    std::vector<uint8_t> bytes(size);
    const int32_t result = ZVIner_RingBufferRead(&rb_, bytes.data(), size, count);
    EXPECT_TRUE(origin::CheckPattern(bytes.data(), read_, *count)) << "at " << read_;
    read_ += *count;
    Check();
    return result;
  }

  // "result:count" of one read, for comparisons in one line.
  std::string ReadText(uint32_t size = kMostReadBytes) {
    uint32_t count = 0;
    const int32_t result = Read(size, &count);
    return std::to_string(result) + ":" + std::to_string(count);
  }

  int32_t Free() {
    const MutexGuard guard(rb_.mutex);
    return rb_.freeFragmentNum;
  }

  FragmentView Fragment(int32_t index) {
    const MutexGuard guard(rb_.mutex);
    return {rb_.fragments[index].state, rb_.fragments[index].dataLen};
  }

  Leftovers leftovers_{fault_platform::LiveGauges()};
  RingBuffer rb_ = {};
  int32_t index_ = 0;
  uint64_t written_ = 0;
  uint64_t read_ = 0;
};

TEST_F(RingBufferTest, FragmentsCoverTheArrayAsFarAsTheyFit) {
  const struct {
    int32_t length;
    int32_t count;
  } rows[] = {{204800, 20}, {512000, 8}, {716800, 5}, {kRingBytes, 1}};
  EXPECT_EQ(kFirstFragments, ZVIner_RingBufferFragmentCount(&rb_));
  for (const auto& row : rows) {
    EXPECT_EQ(kRingOk, ZVIner_RingBufferReInit(&rb_, kRingBytes, row.length)) << row.length;
    EXPECT_EQ(row.count, ZVIner_RingBufferFragmentCount(&rb_)) << row.length;
    EXPECT_EQ(row.count, Free()) << row.length;
    Check();
  }
}

TEST_F(RingBufferTest, BadArgumentsAreRefusedAndChangeNothing) {
  uint8_t byte = 0;
  uint32_t count = 0;
  int32_t next = 7;
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, 0, &next, nullptr, 1));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, 0, &next, &byte, 0));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, 0, nullptr, &byte, 1));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, kFirstFragments, &next, &byte, 1));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, -1, &next, &byte, 1));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, INT32_MIN, &next, &byte, 1));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferPush(&rb_, INT32_MAX, &next, &byte, 1));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferRead(&rb_, nullptr, 1, &count));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferRead(&rb_, &byte, 0, &count));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferRead(&rb_, &byte, 1, nullptr));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferReInit(nullptr, 10, 10));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferReInit(&rb_, 0, 10));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferReInit(&rb_, 10, 0));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferReInit(&rb_, INT32_MIN, -5));
  EXPECT_EQ(kRingBadArgument, ZVIner_RingBufferInit(nullptr));
  EXPECT_EQ(7, next);
  EXPECT_EQ(kFirstFragments, Free());
}

TEST_F(RingBufferTest, APushThatFillsAFragmentCompletesItAndLeavesTheNextUntouched) {
  Cut(3, 10);
  EXPECT_EQ(kRingOk, Push(10));
  EXPECT_EQ(1, index_);
  EXPECT_EQ(kFragmentComplete, Fragment(0).state);
  EXPECT_EQ(kFragmentFree, Fragment(1).state);
  EXPECT_EQ(2, Free());
}

TEST_F(RingBufferTest, APushOverTheEdgeIsSplitOrRefusedWhole) {
  Cut(2, 10);
  bool busy = false;
  EXPECT_EQ(kRingOk, Push(6));
  EXPECT_EQ(kRingFailed, Push(15, &busy));  // 4 + 10 is all that fits
  EXPECT_FALSE(busy);
  EXPECT_EQ(kRingOk, Push(8));
  EXPECT_EQ(1, index_);
  EXPECT_EQ(0, Free());
  EXPECT_EQ(kRingFailed, Push(7, &busy));
  EXPECT_TRUE(busy);
  EXPECT_EQ(10, Fragment(0).dataLen);
  EXPECT_EQ(4, Fragment(1).dataLen);
  EXPECT_FALSE(ZVIner_RingBufferHasRoom(&rb_, index_, 7));
  EXPECT_EQ("1:10", ReadText());
  EXPECT_TRUE(ZVIner_RingBufferHasRoom(&rb_, index_, 7));
  EXPECT_EQ(kRingOk, Push(7));
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ("1:1", ReadText());
}

TEST_F(RingBufferTest, ABufferOfOneFragmentTakesWhatFitsAndRefusesTheRestForGood) {
  Cut(1, 10);
  bool busy = true;
  EXPECT_EQ(kRingFailed, Push(11, &busy));
  EXPECT_FALSE(busy);
  EXPECT_EQ(kRingOk, Push(10));
  EXPECT_EQ(kRingFailed, Push(1, &busy));
  EXPECT_TRUE(busy);
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ(kRingOk, Push(4));
}

TEST_F(RingBufferTest, TheReadThatEmptiesTheLastFragmentGivesEnd) {
  Cut(3, 10);
  Push(10);
  Push(5);
  ZVIner_RingBufferComplete(&rb_, index_);
  ZVIner_RingBufferEndWriting(&rb_);
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ("1:2", ReadText(2));
  EXPECT_EQ("0:3", ReadText());
  EXPECT_EQ("0:0", ReadText());
  EXPECT_EQ("0:0", ReadText());
}

TEST_F(RingBufferTest, AnEmptyDownloadEnds) {
  for (const bool claimed : {false, true}) {
    Cut(3, 10);
    if (claimed) {
      ZVIner_RingBufferClaim(&rb_, 0);
      EXPECT_EQ("1:0", ReadText());
    }
    ZVIner_RingBufferEndWriting(&rb_);
    EXPECT_TRUE(ZVIner_RingBufferIsReadable(&rb_));
    EXPECT_EQ("0:0", ReadText()) << claimed;
    EXPECT_EQ("0:0", ReadText()) << claimed;
  }
}

TEST_F(RingBufferTest, AnEmptyCompleteFragmentCostsOneReadAndKeepsTheCount) {
  Cut(3, 10);
  Push(10);
  ZVIner_RingBufferClaim(&rb_, index_);
  ZVIner_RingBufferComplete(&rb_, index_);
  ZVIner_RingBufferEndWriting(&rb_);
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ("1:0", ReadText());
  EXPECT_EQ("0:0", ReadText());
  EXPECT_EQ(3, Free());
}

TEST_F(RingBufferTest, WhatLiesBehindAHoleIsNeverDelivered) {
  Cut(4, 10);
  ZVIner_RingBufferClaim(&rb_, 1);
  Push(10);
  index_ = 2;
  written_ = 20;
  Push(10);
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ("1:0", ReadText());
  ZVIner_RingBufferEndWriting(&rb_);
  EXPECT_EQ("0:0", ReadText());
  EXPECT_EQ("0:0", ReadText());
  EXPECT_EQ(kFragmentComplete, Fragment(2).state);
}

TEST_F(RingBufferTest, TheStartOfAHoleIsDelivered) {
  Cut(4, 10);
  Push(13);
  ZVIner_RingBufferEndWriting(&rb_);
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ("0:3", ReadText());
  EXPECT_EQ("0:0", ReadText());
}

TEST_F(RingBufferTest, WholeContentIsReadByCompleteFragmentsOnly) {
  Cut(3, 10);
  ZVIner_RingBufferSetWholeContent(&rb_, true);
  Push(14);
  EXPECT_EQ("1:10", ReadText());
  EXPECT_FALSE(ZVIner_RingBufferIsReadable(&rb_));
  EXPECT_EQ("1:0", ReadText());
  ZVIner_RingBufferComplete(&rb_, index_);
  ZVIner_RingBufferEndWriting(&rb_);
  EXPECT_EQ("0:4", ReadText());
}

TEST_F(RingBufferTest, ABufferThatIsNotReadyTakesAndGivesNothing) {
  Cut(2, 10);
  Push(5);
  ZVIner_RingBufferSetNotReady(&rb_);
  bool busy = true;
  EXPECT_EQ(kRingFailed, Push(1, &busy));
  EXPECT_FALSE(busy);
  EXPECT_FALSE(ZVIner_RingBufferIsReadable(&rb_));
  EXPECT_EQ("1:0", ReadText());
  // A distribution that ends before it has cut the buffer leaves it readable and empty.
  ZVIner_RingBufferEndWriting(&rb_);
  EXPECT_EQ("0:0", ReadText());
  EXPECT_EQ(2, Free());
}

TEST_F(RingBufferTest, ARangeNeedsItsOwnFragmentAndOneMore) {
  Cut(3, 10);
  EXPECT_TRUE(ZVIner_RingBufferTakesRange(&rb_, 1));
  ZVIner_RingBufferClaim(&rb_, 1);
  EXPECT_FALSE(ZVIner_RingBufferTakesRange(&rb_, 1));
  Push(1);
  EXPECT_TRUE(ZVIner_RingBufferTakesRange(&rb_, 2));
  index_ = 1;
  Push(1);
  EXPECT_FALSE(ZVIner_RingBufferTakesRange(&rb_, 2));
  EXPECT_FALSE(ZVIner_RingBufferTakesRange(&rb_, 3));
}

TEST_F(RingBufferTest, GrowingKeepsTheBytesWhereverTheWriterStands) {
  for (const uint32_t stored : {0U, 4U, 10U, 25U, 30U}) {
    Cut(3, 10);
    for (uint32_t n = 0; n < stored; n += 5) {
      ASSERT_EQ(kRingOk, Push(std::min(5U, stored - n)));
    }
    ASSERT_EQ(kRingOk, ZVIner_RingBufferGrow(&rb_, &index_));
    EXPECT_EQ(6, ZVIner_RingBufferFragmentCount(&rb_));
    while (written_ < 60) {
      ASSERT_EQ(kRingOk, Push(static_cast<uint32_t>(std::min<uint64_t>(7, 60 - written_)))) << written_;
    }
    for (int i = 0; i < 6; ++i) {
      EXPECT_EQ("1:10", ReadText()) << stored;
    }
  }
}

TEST_F(RingBufferTest, GrowingStopsAtTheLimit) {
  constexpr int32_t kMost = static_cast<int32_t>(kWholeResourceMaxBytes);
  ASSERT_EQ(kRingOk, ZVIner_RingBufferReInit(&rb_, kMost, kMost / 8));  // not touched, so it costs no memory
  EXPECT_EQ(kRingFailed, ZVIner_RingBufferGrow(&rb_, &index_));
  EXPECT_EQ(8, ZVIner_RingBufferFragmentCount(&rb_));
}

TEST_F(RingBufferTest, AFailedReInitLeavesNoArrayAndTheNextOneTriesAgain) {
  for (const int64_t n : {1, 2}) {  // the array, the fragments
    fault_platform::FailNth(fault_platform::Kind::kAllocation, n);
    EXPECT_EQ(kRingFailed, ZVIner_RingBufferReInit(&rb_, 2 * kRingBytes, 100)) << n;
    EXPECT_EQ(0, ZVIner_RingBufferFragmentCount(&rb_)) << n;
    EXPECT_EQ(kRingBadArgument, Push(1)) << n;
    EXPECT_EQ("1:0", ReadText()) << n;
    EXPECT_EQ(kRingFailed, ZVIner_RingBufferGrow(&rb_, &index_)) << n;
    ZVIner_RingBufferEndWriting(&rb_);
    EXPECT_EQ("0:0", ReadText()) << n;
    Cut(2, 10);
    EXPECT_EQ(kRingOk, Push(3)) << n;
  }
}

TEST_F(RingBufferTest, AFailedGrowthChangesNothing) {
  Cut(2, 10);
  Push(15);
  for (const int64_t n : {1, 2}) {
    fault_platform::FailNth(fault_platform::Kind::kAllocation, n);
    EXPECT_EQ(kRingFailed, ZVIner_RingBufferGrow(&rb_, &index_)) << n;
  }
  EXPECT_EQ("1:10", ReadText());
  EXPECT_EQ("1:5", ReadText());
}

// A single writer and a reader against a deque: what was accepted comes out, in order, nothing else; a refusal is final
// only for blocks that can never fit.
TEST_F(RingBufferTest, BehavesLikeAQueueOfBytes) {
  std::mt19937_64 random(Seed("BehavesLikeAQueueOfBytes"));
  for (int round = 0; round < 60; ++round) {
    const int32_t count = static_cast<int32_t>(2 + random() % 6);
    const int32_t length = static_cast<int32_t>(1 + random() % 40);
    Cut(count, length);
    std::deque<uint8_t> model;
    for (int step = 0; step < 300; ++step) {
      if (random() % 2 == 0) {
        const uint32_t len = static_cast<uint32_t>(1 + random() % static_cast<uint64_t>(length));
        const uint64_t at = written_;
        bool busy = false;
        const bool had = ZVIner_RingBufferHasRoom(&rb_, index_, len);
        const bool pushed = Push(len, &busy) == kRingOk;
        EXPECT_EQ(pushed, had);
        EXPECT_EQ(pushed, !busy) << "a block of one fragment's length always fits some time";
        for (uint32_t i = 0; pushed && i < len; ++i) {
          model.push_back(origin::PatternByte(at + i));
        }
      } else {
        uint32_t got = 0;
        EXPECT_EQ(kRingAgain, Read(static_cast<uint32_t>(1 + random() % 60), &got));
        ASSERT_LE(got, model.size());
        EXPECT_EQ(got == 0, model.empty());
        model.erase(model.begin(), model.begin() + got);
      }
    }
    ASSERT_FALSE(HasFailure()) << "round " << round << ", " << count << " fragments of " << length;
  }
}

}  // namespace
