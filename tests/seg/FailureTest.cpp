// Servers that fail, for the segment that is read and for those ahead, with one worker and several. Right bytes or the
// documented code; no hang; nothing left.
#include <chrono>
#include <thread>

#include "SegPlayer.h"

namespace seg {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class FailureTest : public SegTest {
 protected:
  // The first times requests of that segment get the answer, then it is served as it should be.
  void Fail(const Segment& segment, const origin::Answer& answer, int times = 1000000) {
    server_.Handle(segment.target, [=, count = std::make_shared<int>(0)](const origin::Request&) {
      return ++*count <= times ? answer : origin::Answer{};
    });
  }
  // As a player does: a segment whose transfer failed is opened again. "" when it was read.
  std::string Insist(SegPlayer* player, const Segment& segment) {
    for (int tries = 0; tries < 10; ++tries) {
      player->ForgetCodes();
      EXPECT_EQ(player->Open(Url(segment), segment), 0);
      int32_t result = 1;
      std::string wrong;
      const auto isOver = [&] {
        wrong = player->ReadOnce(50000, &result);
        return !wrong.empty() || result != 1 || HasFailed(*player);
      };
      if (!WaitUntil(isOver, 30000)) {
        return segment.target + " hangs";
      }
      if (!wrong.empty() || result == 0) {
        return wrong.empty() ? player->Check() : wrong;
      }
    }
    return segment.target + " always fails";
  }
  static bool HasFailed(const SegPlayer& player) {
    const std::vector<int32_t> codes = player.Codes();
    return std::any_of(codes.begin(), codes.end(),
                       [](int32_t code) { return code != kOk && code != ZV_HTTP_CODE_REDIRECTED; });
  }
};

origin::Answer Lying(const std::string& length) {
  origin::Answer answer;
  answer.contentLength = length;
  return answer;
}

origin::Answer With(const std::function<void(origin::Answer*)>& change) {
  origin::Answer answer;
  change(&answer);
  return answer;
}

TEST_F(FailureTest, WhatPassesIsReadAllTheSame) {
  const struct {
    const char* name;
    origin::Answer answer;
    int times;
  } kRows[] = {
      {"cut at once", origin::CutAt(0), 4},
      {"cut in the middle", origin::CutAt(100000), 4},
      {"reset before the answer", origin::ResetAt(origin::kBeforeAnswer), 7},
      {"410", origin::Status(410, "gone for now"), 1},
      {"302", origin::Redirect("/s3-moved"), 1000},
      {"length too large", Lying("400000"), 5},
      {"without a length", With([](origin::Answer* a) { a->noContentLength = true; }), 1000},
      {"chunked and cut", With([](origin::Answer* a) {
         a->chunkBytes = 30000;
         a->noLastChunk = true;
       }),
       4},
      {"gzip", With([](origin::Answer* a) { a->gzip = true; }), 1000},
      {"drip", With([](origin::Answer* a) { a->bytesPerSecond = 1000000; }), 1000},
  };
  const std::vector<Segment> segments = PutSegments(6, 200000);
  fault_platform::SetTimeScale(5 * kTimeScale);
  server_.Put("/s3-moved", origin::PatternResource(200000, segments[3].seed));
  for (const auto& row : kRows) {
    for (const auto& [workers, kind] : {std::pair(1, Kind::kOnDemand), {2, Kind::kLive}, {5, Kind::kOnDemand}}) {
      {
        SCOPED_TRACE(std::string(row.name) + ", " + std::to_string(workers) + " workers");
        Fail(segments[0], row.answer, row.times);
        Fail(segments[3], row.answer, row.times);
        if (!row.answer.location.empty()) {
          server_.Handle(segments[0].target, nullptr);
        }
        const auto player = NewPlayer(segments, workers, kind);
        for (const Segment& segment : segments) {
          ASSERT_EQ(Insist(player.get(), segment), "");
        }
      }
    }
  }
}

TEST_F(FailureTest, ARefusedSegmentIsReportedWhenItIsReadAndTheOthersGoOn) {
  const std::vector<Segment> segments = PutSegments(6, 100000);
  for (const int status : {400, 403, 404, 416, 499}) {
    for (const int workers : {1, 2, 5}) {
      SCOPED_TRACE(status);
      Fail(segments[0], origin::Status(status, "an error page, no media"));
      Fail(segments[3], origin::Status(status, "an error page, no media"));
      const auto player = NewPlayer(segments, workers);
      player->Open(Url(segments[0]), segments[0]);
      ASSERT_TRUE(player->WaitForCode(status));
      ASSERT_TRUE(player->WaitForState(5, kSegmentCached));
      ASSERT_TRUE(player->WaitForState(3, kSegmentFailed));
      EXPECT_THAT(player->Codes(), ElementsAre(status)) << "nothing of the segments ahead";
      EXPECT_EQ(player->StateOf(0), kSegmentFailed);
      for (const int at : {1, 2, 4, 5}) {
        EXPECT_EQ(player->Play(Url(segments[static_cast<size_t>(at)]), segments[static_cast<size_t>(at)]), "");
      }
      player->ForgetCodes();
      player->Open(Url(segments[3]), segments[3]);
      EXPECT_THAT(player->Codes(), ElementsAre(status));
      int32_t result = 0;
      EXPECT_EQ(player->ReadOnce(1000, &result), "");
      EXPECT_EQ(result, 1);
      EXPECT_EQ(RequestsOf(segments[3]), 1);
      EXPECT_EQ(player->Check(), "");
      server_.ClearLog();
    }
  }
}

TEST_F(FailureTest, AServersErrorAheadStopsFetchingAndIsReportedByEveryUncachedOpen) {
  const std::vector<Segment> segments = PutSegments(6, 100000);
  for (const int workers : {1, 2, 5}) {
    SCOPED_TRACE(workers);
    server_.ClearLog();
    const auto gate = std::make_shared<origin::Gate>();
    for (const int at : {2, 3, 4, 5}) {
      origin::Answer late = at == 2 ? origin::Status(503) : origin::Answer{};
      late.gate = gate;
      Fail(segments[static_cast<size_t>(at)], late);
    }
    const auto player = NewPlayer(segments, workers);
    EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
    ASSERT_TRUE(player->WaitForState(1, kSegmentCached));
    gate->Open();
    ASSERT_TRUE(player->WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->lastError == 503; }));
    EXPECT_THAT(player->Codes(), ElementsAre(kOk));
    ASSERT_TRUE(player->WaitUntilResting());
    EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "") << "what was cached is read";
    for (int round = 0; round < 2; ++round) {
      for (const int at : {2, 5}) {
        if (player->StateOf(at) == kSegmentCached) {
          continue;  // it was faster than the failure
        }
        player->ForgetCodes();
        EXPECT_EQ(player->Open(Url(segments[static_cast<size_t>(at)]), segments[static_cast<size_t>(at)]), 0);
        EXPECT_THAT(player->Codes(), ElementsAre(503));
        int32_t result = 0;
        EXPECT_EQ(player->ReadOnce(1000, &result), "");
        EXPECT_EQ(result, 1);
      }
    }
    EXPECT_EQ(RequestsOf(segments[2]), 1);
    EXPECT_EQ(player->Check(), "");
    ZV_HttpBaseSegCacheCloseLocalCache(player->Get());
    server_.ClearScript();
    EXPECT_EQ(player->Play(Url(segments[2]), segments[2]), "") << "the way out";
  }
}

TEST_F(FailureTest, AfterAFailureOfTheReadSegmentAnyUncachedOpenStartsAnew) {
  const std::vector<Segment> segments = PutSegments(30, 100000, 10000);
  const std::pair<origin::Answer, int32_t> kRows[] = {
      {origin::Status(503, "busy"), 503}, {origin::Status(410), kUnreachable}, {origin::ResetAt(0), kFailed}};
  for (const auto& [answer, code] : kRows) {
    for (const int next : {0, 20}) {
      for (const int workers : {1, 3}) {
        SCOPED_TRACE(std::to_string(code) + " then " + std::to_string(next));
        Fail(segments[0], answer);
        const auto player = NewPlayer(segments, workers);
        player->Open(Url(segments[0]), segments[0]);
        ASSERT_TRUE(player->WaitForCode(code));
        int32_t result = 0;
        EXPECT_EQ(player->ReadOnce(1000, &result), "");
        EXPECT_EQ(result, 1);
        server_.ClearScript();
        const Segment& segment = segments[static_cast<size_t>(next)];
        EXPECT_EQ(player->Play(Url(segment), segment), "");
        EXPECT_EQ(player->Check(), "");
      }
    }
  }
}

TEST_F(FailureTest, AfterAFailureAheadFourCachedOpensRestAndTheFifthFetchesAgain) {
  const std::vector<Segment> segments = PutSegments(6, 100000);
  Fail(segments[3], origin::ResetAt(origin::kBeforeAnswer));
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(player->WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->lastError == kFailed; }, 20000));
  ASSERT_TRUE(player->WaitUntilResting());
  server_.ClearScript();
  const int before = server_.RequestCount();
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "");
  }
  EXPECT_EQ(server_.RequestCount(), before);
  EXPECT_EQ(log_.Count("transmission error and no need to retry"), 4);
  EXPECT_EQ(player->Play(Url(segments[2]), segments[2]), "");
  EXPECT_TRUE(player->WaitForState(5, kSegmentCached));
}

TEST_F(FailureTest, AFailureAheadSparesTheSegmentThatIsRead) {
  const std::vector<Segment> segments = PutSegments(4, 300000);
  const auto gate = std::make_shared<origin::Gate>();
  origin::Answer half;
  half.gate = gate;
  half.gateAt = 150000;
  Fail(segments[1], half);
  const auto failureGate = std::make_shared<origin::Gate>();
  origin::Answer refused = origin::Status(503);
  refused.gate = failureGate;  // a failure before the Open would be the Open's answer
  Fail(segments[2], refused);
  const auto player = NewPlayer(segments, 2);
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
  EXPECT_EQ(player->Open(Url(segments[1]), segments[1]), 0);
  failureGate->Open();
  ASSERT_TRUE(player->WaitFor([](HttpBaseSegCache* cache) ZV_UNCHECKED { return cache->lastError == 503; }));
  EXPECT_EQ(player->ReadTo(100000), "");
  gate->Open();
  EXPECT_EQ(player->ReadAll(), "");
  EXPECT_EQ(RequestsOf(segments[1]), 1);
}

TEST_F(FailureTest, ARedirectOfTheReadSegmentIsReportedAndNoFailure) {
  const std::vector<Segment> segments = PutSegments(4, 100000);
  server_.Handle([](const origin::Request& request) {
    return request.target.rfind("/from", 0) == 0 ? origin::Redirect("/s" + request.target.substr(5)) : origin::Answer{};
  });
  SegPlayer player(2);
  player.UseFiles(Prefix());
  player.SetList(4);
  for (int i = 0; i < 4; ++i) {
    player.Add(server_.Url("/from" + std::to_string(i)), segments[static_cast<size_t>(i)]);
  }
  EXPECT_EQ(player.Play(server_.Url("/from0"), segments[0]), "");
  EXPECT_THAT(player.Codes(), ElementsAre(ZV_HTTP_CODE_REDIRECTED, kOk));
  ASSERT_TRUE(player.WaitForState(3, kSegmentCached));
  EXPECT_EQ(player.Play(server_.Url("/from3"), segments[3]), "");
  EXPECT_THAT(player.Codes(), ElementsAre(ZV_HTTP_CODE_REDIRECTED, kOk, kOk));
}

TEST_F(FailureTest, ASegmentThatIsFetchedAgainIsReadOnWhereItWas) {
  const std::vector<Segment> segments = PutSegments(3, 400000);
  for (const Kind kind : {Kind::kOnDemand, Kind::kLive}) {
    const auto gate = std::make_shared<origin::Gate>();
    origin::Answer half;
    half.gate = gate;
    half.gateAt = 200000;
    Fail(segments[0], half);
    const auto player = NewPlayer(segments, 1, kind);
    player->Open(Url(segments[0]), segments[0]);
    EXPECT_EQ(player->ReadTo(150001), "");
    for (int round = 0; round < 3; ++round) {
      ZV_HttpBaseSegCacheAbortCurrentCaching(player->Get());
      ASSERT_TRUE(player->WaitForState(0, kSegmentWaiting));
      EXPECT_TRUE(WaitUntil([this] { return FilesInFolder() == 0; }));
      int32_t result = 0;
      EXPECT_EQ(player->ReadOnce(1000, &result), "");
      EXPECT_EQ(result, 1);
      ZV_HttpBaseSegCacheResumeCaching(player->Get());
      ASSERT_EQ(player->ReadTo(player->Position() + 10000), "");
    }
    gate->Open();
    EXPECT_EQ(player->ReadAll(), "");
    EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "") << "the next Open begins at the first byte";
  }
}

// The same URL later holds less than the reader has had: bytes of two resources must not be mixed.
TEST_F(FailureTest, ASegmentThatHasBecomeShorterThanWhatWasReadIsAFailure) {
  const std::vector<Segment> segments = PutSegments(1, 400000);
  Fail(segments[0], origin::StallAt(300000), 1);
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  EXPECT_EQ(player->ReadTo(250000), "");
  ZV_HttpBaseSegCacheAbortCurrentCaching(player->Get());
  ASSERT_TRUE(player->WaitForState(0, kSegmentWaiting));
  server_.Put("/s0", origin::PatternResource(200000, 1));
  player->ForgetCodes();
  ZV_HttpBaseSegCacheResumeCaching(player->Get());
  EXPECT_TRUE(player->WaitForCode(kFailed));
  int32_t result = 0;
  EXPECT_EQ(player->ReadOnce(1000, &result), "");
  EXPECT_EQ(result, 1);
}

TEST_F(FailureTest, AnAnswerThatWasForTheDroppedDownloadDoesNotCountForTheNew) {
  // Longer than the cache time: nothing is fetched ahead, where an error would count.
  const std::vector<Segment> segments = PutSegments(40, 50000, 50000);
  const auto gate = std::make_shared<origin::Gate>();
  const int codes[] = {503, 404, 410};
  for (const int status : codes) {
    SCOPED_TRACE(status);
    origin::Answer late = origin::Status(status);
    late.gate = gate;
    for (const Segment& segment : segments) {
      Fail(segment, late, 1);
    }
    gate->Close();
    const auto player = NewPlayer(segments, 1);
    player->Open(Url(segments[0]), segments[0]);
    for (size_t at = 5; at < segments.size(); at += 5) {
      ASSERT_TRUE(gate->AwaitWaiting(1));
      // The answer and the Open race: whichever is first, the new segment is answered for itself.
      std::thread opener([&gate] { gate->ReleaseWaiting(); });
      server_.Handle(segments[at].target, nullptr);
      player->ForgetCodes();
      player->Open(Url(segments[at]), segments[at]);
      opener.join();
      EXPECT_EQ(player->ReadAll(), "");
      EXPECT_TRUE(WaitUntil([&] { return player->Count(kOk) == 1; }));
      player->Open(Url(segments[at - 4]), segments[at - 4]);
    }
  }
}

TEST_F(FailureTest, InDirectModeNoWorkersAnswerIsHeard) {
  const std::vector<Segment> segments = PutSegments(6, 100000);
  const auto gate = std::make_shared<origin::Gate>();
  const auto player = NewPlayer(segments, 5);
  origin::Answer late = origin::Status(503);
  late.gate = gate;
  for (const int at : {2, 3, 4, 5}) {
    Fail(segments[static_cast<size_t>(at)], late);
  }
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
  ASSERT_TRUE(gate->AwaitWaiting(4));
  ZV_HttpBaseSegCacheCloseLocalCache(player->Get());
  player->ForgetCodes();
  EXPECT_EQ(FilesInFolder(), 0);
  server_.ClearScript();
  gate->Open();
  EXPECT_EQ(player->Play(Url(segments[1]), segments[1]), "");
  EXPECT_THAT(player->Codes(), ElementsAre(kOk));
  EXPECT_EQ(ZV_HttpBaseSegCacheClose(player->Get()), 0);
  ZV_HttpBaseSegCacheCloseLocalCache(player->Get());
}

}  // namespace
}  // namespace seg
