// Whole playlists, on demand and live: what is fetched when, what is read, what is reported.
#include <chrono>
#include <set>
#include <thread>

#include "SegPlayer.h"

namespace seg {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

class FlowTest : public SegTest {
 protected:
  // Plays them in order; the first thing that went wrong.
  std::string PlayAll(SegPlayer* player, const std::vector<Segment>& segments) {
    for (const Segment& segment : segments) {
      std::string wrong = player->Play(Url(segment), segment);
      wrong += wrong.empty() ? player->Check() : "";
      if (!wrong.empty()) {
        return wrong;
      }
      EXPECT_EQ(ZV_HttpBaseSegCacheClose(player->Get()), 0);
    }
    return "";
  }
};

TEST_F(FlowTest, APlaylistIsReadByteForByteWhateverTheWorkers) {
  const std::vector<Segment> segments = PutSegments(12, 300000);
  for (const Kind kind : {Kind::kOnDemand, Kind::kLive}) {
    for (const int workers : {1, 2, 5}) {
      SCOPED_TRACE(workers);
      server_.ClearLog();
      const auto player = NewPlayer(segments, workers, kind);
      EXPECT_EQ(PlayAll(player.get(), segments), "");
      EXPECT_EQ(player->Count(kOk), 12);
      EXPECT_EQ(server_.RequestCount(), 12) << "each segment once";
    }
  }
}

TEST_F(FlowTest, ByteRangesOfOneResourceAreSegments) {
  constexpr uint64_t kLength = 1000000;
  server_.Put("/all", origin::PatternResource(kLength, 9));
  std::vector<Segment> segments;
  const std::pair<uint64_t, uint64_t> ranges[] = {{0, 1}, {1, 299999}, {300000, 500000}, {800000, 200000}};
  for (const auto& [first, length] : ranges) {
    segments.push_back({"/all", length, 9, first, true, 1000, static_cast<int32_t>(segments.size())});
  }
  for (const Kind kind : {Kind::kOnDemand, Kind::kLive}) {
    for (const bool ignoresRanges : {false, true}) {
      server_.Handle("/all", [ignoresRanges](const origin::Request&) {
        origin::Answer answer;
        answer.ignoreRange = ignoresRanges;
        return answer;
      });
      const auto player = NewPlayer(segments, 2, kind);
      ZV_HttpBaseSegCacheSetNeedDownloadComplete(player->Get(), 0);  // a whole resource would not be the segment
      EXPECT_EQ(PlayAll(player.get(), segments), "");
    }
  }
}

TEST_F(FlowTest, ARangeWithoutLengthGoesToTheEnd) {
  server_.Put("/all", origin::PatternResource(500000, 9));
  const Segment segment = {"/all", 400000, 9, 100000, true, 1000, 0};
  for (const int32_t rangeLen : {0, -5}) {
    SegPlayer player;
    player.UseFiles(Prefix());
    player.SetList(1);
    EXPECT_EQ(ZV_HttpBaseSegCacheAddSegment(player.Get(), Url(segment).c_str(), 1000, 1, 100000, rangeLen, 0), 0);
    EXPECT_EQ(player.Play(Url(segment), segment), "");
  }
}

TEST_F(FlowTest, OddSegmentsArriveWhole) {
  std::vector<Segment> segments;
  for (const uint64_t length : {0, 1, 16384, 524288, 524289, 3000000, 0}) {
    segments.push_back(PutSegment(static_cast<int>(segments.size()), length));
  }
  server_.Handle("/s4", [](const origin::Request&) {
    origin::Answer answer;
    answer.chunkBytes = 10000;
    return answer;
  });
  server_.Handle("/s5", [](const origin::Request&) {
    origin::Answer answer;
    answer.gzip = true;
    return answer;
  });
  for (const int connections : {1, 3}) {
    const auto player = NewPlayer(segments, 2);
    ZV_HttpBaseSegCacheSetHttpConnNum(player->Get(), connections);
    ZV_HttpBaseSegCacheSetHttpConnRangeSize(player->Get(), 204800);
    EXPECT_EQ(PlayAll(player.get(), segments), "");
  }
}

TEST_F(FlowTest, ACachedSegmentAnswersInOpenAndIsReadAgainFromItsStart) {
  const std::vector<Segment> segments = PutSegments(3);
  const auto player = NewPlayer(segments);
  EXPECT_EQ(player->Open(Url(segments[0]), segments[0]), 0);
  ASSERT_TRUE(player->WaitForState(2, kSegmentCached));
  for (int round = 0; round < 2; ++round) {
    player->ForgetCodes();
    EXPECT_EQ(player->Open(Url(segments[1]), segments[1]), 0);
    EXPECT_THAT(player->Codes(), ElementsAre(kOk));
    EXPECT_EQ(ZV_HttpBaseSegCacheGetContentLength(player->Get()), 200000);
    EXPECT_EQ(ZV_HttpBaseSegCacheGetOpenFlag(player->Get()), 0);
    EXPECT_EQ(player->ReadAll(), "");
    EXPECT_EQ(player->ReadAll(), "") << "the end repeats";
    EXPECT_EQ(ZV_HttpBaseSegCacheClose(player->Get()), 0);
    EXPECT_EQ(ZV_HttpBaseSegCacheGetOpenFlag(player->Get()), 1);
    EXPECT_EQ(ZV_HttpBaseSegCacheGetOpenFlag(player->Get()), 1);
  }
  EXPECT_EQ(RequestsOf(segments[1]), 1);
}

TEST_F(FlowTest, OnlyOneWorkerFetchesUntilTheFirstSegmentIsComplete) {
  const std::vector<Segment> segments = PutSegments(8);
  const auto gate = std::make_shared<origin::Gate>();
  server_.Handle([gate](const origin::Request&) {
    origin::Answer answer;
    answer.gate = gate;
    return answer;
  });
  const auto player = NewPlayer(segments, 5);
  player->Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(gate->AwaitWaiting(1));
  EXPECT_TRUE(log_.Contains("only notify one thread to down load the first segment"));
  EXPECT_EQ(player->Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED {
    return std::count(std::begin(cache->threadState), std::end(cache->threadState), 1);
  }),
            1);
  EXPECT_EQ(gate->Waiting(), 1);
  gate->ReleaseWaiting();
  EXPECT_TRUE(gate->AwaitWaiting(5)) << "then all of them, at once";
  gate->Open();
  EXPECT_EQ(player->ReadAll(), "");
}

TEST_F(FlowTest, TheCachedTimeIsReported) {
  const std::vector<Segment> segments = PutSegments(4, 400000, 2000);
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(player->WaitForState(3, kSegmentCached));
  ASSERT_TRUE(WaitUntil([&] { return player->States().size() == 4; }));
  EXPECT_THAT(player->States(), ElementsAre(Pair(0, 0), Pair(0, 2000), Pair(0, 4000), Pair(0, 6000)));
  // 200,000 bytes are a second: more than that has been read after 210,000.
  EXPECT_EQ(player->ReadTo(210000, 30000), "");
  EXPECT_THAT(player->States().back(), Pair(0, 950 + 6000));
  EXPECT_EQ(player->ReadAll(), "");
  EXPECT_THAT(player->States().back(), Pair(0, 6000));
}

TEST_F(FlowTest, OpeningAnUncachedSegmentDropsADownloadThatWaitsForASilentServer) {
  const std::vector<Segment> segments = PutSegments(40, 100000, 10000);
  server_.Handle("/s0", [](const origin::Request&) { return origin::StallAt(origin::kBeforeAnswer); });
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(server_.WaitForStalls(1));
  // The worker gets no byte and no code; only the Open can wake it.
  player->Open(Url(segments[20]), segments[20]);
  EXPECT_TRUE(server_.WaitForLog([](const auto& log) { return log.size() > 1 && log[1].target == "/s20"; }, 5000));
  EXPECT_EQ(player->ReadAll(), "");
  EXPECT_EQ(player->StateOf(0), kSegmentWaiting);
}

TEST_F(FlowTest, ASeekLeavesFilesThatTheNewWindowUses) {
  const std::vector<Segment> segments = PutSegments(60, 20000, 10000);
  const auto player = NewPlayer(segments, 3);
  std::set<int> most;
  for (const int at : {0, 30, 10, 50, 0, 59, 25}) {
    EXPECT_EQ(player->Play(Url(segments[static_cast<size_t>(at)]), segments[static_cast<size_t>(at)]), "");
    ASSERT_TRUE(player->WaitUntilResting());
    EXPECT_EQ(player->Check(), "");
    most.insert(FilesInFolder());
  }
  EXPECT_LE(*most.rbegin(), 4 + 3) << "the window's, and those that workers were at";
}

TEST_F(FlowTest, ALiveListDropsWhatTheReaderHasPassed) {
  std::vector<Segment> segments = PutSegments(6, 50000);
  const auto player = NewPlayer(segments, 2, Kind::kLive);
  for (int i = 0; i < 30; ++i) {
    const Segment& segment = segments[static_cast<size_t>(i)];
    ASSERT_EQ(player->Play(Url(segment), segment), "");
    EXPECT_EQ(player->Check(), "");
    segments.push_back(PutSegment(i + 6, 50000));
    ASSERT_EQ(player->Add(Url(segments.back()), segments.back()), 0);
  }
  ASSERT_TRUE(player->WaitUntilResting());
  EXPECT_LE(FilesInFolder(), 8);
  // What was passed is not listed any more: the reader stays where it is.
  player->ForgetCodes();
  EXPECT_EQ(player->Open(Url(segments[3])), 0);
  EXPECT_EQ(player->ReadAll(), "");
}

TEST_F(FlowTest, ALiveRingWrapsWhileOldSlotsAreStillDownloaded) {
  constexpr int kLaps = 3;
  const Segment stuck = PutSegment(9999, 100000);
  server_.Handle(stuck.target, [](const origin::Request&) { return origin::StallAt(50000); });
  const Segment small = PutSegment(1, 1000, 1);
  SegPlayer player(5);
  player.UseFiles(Prefix(), Kind::kLive);
  player.SetList(0);
  int number = 0;
  std::vector<std::string> urls;
  const auto add = [&](const Segment& segment) {
    urls.push_back(Url(segment) + "/" + std::to_string(number++));
    server_.Put(urls.back().substr(server_.Url("").size()), origin::PatternResource(segment.length, segment.seed));
    EXPECT_EQ(player.Add(urls.back(), segment), 0);
  };
  EXPECT_EQ(player.Add(Url(stuck), stuck), 0);
  for (int i = 0; i < 200; ++i) {
    add(small);
  }
  // One worker hangs in the first slot from now on; the reader goes on.
  player.Open(Url(stuck), stuck);
  ASSERT_TRUE(server_.WaitForStalls(1));
  for (int32_t i = 1; i < 5; ++i) {
    player.Ask([i](HttpBaseSegCache* cache) ZV_UNCHECKED {
      cache->firstSegmentCached = 1;
      NoteWake(cache, i);
      return 0;
    });
  }
  for (int i = 0; i < kLaps * kLiveSlots; i += 150) {
    const std::string& url = urls[static_cast<size_t>(i)];
    ASSERT_TRUE(player.WaitFor([&](HttpBaseSegCache* cache) ZV_UNCHECKED {
      const int32_t count = ListedCount(cache);
      for (int32_t n = 0; n < count; ++n) {
        const HttpBaseSegCacheSegment* const segment = SegmentAt(cache, PlaceOf(cache, n));
        if (url == segment->url) {
          return segment->state == kSegmentCached;
        }
      }
      return false;
    }));
    ASSERT_EQ(player.Play(url, small), "") << i;
    ASSERT_EQ(player.Check(), "") << i;
    for (int n = 0; n < 150; ++n) {
      add(small);
    }
  }
  EXPECT_EQ(server_.LogOf(stuck.target).size(), 1u);
  EXPECT_TRUE(player.WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED {
    return std::none_of(
        std::begin(cache->working), std::end(cache->working),
        [](const HttpBaseSegCacheSegment* segment) { return segment != nullptr && segment->isDetached; });
  })) << "the worker has freed it";
}

TEST_F(FlowTest, ALongSegmentIsFetchedThoughItExceedsTheCacheTime) {
  const std::vector<Segment> segments = PutSegments(2, 100000, 60000);
  const auto player = NewPlayer(segments);
  EXPECT_EQ(PlayAll(player.get(), segments), "");
}

TEST_F(FlowTest, ListsOfAnySize) {
  const Segment segment = PutSegment(0, 30000);
  for (const int count : {0, 1, 100000}) {
    SCOPED_TRACE(count);
    SegPlayer player(2);
    player.UseFiles(Prefix());
    player.SetList(count);
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(player.Add(Url(segment) + "?n=" + std::to_string(i), segment), 0);
    }
    EXPECT_EQ(player.Add(Url(segment), segment), 1);
    if (count == 0) {
      EXPECT_EQ(player.Open(Url(segment), segment), 0);
      EXPECT_EQ(player.ReadOnce(10), "");
    } else {
      EXPECT_EQ(player.Play(Url(segment) + "?n=" + std::to_string(count - 1), segment), "");
      EXPECT_EQ(player.Play(Url(segment) + "?n=" + std::to_string(count / 2), segment), "");
    }
    EXPECT_EQ(player.Check(), "");
  }
}

}  // namespace
}  // namespace seg
