// Disks that are full, gone or lose what was written: the handle leaves its local cache and goes on with the very next byte.
#include <filesystem>
#include <thread>

#include "FileLimit.h"
#include "SegPlayer.h"

namespace seg {
namespace {

using testing::ElementsAre;
using testing::Pair;

class DiskTest : public SegTest {
 protected:
  static constexpr uint64_t kLimit = 100000;

  // Serves all of them only up to a byte, until the gate is opened.
  std::shared_ptr<origin::Gate> HoldAt(int64_t byte) {
    const auto gate = std::make_shared<origin::Gate>();
    server_.Handle([gate, byte](const origin::Request&) {
      origin::Answer answer;
      answer.gate = gate;
      answer.gateAt = byte;
      return answer;
    });
    return gate;
  }
  static void ExpectGivenUp(const SegPlayer& player) {
    EXPECT_TRUE(WaitUntil([&] {
      const auto states = player.States();
      return states.size() >= 2 && states[states.size() - 2] == std::pair(1, 0) && states.back() == std::pair(0, 0);
    }));
    EXPECT_EQ(player.Get()->isLocalCache.load(), 0);
  }
};

TEST_F(DiskTest, AFullDiskIsLeftInTheMiddleOfASegment) {
  ZV_NEEDS_FILE_LIMIT();
  constexpr uint64_t kLength = 5000000;
  const Segment plain = PutSegment(0, 600000);
  server_.Put("/all", origin::PatternResource(kLength, 9));
  const Segment range = {"/all", 700000, 9, 1000, true, 1000, 0};
  const Segment second = PutSegment(1, 300000);
  for (const Segment& segment : {plain, range}) {
    for (const int workers : {1, 2, 5}) {
      for (const bool closes : {false, true}) {
        SCOPED_TRACE(segment.target);
        const FileLimit full(kLimit);
        const auto gate = HoldAt(80000);
        const auto player = NewPlayer({segment, second}, workers);
        player->Open(Url(segment), segment);
        ASSERT_EQ(player->ReadTo(60001), "");
        server_.ClearLog();
        gate->Open();
        ExpectGivenUp(*player);
        EXPECT_EQ(player->ReadAll(), "");
        const std::string from = std::to_string(segment.first + 60001);
        EXPECT_EQ(server_.LogOf(segment.target).front().range,
                  "bytes=" + from + "-" + (segment.isRange ? std::to_string(segment.first + segment.length - 1) : ""));
        EXPECT_EQ(player->ReadAll(), "") << "the end repeats";
        if (closes) {
          EXPECT_EQ(ZV_HttpBaseSegCacheClose(player->Get()), 0);
        }
        EXPECT_EQ(player->Play(Url(second), second), "");
      }
    }
  }
}

TEST_F(DiskTest, AServerThatIgnoresRangesIsCutToWhatIsMissing) {
  ZV_NEEDS_FILE_LIMIT();
  const Segment segment = PutSegment(0, 600000);
  const FileLimit full(kLimit);
  const auto gate = std::make_shared<origin::Gate>();
  server_.Handle([gate](const origin::Request&) {
    origin::Answer answer;
    answer.gate = gate;
    answer.gateAt = 80000;
    answer.ignoreRange = true;
    return answer;
  });
  const auto player = NewPlayer({segment});
  ZV_HttpBaseSegCacheSetNeedDownloadComplete(player->Get(), -1);
  player->Open(Url(segment), segment);
  ASSERT_EQ(player->ReadTo(60001), "");
  ZV_HttpBaseSegCacheSetNeedDownloadComplete(player->Get(), 0);
  gate->Open();
  ExpectGivenUp(*player);
  EXPECT_EQ(player->ReadAll(), "");
}

TEST_F(DiskTest, AFailureWhileGoingOnIsReportedAndItsPageIsNotMedia) {
  ZV_NEEDS_FILE_LIMIT();
  const Segment segment = PutSegment(0, 600000);
  for (const origin::Answer& answer : {origin::Status(404, "no media"), origin::Status(503, "no media")}) {
    const FileLimit full(kLimit);
    const auto gate = HoldAt(80000);
    const auto player = NewPlayer({segment});
    player->Open(Url(segment), segment);
    ASSERT_EQ(player->ReadTo(60001), "");
    server_.Handle([&](const origin::Request&) { return answer; });
    gate->Open();
    ASSERT_TRUE(player->WaitForCode(answer.status));
    ExpectGivenUp(*player);
    for (int i = 0; i < 20; ++i) {
      int32_t result = 0;
      uint32_t n = 1;
      EXPECT_EQ(player->ReadOnce(1000, &result, &n), "");
      EXPECT_EQ(result, 1);
      EXPECT_EQ(n, 0u);
    }
    server_.ClearScript();
    EXPECT_EQ(player->Play(Url(segment), segment), "");
  }
}

TEST_F(DiskTest, ADiskThatFillsUpWhileASegmentIsCompleteDoesNotTouchIt) {
  ZV_NEEDS_FILE_LIMIT();
  const Segment first = PutSegment(0, 50000);
  const Segment second = PutSegment(1, 600000);
  for (const uint64_t read : {0, 20000, 50000}) {
    const FileLimit full(kLimit);
    const auto gate = HoldAt(60000);
    const auto player = NewPlayer({first, second});
    player->Open(Url(first), first);
    EXPECT_EQ(player->ReadTo(read), "");
    ASSERT_TRUE(gate->AwaitWaiting(1));
    server_.ClearLog();
    gate->Open();
    ExpectGivenUp(*player);
    EXPECT_EQ(player->ReadAll(), "");
    EXPECT_EQ(RequestsOf(first), read == 50000 ? 0 : 1);
    EXPECT_EQ(player->Play(Url(second), second), "");
  }
}

TEST_F(DiskTest, ASegmentThatThePlayerHasClosedIsNotOpenedAgain) {
  ZV_NEEDS_FILE_LIMIT();
  const Segment first = PutSegment(0, 50000);
  const Segment second = PutSegment(1, 600000);
  const FileLimit full(kLimit);
  const auto gate = HoldAt(60000);
  const auto player = NewPlayer({first, second});
  player->Open(Url(first), first);
  EXPECT_EQ(player->ReadTo(20000), "");
  ZV_HttpBaseSegCacheClose(player->Get());
  ASSERT_TRUE(gate->AwaitWaiting(1));
  server_.ClearLog();
  gate->Open();
  ExpectGivenUp(*player);
  EXPECT_EQ(player->Play(Url(second), second), "");
  EXPECT_EQ(RequestsOf(first), 0);
}

TEST_F(DiskTest, AFolderThatDoesNotExistLeavesDirectReading) {
  const std::vector<Segment> segments = PutSegments(3, 300000);
  for (const char* const folder : {"/nowhere/at/all/", ""}) {
    for (const int workers : {1, 5}) {
      SegPlayer player(workers);
      const LocalCacheParam param = {40, *folder == '\0' ? nullptr : folder};
      ZV_HttpBaseSegCacheSetLocalCache(player.Get(), &param, 1);
      player.SetList(3);
      for (const Segment& segment : segments) {
        player.Add(Url(segment), segment);
      }
      for (const Segment& segment : segments) {
        EXPECT_EQ(player.Play(Url(segment), segment), "");
        ZV_HttpBaseSegCacheClose(player.Get());
      }
      ExpectGivenUp(player);
    }
  }
}

// The reader reads as fast as it can while the disk fills up: no byte twice, none lost, whenever it happens.
TEST_F(DiskTest, GivingUpRacesWithTheReader) {
  const std::vector<Segment> segments = PutSegments(4, 160000);
  for (int round = 0; round < 60; round += kIsSanitized ? 4 : 1) {
    const FileLimit full(static_cast<uint64_t>(1000 + round * 2700));
    const auto player = NewPlayer(segments, 1 + round % 5);
    for (const Segment& segment : segments) {
      ASSERT_EQ(player->Open(Url(segment), segment), 0) << round;
      ASSERT_EQ(player->ReadAll(1 + round * 97), "") << round;
      if (round % 2 == 0) {
        ZV_HttpBaseSegCacheClose(player->Get());
      }
    }
  }
}

TEST_F(DiskTest, AFileThatLosesItsBytesIsFetchedAgain) {
  const std::vector<Segment> segments = PutSegments(2, 300000);
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  EXPECT_EQ(player->ReadTo(100000), "");
  ASSERT_TRUE(player->WaitForState(1, kSegmentCached));
  for (const auto& file : std::filesystem::directory_iterator(folder_)) {
    std::filesystem::resize_file(file.path(), 150000);
  }
  EXPECT_EQ(player->ReadAll(), "");
  EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "");
  EXPECT_EQ(RequestsOf(segments[0]), 2);
}

}  // namespace
}  // namespace seg
