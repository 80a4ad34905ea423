// What is easily lost when things change hands: redirects that lead nowhere, workers that cannot start, and the moment at
// which the handle leaves its local cache because the disk is full.
#include <thread>

#include "FileLimit.h"
#include "SegPlayer.h"

namespace seg {
namespace {

class LeavingTest : public SegTest {
 protected:
  static constexpr uint64_t kLimit = 100000;

  // Serves all of them only up to a byte that the disk still takes, until the gate is opened.
  std::shared_ptr<origin::Gate> HoldAll() {
    const auto gate = std::make_shared<origin::Gate>();
    server_.Handle([gate](const origin::Request&) {
      origin::Answer answer;
      answer.gate = gate;
      answer.gateAt = 80000;
      return answer;
    });
    return gate;
  }
  static bool WaitUntilLeft(const SegPlayer& player) {
    return WaitUntil([&] { return player.Get()->isLocalCache.load() == 0; });
  }
  static void PutNowhere(origin::Server* server, const Segment& segment) {
    server->Script(segment.target, {origin::Status(302, "a page, no media")});
  }
};

TEST_F(LeavingTest, ARedirectToNowhereAheadIsAFailureThatTheNextOpenForgets) {
  const std::vector<Segment> segments = PutSegments(3, 100000);
  PutNowhere(&server_, segments[1]);
  const auto player = NewPlayer(segments);
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
  ASSERT_TRUE(player->WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->lastError == kFailed; }));
  EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "");
  EXPECT_EQ(player->Play(Url(segments[2]), segments[2]), "");
}

TEST_F(LeavingTest, ARedirectToNowhereOfTheReadSegmentIsReportedAsAFailure) {
  const std::vector<Segment> segments = PutSegments(2, 100000);
  PutNowhere(&server_, segments[0]);
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(player->WaitForCode(kFailed));
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
}

TEST_F(LeavingTest, ARedirectToNowhereWhileGoingOnIsNotMedia) {
  ZV_NEEDS_FILE_LIMIT();
  const Segment segment = PutSegment(0, 600000);
  const FileLimit full(kLimit);
  const auto gate = HoldAll();
  const auto player = NewPlayer({segment});
  player->Open(Url(segment), segment);
  ASSERT_EQ(player->ReadTo(60001), "");
  PutNowhere(&server_, segment);
  gate->Open();
  ASSERT_TRUE(WaitUntilLeft(*player));
  ASSERT_TRUE(player->WaitForAnyCode());
  EXPECT_THAT(player->ReadAll(1000, 500), testing::HasSubstr("nothing more after"));
}

// The first worker, the only one in use, may get no buffer before the others have started, or after.
TEST_F(LeavingTest, WhicheverWorkerGetsNoMemoryAnotherOneWorks) {
  const std::vector<Segment> segments = PutSegments(1, 1000);
  bool fires = true;
  for (int64_t n = 1; fires; n += kIsSanitized ? 7 : 1) {
    SegPlayer player;
    fault_platform::FailNth(fault_platform::Kind::kAllocation, n);
    player.UseFiles(Prefix());
    const bool isLocal = player.Get()->isLocalCache.load() != 0;
    if (isLocal) {
      EXPECT_TRUE(player.WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED {
        const int32_t worker =
            static_cast<int32_t>(std::find(std::begin(cache->threadInUse), std::end(cache->threadInUse), 1) -
                                 std::begin(cache->threadInUse));
        return worker < kWorkers && cache->threadIsLost[worker] == 0 && cache->usingThreadNum == 1;
      })) << n;
    }
    fires = fault_platform::Failed(fault_platform::Kind::kAllocation) > 0;
    fault_platform::FailNothing();
    ASSERT_LT(n, 1000);
  }
}

// Set before the cache is left, or after it while its stream is still open.
TEST_F(LeavingTest, ARangeThatWasSetCountsForTheNextOpenWhateverHappensBefore) {
  ZV_NEEDS_FILE_LIMIT();
  server_.Put("/all", origin::PatternResource(3000000, 9));
  const Segment first = {"/all", 600000, 9, 0, true, 1000, 0};
  const Segment second = {"/all", 300000, 9, 1000000, true, 1000, 1};
  for (const bool isSetBefore : {true, false}) {
    SCOPED_TRACE(isSetBefore);
    const FileLimit full(kLimit);
    const auto gate = HoldAll();
    const auto player = NewPlayer({first, second});
    player->Open(Url(first), first);
    ASSERT_EQ(player->ReadTo(60001), "");
    const auto setRange = [&] { ZV_HttpBaseSegCacheSetRange(player->Get(), 1000000, 1299999); };
    if (isSetBefore) {
      setRange();
    }
    gate->Open();
    ASSERT_TRUE(WaitUntilLeft(*player));
    if (!isSetBefore) {
      EXPECT_EQ(player->ReadAll(), "");
      setRange();
    }
    Segment direct = second;
    direct.isRange = false;
    player->Open(Url(second), direct);
    EXPECT_EQ(player->ReadAll(), "");
  }
}

// All bytes are read, but whether more will come is not known yet: asking for the rest is answered by 416.
TEST_F(LeavingTest, ASegmentThatWasReadToItsUnknownEndHasEnded) {
  ZV_NEEDS_FILE_LIMIT();
  const Segment start = PutSegment(0, 20000);
  const Segment chunked = PutSegment(1, 50000);
  const Segment big = PutSegment(2, 600000);
  const auto gate = std::make_shared<origin::Gate>();
  origin::Answer withoutLength;
  withoutLength.chunkBytes = 10000;
  withoutLength.gate = gate;
  withoutLength.gateAt = 50000;
  server_.Script(chunked.target, {withoutLength});
  const FileLimit full(kLimit);
  const auto player = NewPlayer({start, chunked, big}, 2);
  EXPECT_EQ(player->Play(Url(start), start), "");
  player->Open(Url(chunked), chunked);
  ASSERT_EQ(player->ReadTo(50000), "");
  ASSERT_TRUE(WaitUntilLeft(*player));
  EXPECT_EQ(player->ReadAll(), "");
  EXPECT_EQ(player->Count(416), 0);
}

// The worker that leaves the cache waits for a callback; meanwhile another thread closes the cache and the reader opens the
// next segment: it must get that one.
TEST_F(LeavingTest, AnOpenWhileTheCacheIsLeftAndClosedGetsItsOwnSegment) {
  const std::vector<Segment> segments = PutSegments(2, 300000);
  SegPlayer player;
  std::atomic<int> stage{0};
  player.onCode = [&](int32_t) {
    int expected = 0;
    if (stage.compare_exchange_strong(expected, 1)) {
      WaitUntil([&] { return stage.load() == 2; }, 20000);
    }
  };
  player.UseFiles(Prefix() + "missing/");
  player.SetList(2);
  for (const Segment& segment : segments) {
    player.Add(Url(segment), segment);
  }
  player.Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(WaitUntil([&] { return stage.load() == 1; }));
  ASSERT_TRUE(player.WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->givingUp >= 0; }));
  std::thread closer([&] { ZV_HttpBaseSegCacheCloseLocalCache(player.Get()); });
  EXPECT_TRUE(player.WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->threads[0] == nullptr; }));
  std::thread reader([&] { player.Open(Url(segments[1]), segments[1]); });
  stage.store(2);
  reader.join();
  closer.join();
  EXPECT_EQ(player.ReadAll(), "");
}

}  // namespace
}  // namespace seg
