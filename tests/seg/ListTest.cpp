// The list and the window by themselves: no worker fetches anything here, since caching is stopped from the start.
#include "SegPlayer.h"

namespace seg {
namespace {

constexpr char kUrl[] = "http://127.0.0.1:1/";

class ListTest : public SegTest {
 protected:
  std::unique_ptr<SegPlayer> Stopped(Kind kind, int32_t cacheTime = 40, int32_t segmentNum = 5000) {
    auto player = std::make_unique<SegPlayer>();
    player->UseFiles(Prefix(), kind, cacheTime);
    ZV_HttpBaseSegCacheAbortCurrentCaching(player->Get());
    player->SetList(segmentNum);
    return player;
  }
  static Segment Lasting(int32_t duration, int32_t seq = 0) {
    Segment segment;
    segment.duration = duration;
    segment.seq = seq;
    segment.length = 100;
    return segment;
  }
  static std::string UrlOf(int i) { return kUrl + std::to_string(i); }
  static int32_t IndexOf(const SegPlayer& player, const std::string& url) {
    return static_cast<int32_t>(player.Ask(
        [&](HttpBaseSegCache* cache) ZV_UNCHECKED { return ZV_HttpBaseSegCacheGetIndexByUrl(cache, url.c_str()); }));
  }
  static std::string UrlAt(const SegPlayer& player, int32_t index) {
    std::string url;
    player.Ask([&](HttpBaseSegCache* cache) ZV_UNCHECKED {
      url = SegmentAt(cache, index)->url;
      return 0;
    });
    return url;
  }
  static int32_t EndOfWindow(const SegPlayer& player) {
    return static_cast<int32_t>(player.Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->endWriteIndex; }));
  }
  // Puts a segment into a state by hand, with a file where that state has one.
  static void SetState(const SegPlayer& player, int32_t index, SegmentState state) {
    player.Ask([&](HttpBaseSegCache* cache) ZV_UNCHECKED {
      HttpBaseSegCacheSegment* const segment = SegmentAt(cache, index);
      segment->state = state;
      if (state == kSegmentCached) {
        segment->cacheFile = ZV_HttpBaseCacheFileInitCacheFile(cache->localCacheParam->cacheDir, 0);
      }
      return 0;
    });
  }
};

TEST_F(ListTest, AUrlIsFoundExactlyBeforeItIsFoundByItsPath) {
  const auto player = Stopped(Kind::kOnDemand);
  const char* const listed[] = {"a/seg?n=1", "a/seg?n=2", "a/plain", "b?x?t=1", "b?y?t=1", "c?t=1", "a/plain"};
  for (const char* url : listed) {
    ASSERT_EQ(player->Add(url, Lasting(1000)), 0);
  }
  const struct {
    const char* url;
    int32_t index;
  } kRows[] = {
      {"a/seg?n=1", 0}, {"a/seg?n=2", 1}, {"a/seg?n=3", 0}, {"a/seg", -1},     {"a/plain", 2}, {"a/plain?n=1", -1},
      {"b?x?t=2", 3},   {"b?y?t=2", 4},   {"b?z?t=1", -1},  {"b?t=1", -1},     {"c?", 5},      {"c", -1},
      {"", -1},         {"?", -1},        {"a/seg?", 0},    {"A/seg?n=1", -1},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(IndexOf(*player, row.url), row.index) << row.url;
  }
}

TEST_F(ListTest, AStartGivenBeforehandSelectsOnceAmongSegmentsOfOneUrl) {
  const auto player = Stopped(Kind::kOnDemand);
  for (const uint64_t first : {0, 100, 200}) {
    Segment segment = Lasting(1000);
    segment.isRange = true;
    segment.first = first;
    ASSERT_EQ(player->Add("all", segment), 0);
  }
  ZV_HttpBaseSegCacheSetRange(player->Get(), 200, 7);
  EXPECT_EQ(IndexOf(*player, "all"), 2);
  EXPECT_EQ(IndexOf(*player, "all"), 0) << "used up";
  ZV_HttpBaseSegCacheSetRange(player->Get(), 0x100000064, -1);
  EXPECT_EQ(IndexOf(*player, "all"), -1) << "all 64 bits count";
  EXPECT_EQ(IndexOf(*player, "all"), 0);
}

TEST_F(ListTest, AListTakesAsManySegmentsAsItWasMadeFor) {
  const auto onDemand = Stopped(Kind::kOnDemand, 40, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(onDemand->Add(UrlOf(i), Lasting(1000)), 0);
  }
  EXPECT_EQ(onDemand->Add(UrlOf(3), Lasting(1000)), 1);
  EXPECT_TRUE(log_.Contains("error add segment 3 to list as maxNum 3", LUM_LEVEL_FAILURE));
  onDemand->SetList(10);
  EXPECT_EQ(onDemand->Add(UrlOf(3), Lasting(1000)), 1) << "a list is prepared once";
  for (const int32_t none : {0, -1, INT32_MIN}) {
    EXPECT_EQ(Stopped(Kind::kOnDemand, 40, none)->Add(UrlOf(0), Lasting(1000)), 1) << none;
  }
  const auto live = Stopped(Kind::kLive, 40, -3);
  for (int i = 0; i < kLiveSlots - 1; ++i) {
    ASSERT_EQ(live->Add(UrlOf(i), Lasting(1000)), 0) << i;
  }
  EXPECT_EQ(live->Add(UrlOf(kLiveSlots), Lasting(1000)), 1);
  EXPECT_TRUE(log_.Contains("live cache list si full add segment failed"));
  EXPECT_EQ(live->Check(), "");
}

TEST_F(ListTest, ALiveUrlIsListedOnceAndRefreshedUnlessItIsBeingFetched) {
  const auto player = Stopped(Kind::kLive);
  ASSERT_EQ(player->Add("a/seg1.ts?token=1", Lasting(1000, 1)), 0);
  ASSERT_EQ(player->Add("a/seg2.ts", Lasting(1000, 2)), 0);
  const struct {
    SegmentState state;
    const char* added;
    const char* then;
  } kRows[] = {
      {kSegmentWaiting, "a/seg1.ts?token=2", "a/seg1.ts?token=2"},
      {kSegmentOpening, "a/seg1.ts?token=3", "a/seg1.ts?token=2"},
      {kSegmentAnswered, "a/seg1.ts?token=4", "a/seg1.ts?token=2"},
      {kSegmentFailed, "a/seg1.ts?a longer token than before", "a/seg1.ts?a longer token than before"},
      {kSegmentWaiting, "a/seg2.ts", "a/seg1.ts?a longer token than before"},
  };
  for (const auto& row : kRows) {
    SetState(*player, 0, row.state);
    EXPECT_EQ(player->Add(row.added, Lasting(1000, 9)), 0);
    EXPECT_EQ(UrlAt(*player, 0), row.then) << row.added;
    SetState(*player, 0, kSegmentWaiting);
  }
  EXPECT_EQ(player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED { return ListedCount(cache); }), 2);
}

TEST_F(ListTest, LiveByteRangesOfOneUrlAreDifferentSegments) {
  const auto player = Stopped(Kind::kLive);
  const auto count = [&] {
    return player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED { return ListedCount(cache); });
  };
  Segment segment = Lasting(1000);
  segment.isRange = true;
  for (const char* url : {"all", "all?t=1"}) {
    const int64_t before = count();
    for (const uint64_t first : {0, 100, 100, 0, 200}) {
      segment.first = first;
      // The reader's own search must not matter.
      ZV_HttpBaseSegCacheSetRange(player->Get(), 55, -1);
      EXPECT_EQ(player->Add(url, segment), 0);
    }
    EXPECT_EQ(count(), before + 3) << url;
  }
  segment.length += 1;
  EXPECT_EQ(player->Add("all", segment), 0);
  segment.isRange = false;
  EXPECT_EQ(player->Add("all", segment), 0);
  EXPECT_EQ(count(), 7) << "by its URL the whole resource is listed already";
}

TEST_F(ListTest, UrlsAreReplacedBySequenceNumber) {
  const auto onDemand = Stopped(Kind::kOnDemand);
  const auto live = Stopped(Kind::kLive);
  for (int i = 0; i < 3; ++i) {
    onDemand->Add(UrlOf(i), Lasting(1000, 100 + i));
    live->Add(UrlOf(i), Lasting(1000, 100 + i));
  }
  const struct {
    int32_t startSeq;
    int32_t seq;
    int32_t onDemand;  // place that changes, -1 none
    int32_t live;
  } kRows[] = {
      {100, 99, -1, -1},
      {100, 103, -1, -1},
      {100, 100, 0, 0},
      {100, 102, 2, 2},
      {99, 100, 1, 0},
      {INT32_MIN, INT32_MAX, -1, -1},
      {INT32_MAX, INT32_MIN, -1, -1},
  };
  for (const auto& row : kRows) {
    const std::string url = "new" + std::to_string(&row - kRows) + std::string(50, 'x');
    for (const auto& [player, place] : {std::pair(onDemand.get(), row.onDemand), std::pair(live.get(), row.live)}) {
      ZV_HttpBaseSegCacheUpdateTsUrlBySeq(player->Get(), url.c_str(), row.startSeq, row.seq);
      EXPECT_EQ(IndexOf(*player, url), place) << row.startSeq << " " << row.seq;
    }
  }
}

TEST_F(ListTest, TheWindowIsBoundedByTimeByNumberAndByTheList) {
  const struct {
    int32_t cacheTime;
    int32_t duration;
    int count;
    int32_t read;
    int32_t end;
  } kRows[] = {
      {40, 10000, 100, 0, 4},
      {40, 10000, 100, 7, 11},
      {10, 10000, 100, 0, 4},
      {600, 1000, 400, 0, 300},
      {600, 1000, 400, 390, 400},
      {40, 50000, 100, 3, 4},
      {40, 0, 400, 5, 305},
      {40, -1000, 400, 5, 305},
      {40, INT32_MAX, 10, 0, 1},
      {INT32_MAX, 1000, 400, 0, 300},
      {INT32_MAX, INT32_MAX, 400, 0, 300},
      {40, 20000, 1, 0, 1},
  };
  for (const auto& row : kRows) {
    for (const Kind kind : {Kind::kOnDemand, Kind::kLive}) {
      const auto player = Stopped(kind, row.cacheTime);
      for (int i = 0; i < row.count; ++i) {
        ASSERT_EQ(player->Add(UrlOf(i), Lasting(row.duration)), 0);
      }
      EXPECT_EQ(player->Open("not listed"), 0);
      EXPECT_EQ(EndOfWindow(*player), -1);
      EXPECT_EQ(player->Open(UrlOf(row.read)), 0);
      EXPECT_EQ(EndOfWindow(*player), row.end) << row.cacheTime << " s of " << row.duration << " ms from " << row.read;
      EXPECT_EQ(player->Check(), "");
    }
  }
}

TEST_F(ListTest, TheCachedTimeEndsAtTheFirstGap) {
  const auto player = Stopped(Kind::kOnDemand, 600);
  for (int i = 0; i < 10; ++i) {
    player->Add(UrlOf(i), Lasting(1000 + i));
  }
  const auto cachedTime = [&] {
    return player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->currCacheTime; });
  };
  for (const int32_t index : {5, 6, 8}) {
    SetState(*player, index, kSegmentCached);
  }
  player->Open(UrlOf(5));
  EXPECT_EQ(cachedTime(), 1006);
  player->Open(UrlOf(4));
  EXPECT_EQ(cachedTime(), 0);
  player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED {
    ZV_HttpBaseSegCacheReportCacheTime(cache);
    return 0;
  });
  EXPECT_EQ(cachedTime(), 1005 + 1006);
}

TEST_F(ListTest, ALiveWindowWrapsAndLeavesNoFileBehindTheReader) {
  const auto player = Stopped(Kind::kLive, 600);
  for (int i = 0; i < kLiveSlots - 1; ++i) {
    player->Add(UrlOf(i), Lasting(1000));
  }
  player->Open(UrlOf(1998));
  for (int i = 1999; i < 2010; ++i) {
    ASSERT_EQ(player->Add(UrlOf(i), Lasting(1000)), 0);
  }
  for (const int32_t slot : {1998, 1999, 0, 1}) {
    SetState(*player, slot, kSegmentCached);
  }
  player->Open(UrlOf(1998));
  EXPECT_EQ(player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->currCacheTime; }), 3000);
  EXPECT_EQ(EndOfWindow(*player), 10);
  player->Open(UrlOf(2001));
  EXPECT_EQ(FilesInFolder(), 1);
  EXPECT_EQ(player->StateOf(1998), kSegmentWaiting);
  EXPECT_EQ(player->StateOf(0), kSegmentWaiting);
  EXPECT_EQ(player->StateOf(1), kSegmentCached);
  EXPECT_EQ(player->Check(), "");
}

// A file may only come from a complete segment that is neither read nor about to be.
TEST_F(ListTest, OnlyFilesThatNobodyNeedsAreHandedOn) {
  const auto player = Stopped(Kind::kOnDemand, 40);
  for (int i = 0; i < 20; ++i) {
    player->Add(UrlOf(i), Lasting(10000));
  }
  SetState(*player, 5, kSegmentCached);
  player->Open(UrlOf(5));
  for (const int32_t index : {2, 3, 7, 12}) {
    SetState(*player, index, kSegmentCached);
  }
  player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED {
    cache->readingFile = SegmentAt(cache, 2)->cacheFile;
    return 0;
  });
  const int before = FilesInFolder();
  HttpBaseCacheFile* files[3] = {};
  for (HttpBaseCacheFile*& file : files) {
    file = ZV_HttpBaseSegCacheCreateCacheFile(player->Get());
    ASSERT_NE(file, nullptr);
  }
  EXPECT_EQ(FilesInFolder(), before + 1) << "two were handed on";
  for (const auto& [index, state] : {std::pair(2, kSegmentCached),
                                     {3, kSegmentWaiting},
                                     {5, kSegmentCached},
                                     {7, kSegmentCached},
                                     {12, kSegmentWaiting}}) {
    EXPECT_EQ(player->StateOf(index), state) << index;
  }
  for (HttpBaseCacheFile*& file : files) {
    ZV_HttpBaseCacheFileReleaseCacheFile(&file);
  }
  player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED {
    cache->readingFile = nullptr;
    return 0;
  });
}

}  // namespace
}  // namespace seg
