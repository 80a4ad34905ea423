// The calls that steer the workers: how many work, stopping and resuming, leaving at any moment.
#include <chrono>
#include <random>
#include <thread>

#include "FileLimit.h"
#include "SegPlayer.h"

namespace seg {
namespace {

using testing::ElementsAre;

class ControlTest : public SegTest {
 protected:
  static int Using(const SegPlayer& player) {
    return static_cast<int>(player.Ask([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->usingThreadNum; }));
  }
  std::shared_ptr<origin::Gate> HoldAll() {
    const auto gate = std::make_shared<origin::Gate>();
    server_.Handle([gate](const origin::Request&) {
      origin::Answer answer;
      answer.gate = gate;
      return answer;
    });
    return gate;
  }
};

TEST_F(ControlTest, TheNumberOfWorkersIsTakenAtOnceAndGivenBackInTurn) {
  const std::vector<Segment> segments = PutSegments(30, 1000);
  const auto player = NewPlayer(segments);
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
  ASSERT_TRUE(player->WaitUntilResting());
  const auto gate = HoldAll();
  const struct {
    int32_t wanted;
    int waiting;
  } kRows[] = {{3, 3}, {9, 5}, {0, 5}, {-1, 5}, {INT32_MAX, 5}};
  for (size_t i = 0; i < 30; ++i) {
    ASSERT_EQ(player->Add(Url(segments[i]) + "?again", segments[i]), 1);
  }
  for (const auto& row : kRows) {
    ZV_HttpBaseSegCacheSetThreadNumber(player->Get(), row.wanted);
    EXPECT_EQ(Using(*player), row.waiting) << row.wanted;
  }
  for (const int32_t fewer : {3, 1}) {
    ZV_HttpBaseSegCacheSetThreadNumber(player->Get(), fewer);
    player->Open(Url(segments[0]), segments[0]);
    EXPECT_TRUE(WaitUntil([&] { return Using(*player) == fewer; })) << fewer;
    EXPECT_EQ(player->Check(), "");
  }
  gate->Open();
  for (const Segment& segment : segments) {
    EXPECT_EQ(player->Play(Url(segment), segment), "");
  }
}

TEST_F(ControlTest, WorkersThatAreTooManyBeforeTheFirstOpenDoNotTakeItsWakeUpAlong) {
  const std::vector<Segment> segments = PutSegments(3);
  const auto player = NewPlayer(segments, 5);
  ZV_HttpBaseSegCacheSetThreadNumber(player->Get(), 1);
  for (const Segment& segment : segments) {
    EXPECT_EQ(player->Play(Url(segment), segment), "");
  }
  EXPECT_EQ(player->Check(), "");
}

TEST_F(ControlTest, StoppedCachingFetchesNothingAndReadsWhatIsComplete) {
  const std::vector<Segment> segments = PutSegments(6, 200000);
  const auto player = NewPlayer(segments, 2);
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
  ASSERT_TRUE(player->WaitForState(1, kSegmentCached));
  ZV_HttpBaseSegCacheAbortCurrentCaching(player->Get());
  ASSERT_TRUE(player->WaitUntilResting());
  log_.Clear();
  EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "");
  ZV_HttpBaseSegCacheSetThreadNumber(player->Get(), 5);
  player->Add(Url(segments[0]), segments[0]);
  // Not the origin's count: a request that was dropped may still be on its way there.
  EXPECT_FALSE(log_.Contains("is to perform"));
  ZV_HttpBaseSegCacheResumeCaching(player->Get());
  for (const Segment& segment : segments) {
    EXPECT_EQ(player->Play(Url(segment), segment), "");
  }
}

TEST_F(ControlTest, StoppingDropsADownloadThatWaitsForItsAnswer) {
  const std::vector<Segment> segments = PutSegments(2);
  const auto gate = HoldAll();
  const auto player = NewPlayer(segments);
  for (int round = 0; round < 5; ++round) {
    player->Open(Url(segments[0]), segments[0]);
    ASSERT_TRUE(gate->AwaitWaiting(1));
    ZV_HttpBaseSegCacheAbortCurrentCaching(player->Get());
    ASSERT_TRUE(player->WaitForState(0, kSegmentWaiting));
    ASSERT_TRUE(player->WaitUntilResting());
    ZV_HttpBaseSegCacheResumeCaching(player->Get());
    ASSERT_TRUE(player->WaitForState(0, kSegmentOpening));
  }
  gate->Open();
  EXPECT_EQ(player->ReadAll(), "");
}

TEST_F(ControlTest, ANewUrlReplacesTheOldOneForTheNextDownload) {
  const std::vector<Segment> segments = PutSegments(4);
  server_.Put("/moved", origin::PatternResource(segments[2].length, segments[2].seed));
  server_.Handle("/s2", [](const origin::Request&) { return origin::Status(404); });
  const auto gate = std::make_shared<origin::Gate>();
  server_.Handle("/s0", [gate](const origin::Request&) {
    origin::Answer answer;
    answer.gate = gate;
    return answer;
  });
  for (const Kind kind : {Kind::kOnDemand, Kind::kLive}) {
    const auto player = NewPlayer(segments, 1, kind);
    player->Open(Url(segments[0]), segments[0]);
    ASSERT_TRUE(gate->AwaitWaiting(1));
    // The one that is being fetched too: its download goes on with the old URL.
    const std::string longer = server_.Url("/moved?" + std::string(300, 'x'));
    ZV_HttpBaseSegCacheUpdateTsUrlBySeq(player->Get(), server_.Url("/other").c_str(), 0, 0);
    ZV_HttpBaseSegCacheUpdateTsUrlBySeq(player->Get(), longer.c_str(), 0, 2);
    gate->ReleaseWaiting();
    EXPECT_EQ(player->ReadAll(), "");
    EXPECT_EQ(player->Play(longer, segments[2]), "");
    EXPECT_EQ(player->Check(), "");
  }
}

// Each state that a worker stays in; Release must end it at once.
TEST_F(ControlTest, ReleaseIsQuickInEveryStateAndLeavesNothing) {
  const origin::Server secure{{.https = true, .port = 0, .stallHandshake = true}};
  const std::vector<Segment> segments = PutSegments(10, 300000);
  const Segment elsewhere;
  server_.Handle("/silent", [](const origin::Request&) { return origin::StallAt(origin::kBeforeAnswer); });
  server_.Handle("/fails", [](const origin::Request&) { return origin::CutAt(origin::kBeforeAnswer); });
  server_.Handle("/busy", [](const origin::Request&) { return origin::Status(503); });
  server_.Put("/half", origin::PatternResource(1000000));
  server_.Handle("/half", [](const origin::Request&) { return origin::StallAt(500000); });
  server_.Put("/drip", origin::PatternResource(100000000));
  server_.Handle("/drip", [](const origin::Request&) {
    origin::Answer answer;
    answer.bytesPerSecond = 5000000;
    return answer;
  });
  const auto isAsked = [this](const std::string& target) {
    return server_.WaitForLog([&](const auto& log) { return !log.empty() && log.back().target == target; });
  };
  const struct {
    const char* name;
    std::string url;
    std::function<bool(SegPlayer*)> await;
  } kRows[] = {
      {"not opened", "", [](SegPlayer*) { return true; }},
      {"just opened", Url(segments[0]), [](SegPlayer*) { return true; }},
      {"waiting for an answer", server_.Url("/silent"), [&](SegPlayer*) { return isAsked("/silent"); }},
      {"receiving", server_.Url("/drip"), [](SegPlayer* player) { return player->WaitForCode(kOk); }},
      {"stalled", server_.Url("/half"), [](SegPlayer* player) { return player->WaitForCode(kOk); }},
      {"between attempts", server_.Url("/fails"), [&](SegPlayer*) { return isAsked("/fails"); }},
      {"shaking hands", secure.Url("/x"), [](SegPlayer* player) { return player->WaitForState(0, kSegmentOpening); }},
      {"failed", server_.Url("/busy"), [](SegPlayer* player) { return player->WaitForCode(503); }},
      {"everything cached", Url(segments[0]),
       [](SegPlayer* player) { return player->WaitForState(9, kSegmentCached); }},
  };
  fault_platform::SetTimeScale(1);  // pauses between attempts outlast the test
  int64_t longest = 0;
  for (const auto& row : kRows) {
    for (const int workers : {1, 5}) {
      SCOPED_TRACE(row.name);
      server_.ClearLog();
      SegPlayer player(workers);
      player.UseFiles(Prefix());
      player.SetList(11);
      player.Add(row.url, elsewhere);
      for (const Segment& segment : segments) {
        player.Add(Url(segment), segment);
      }
      if (!row.url.empty()) {
        player.Open(row.url);
        ASSERT_TRUE(row.await(&player));
      }
      const auto start = std::chrono::steady_clock::now();
      player.Release();
      const auto took = std::chrono::steady_clock::now() - start;
      longest = std::max<int64_t>(longest, std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
      EXPECT_EQ(FilesInFolder(), 0);
    }
  }
  printf("longest Release: %lld ms\n", static_cast<long long>(longest));
  EXPECT_LT(longest, 2000) << "a pause between attempts alone takes 3 seconds";
}

TEST_F(ControlTest, TheHandleMayBeReleasedOrLeaveItsCacheAtAnyInstant) {
  std::mt19937_64 random(Seed("release at random instants"));
  const std::vector<Segment> segments = PutSegments(12, 150000);
  for (int round = 0; round < (kIsSanitized ? 12 : 60); ++round) {
    SCOPED_TRACE(round);
    const FileLimit full(round % 3 == 0 ? 100000 : 1000000000);
    const auto player = NewPlayer(segments, 1 + static_cast<int>(random() % 5));
    player->Open(Url(segments[0]), segments[0]);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    if (random() % 2 == 0) {
      ZV_HttpBaseSegCacheCloseLocalCache(player->Get());
      EXPECT_EQ(FilesInFolder(), 0);
      EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "");
    }
    player->Release();
    EXPECT_EQ(FilesInFolder(), 0);
  }
}

// Everything that may come from other threads, as fast as it can, while one reader plays.
TEST_F(ControlTest, EveryCallMayComeFromAnotherThread) {
  const std::vector<Segment> segments = PutSegments(40, 60000);
  for (const Kind kind : {Kind::kOnDemand, Kind::kLive}) {
    const auto player = NewPlayer(segments, 3, kind);
    HttpBaseSegCache* const handle = player->Get();
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    const std::function<void(int)> kCalls[] = {
        [&](int i) {
          i % 200 == 0 ? ZV_HttpBaseSegCacheAbortCurrentCaching(handle) : ZV_HttpBaseSegCacheResumeCaching(handle);
        },
        [&](int i) { ZV_HttpBaseSegCacheSetThreadNumber(handle, 1 + i % 5); },
        [&](int i) {
          ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle, Url(segments[static_cast<size_t>(i % 40)]).c_str(), 0, i % 40);
        },
        [&](int i) { player->Add(Url(segments[static_cast<size_t>(i % 40)]), segments[static_cast<size_t>(i % 40)]); },
        [&](int) {
          ZV_HttpBaseSegCacheGetContentLength(handle);
          ZV_HttpBaseSegCacheGetOpenFlag(handle);
          ZV_HttpBaseSegCacheSetHttpConnNum(handle, 2);
          EXPECT_EQ(player->Check(), "");
        },
    };
    for (const auto& call : kCalls) {
      threads.emplace_back([&, call] {
        for (int i = 0; !isOver.load(); ++i) {
          call(i);
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
      });
    }
    for (const Segment& segment : segments) {
      EXPECT_EQ(player->Play(Url(segment), segment), "");
    }
    isOver = true;
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
}

}  // namespace
}  // namespace seg
