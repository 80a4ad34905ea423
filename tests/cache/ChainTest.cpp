// The chain alone: links of given starts and sizes, and what the operations make of them. A chain is written as text:
// "0+800* 800+100 2000+50" are starts and sizes; * marks the read link, ! the write link.
#include <sstream>

#include "CachePlayer.h"

namespace cache {
namespace {

class ChainTest : public CacheTest {
 protected:
  // Every test works under the lock, on a cache whose thread sleeps.
  void SetUp() override ZV_UNCHECKED {
    player_ = std::make_unique<CachePlayer>();
    cache_ = player_->Get();
    cache_->reservedBytes = 1000;
    player_->UseFiles(Prefix());
    TakeLock(cache_);
  }
  void TearDown() override ZV_UNCHECKED {
    LeaveLock(cache_);
    player_.reset();
  }

  void Build(const std::string& text, int64_t readPos) ZV_UNCHECKED {
    while (cache_->headNode != nullptr) {
      ZV_HttpBaseCacheDeleteNode(cache_, cache_->headNode);
    }
    std::istringstream words(text);
    std::string word;
    while (words >> word) {
      Append(word);
    }
    cache_->currentReadPos = readPos;
    ZV_HttpBaseCacheFileSetReadPosInStream(cache_->currentReadNode->cacheFile, readPos);
    ZV_HttpBaseCacheUpdateCurrentCacheSize(cache_);
  }
  void PrepareFile() ZV_UNCHECKED {
    if (cache_->preparedFile == nullptr) {
      cache_->preparedFile = ZV_HttpBaseCacheFileInitCacheFile(Prefix().c_str(), cache_->reservedBytes);
    }
  }
  void Append(const std::string& word) ZV_UNCHECKED {
    PrepareFile();
    CacheFileNode* const node = NewLink(cache_);
    const size_t plus = word.find('+');
    node->cacheFile->startPosInStream = std::stoll(word);
    CountBytes(node->cacheFile, static_cast<uint32_t>(std::stoul(word.substr(plus + 1))));
    CacheFileNode* const last = LastLink(cache_);
    (last == nullptr ? cache_->headNode : last->next) = node;
    cache_->cacheFileNodeNum += 1;
    if (last == nullptr || word.find('*') != std::string::npos) {
      cache_->currentReadNode = node;
    }
    if (last == nullptr || word.find('!') != std::string::npos) {
      cache_->nextWriteNode = node;
    }
  }
  std::string Show() const ZV_UNCHECKED {
    std::string text;
    for (const CacheFileNode* node = cache_->headNode; node != nullptr; node = node->next) {
      text += text.empty() ? "" : " ";
      text += std::to_string(StartOf(node)) + "+" + std::to_string(node->cacheFile->cacheSize);
      text += node == cache_->currentReadNode ? "*" : "";
      text += node == cache_->nextWriteNode ? "!" : "";
    }
    return text;
  }
  CacheFileNode* Link(int n) ZV_UNCHECKED {
    CacheFileNode* node = cache_->headNode;
    for (; n > 0; --n) {
      node = node->next;
    }
    return node;
  }

  std::unique_ptr<CachePlayer> player_;
  HttpBaseCache* cache_ = nullptr;
};

TEST_F(ChainTest, AnEmptyChainEndsWhereThePlayerIs) ZV_UNCHECKED {
  Build("0+0*!", 0);
  cache_->currentReadPos = 777;
  EXPECT_EQ(ZV_HttpBaseCacheGetContinuousEnd(cache_, Link(0), Link(0)), 777);
}

TEST_F(ChainTest, TheEndOfARunIsWhereTheFirstGapBegins) ZV_UNCHECKED {
  Build("0+800*! 800+100 900+0 2000+50 2050+7", 0);
  struct Row {
    int from;
    int to;
    int64_t end;
    int32_t continuous;
  };
  for (const Row& row : {Row{0, 1, 800, 1}, Row{0, 2, 900, 1}, Row{0, 3, 900, 0}, Row{0, 4, 900, 0}, Row{3, 4, 2050, 1},
                         Row{1, 0, 900, 0}, Row{1, 1, 900, 1}, Row{4, 4, 2057, 1}}) {
    SCOPED_TRACE(std::to_string(row.from) + " to " + std::to_string(row.to));
    EXPECT_EQ(ZV_HttpBaseCacheGetContinuousEnd(cache_, Link(row.from), Link(row.to)), row.end);
    EXPECT_EQ(ZV_HttpBaseCacheIsContinuous(cache_, Link(row.from), Link(row.to)), row.continuous);
  }
}

TEST_F(ChainTest, WhatIsCachedAheadIsCountedToTheFirstGap) ZV_UNCHECKED {
  Build("0+8000000*! 8000000+8000000 20000000+1000000", 5000000);
  EXPECT_EQ(cache_->currentCacheSize, 11000000);
}

TEST_F(ChainTest, AnEmptyLinkInsideARunIsPassedOver) ZV_UNCHECKED {
  Build("0+800* 400+0 800+100! 900+0 1000+50", 200);
  EXPECT_EQ(cache_->currentCacheSize, 700);
  PrepareFile();
  CacheFileNode* const node = NewLink(cache_);
  ZV_HttpBaseCacheInsertWriteNode(cache_, node);
  EXPECT_EQ(Link(4), node);
  cache_->cacheFileNodeNum += 1;
}

TEST_F(ChainTest, ThreeHundredFullLinksAreCountedIn64Bits) ZV_UNCHECKED {
  std::string text = "0+8388608*!";
  for (int64_t i = 1; i < 300; ++i) {
    text.append(" ").append(std::to_string(i * 8388608)).append("+8388608");
  }
  Build(text, 0);
  EXPECT_EQ(cache_->currentCacheSize, int64_t{300} * 8388608);
  cache_->sizePerSecond = 1;
  EXPECT_EQ(BufferedMs(cache_), 40000);
  cache_->targetCacheSize = INT32_MAX;
  EXPECT_EQ(BufferedMs(cache_), 40000);
}

TEST_F(ChainTest, APositionIsFoundInTheLinkThatHoldsIt) ZV_UNCHECKED {
  Build("0+800*! 800+0 900+100", 0);
  struct Row {
    int64_t position;
    int link;
  };
  for (const Row& row : {Row{0, 0}, Row{799, 0}, Row{800, -1}, Row{899, -1}, Row{900, 2}, Row{999, 2}, Row{1000, -1}}) {
    SCOPED_TRACE(row.position);
    cache_->currentReadPos = row.position;
    EXPECT_EQ(ZV_HttpBaseCacheFindReadNode(cache_), row.link < 0 ? nullptr : Link(row.link));
  }
}

TEST_F(ChainTest, ASeekPutsANewLinkWhereItBelongs) ZV_UNCHECKED {
  struct Row {
    const char* chain;
    int64_t position;
    const char* then;
  };
  for (const Row& row :
       {Row{"100+50*! 200+50", 20, "20+0*! 100+50 200+50"}, Row{"100+50*! 200+50", 170, "100+50 170+0*! 200+50"},
        Row{"100+50*! 200+50", 250, "100+50 200+50 250+0*!"}, Row{"100+50*! 200+50", 9000, "100+50 200+50 9000+0*!"},
        Row{"100+50*! 200+50 300+50 400+50", 360, "100+50 200+50 300+50 360+0*! 400+50"},
        Row{"100+50*!", 0, "0+0*! 100+50"}, Row{"100+50*!", 150, "100+50 150+0*!"}}) {
    SCOPED_TRACE(std::string(row.chain) + ", " + std::to_string(row.position));
    Build(row.chain, 100);
    const int32_t before = cache_->cacheFileNodeNum;
    cache_->currentReadPos = row.position;
    PrepareFile();
    ASSERT_NE(ZV_HttpBaseCacheAddNewCacheFileNode(cache_), nullptr);
    EXPECT_EQ(Show(), row.then);
    EXPECT_EQ(cache_->cacheFileNodeNum, before);  // the caller counts
    cache_->cacheFileNodeNum += 1;
  }
}

TEST_F(ChainTest, ASeekWhoseFileCouldNotBeMadeDoesNotTryAgain) ZV_UNCHECKED {
  for (const char* const chain : {"100+50*!", "100+50*! 200+50"}) {
    Build(chain, 100);
    const int files = FilesInFolder();
    cache_->currentReadPos = 9000;
    EXPECT_EQ(ZV_HttpBaseCacheAddNewCacheFileNode(cache_), nullptr);
    EXPECT_EQ(FilesInFolder(), files);
    EXPECT_EQ(StartOf(cache_->currentReadNode), 9000);
  }
}

TEST_F(ChainTest, ASeekWithoutANewFileReusesAnEndOfTheChain) ZV_UNCHECKED {
  struct Row {
    const char* chain;
    int64_t position;
    const char* then;
  };
  for (const Row& row :
       {Row{"100+50*! 200+50 300+50", 20, "20+0*! 100+50 200+50"},
        Row{"100+50*! 200+50 300+50", 350, "200+50 300+50 350+0*!"},
        Row{"100+50*! 200+50 300+50", 260, "200+50 260+0*! 300+50"},
        Row{"100+50*! 200+50 300+50", 160, "100+50 160+0*! 200+50"}, Row{"100+50*! 200+50", 160, "100+50 160+0*!"},
        Row{"100+50*! 200+50", 5, "5+0*! 100+50"}, Row{"100+50*!", 5, "5+0*!"}, Row{"100+50*!", 155, "155+0*!"},
        Row{"100+50*! 200+50 250+0 300+9", 270, "200+50 250+0 270+0*! 300+9"}}) {
    SCOPED_TRACE(std::string(row.chain) + ", " + std::to_string(row.position));
    Build(row.chain, 100);
    LastLink(cache_)->cacheFile->isLast = 1;
    cache_->lastNode = LastLink(cache_);
    const int32_t before = cache_->cacheFileNodeNum;
    cache_->currentReadPos = row.position;
    ZV_HttpBaseCacheReuseNodeForSeek(cache_);
    EXPECT_EQ(Show(), row.then);
    EXPECT_EQ(cache_->cacheFileNodeNum, before);
    EXPECT_TRUE(cache_->lastNode == nullptr || cache_->lastNode->cacheFile->isLast != 0);
  }
}

TEST_F(ChainTest, AWriterWithoutANewFileReusesWhatThePlayerHasLeft) ZV_UNCHECKED {
  struct Row {
    const char* chain;
    int64_t readPos;
    bool finished;  // the first file is written and read
    const char* then;
  };
  for (const Row& row :
       {Row{"0+100*!", 100, true, "100+0*!"}, Row{"0+100*!", 100, false, ""}, Row{"0+100*!", 60, true, ""},
        Row{"0+100 100+100*! 500+9", 100, false, "100+100* 200+0! 500+9"},
        Row{"0+100* 100+100! 500+9", 0, false, "0+100* 100+100 200+0!"}, Row{"0+100* 100+100!", 0, false, ""}}) {
    SCOPED_TRACE(row.chain);
    Build(row.chain, row.readPos);
    cache_->headNode->cacheFile->isWriteFinish = row.finished ? 1 : 0;
    const std::string before = Show();
    const bool taken = ZV_HttpBaseCacheReuseWriteNode(cache_) != 0;
    EXPECT_EQ(taken, *row.then != '\0');
    EXPECT_EQ(Show(), taken ? row.then : before);
    EXPECT_EQ(cache_->currentCacheSize, CountCacheSize(cache_));
  }
}

TEST_F(ChainTest, TheSweepKeepsWhatIsInUse) ZV_UNCHECKED {
  Build("0+0 10+0* 20+5 30+0! 40+0 50+0", 10);
  cache_->lastNode = Link(4);
  cache_->lastNode->cacheFile->isLast = 1;
  const int files = FilesInFolder();
  ZV_HttpBaseCacheDeleteNode(cache_, nullptr);
  EXPECT_EQ(Show(), "10+0* 20+5 30+0! 40+0");
  EXPECT_EQ(cache_->cacheFileNodeNum, 4);
  EXPECT_EQ(FilesInFolder(), files - 2);
  ZV_HttpBaseCacheDeleteNode(cache_, cache_->lastNode);
  EXPECT_EQ(cache_->lastNode, nullptr);
}

TEST_F(ChainTest, TheRestIsCachedWhenNoGapLeadsToTheLastLink) ZV_UNCHECKED {
  struct Row {
    const char* chain;
    int last;
    int32_t rest;
  };
  for (const Row& row :
       {Row{"0+100*! 100+9", -1, 0}, Row{"0+100* 100+9!", 1, 1}, Row{"0+100*! 100+9", 1, 1}, Row{"0+100*! 101+9", 1, 0},
        Row{"0+100*! 100+9 200+4", 2, 0}, Row{"0+100 100+9! 109+4", 2, 1}}) {
    SCOPED_TRACE(row.chain);
    Build(row.chain, 0);
    cache_->lastNode = row.last < 0 ? nullptr : Link(row.last);
    EXPECT_EQ(ZV_HttpBaseCacheIsRestCached(cache_), row.rest);
  }
}

TEST_F(ChainTest, SizesFollowFromLengthDurationAndCacheTime) ZV_UNCHECKED {
  struct Row {
    int64_t length;
    int32_t duration;
    int32_t cacheTime;
    int32_t target;
    int32_t perSecond;
  };
  constexpr int32_t kDefault = 5242880;
  constexpr int32_t kDefaultSecond = 1048576;
  for (const Row& row :
       {Row{1000000000, 7200000, 40, 5524861, 138888}, Row{1000000, 30000, 40, 1000000, 33333},
        Row{-1, 7200000, 40, kDefault, kDefaultSecond}, Row{0, 7200000, 40, kDefault, kDefaultSecond},
        Row{1000000, 0, 40, kDefault, kDefaultSecond}, Row{1000000, -7, 40, kDefault, kDefaultSecond},
        Row{1000, INT32_MAX, 40, 1, 1}, Row{1000, INT32_MAX, INT32_MAX, 1000, 1},
        Row{1000000000000, 1000, 40, INT32_MAX, INT32_MAX}, Row{INT64_MAX, 1, 40, INT32_MAX, INT32_MAX},
        Row{5000000000, 80000, 536870912, INT32_MAX, 62500000}}) {
    SCOPED_TRACE(std::to_string(row.length) + ", " + std::to_string(row.duration));
    cache_->targetCacheSize = kDefault;
    cache_->sizePerSecond = kDefaultSecond;
    cache_->contentLength = row.length;
    cache_->duration = row.duration;
    cache_->localCacheParam->cacheTime = row.cacheTime;
    ZV_HttpBaseCacheUpdateCacheUnitSize(cache_);
    EXPECT_EQ(cache_->targetCacheSize, row.target);
    EXPECT_EQ(cache_->sizePerSecond, row.perSecond);
  }
}

TEST_F(ChainTest, AReportComesForMoreThanASecondAndForNothing) ZV_UNCHECKED {
  struct Row {
    int64_t size;
    int64_t reported;
    int32_t value;  // -1: none
  };
  for (const Row& row : {Row{1048576, 0, -1}, Row{1048577, 0, 1000}, Row{3500000, 0, 3000}, Row{3500000, 4000000, -1},
                         Row{1, 1048578, 0}, Row{0, 0, 0}, Row{0, 5000000, 0}, Row{int64_t{1} << 52, 0, INT32_MAX}}) {
    SCOPED_TRACE(row.size);
    cache_->currentCacheSize = row.size;
    cache_->lastReportedCacheSize = row.reported;
    ZV_HttpBaseCacheReportCacheState(cache_);
    ASSERT_EQ(cache_->calls.count, row.value < 0 ? 0 : 1);
    EXPECT_TRUE(row.value < 0 || cache_->calls.calls[0].value == row.value);
    EXPECT_EQ(cache_->lastReportedCacheSize, row.value < 0 || row.size == 0 ? row.reported : row.size);
    cache_->calls.count = 0;
  }
  cache_->currentCacheSize = 0;
}

}  // namespace
}  // namespace cache
