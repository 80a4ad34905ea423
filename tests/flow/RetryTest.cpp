// Attempts after a failure: how many, where they begin, what they may bring.
#include "Download.h"
#include "ZVBase.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;

constexpr uint64_t kLength = 4 * kSegLen + 11;

// A port nobody listens on: that of a server that is gone.
std::string DeadUrl() {
  std::string url;
  {
    const origin::Server server;
    url = server.Url("/media");
  }
  return url;
}

using RetryTest = FlowTest;

TEST_F(RetryTest, ATransferGoesOnAtTheFirstMissingByte) {
  struct {
    const char* name;
    Answer flaw;
  } const rows[] = {{"closed", origin::CutAt(70000)}, {"reset", origin::ResetAt(70000)}};
  const origin::Resource media = Put("/media", kLength);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server_.ClearLog();
    server_.Script("/media", {row.flaw, row.flaw});
    Download download(1, 2);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media), Right(kLength));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    EXPECT_THAT(RangesOf("/media"), testing::UnorderedElementsAre("", "70000-819210", "140000-819210"));
  }
}

TEST_F(RetryTest, EveryRangeOfSeveralConnectionsGoesOnWhereItStopped) {
  const origin::Resource media = Put("/media", kLength);
  server_.Handle("/media", [](const Request& request) {
    return request.first % kSegLen == 0 ? origin::CutAt(5000 + request.first / 1000) : Answer{};
  });
  Download download(3, 1);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  EXPECT_THAT(RangesOf("/media"), testing::IsSupersetOf({"5000-204799", "210004-409599", "415009-614399"}));
}

TEST_F(RetryTest, AResumedRequestAnsweredWithEverythingSkipsWhatIsThere) {
  const origin::Resource media = Put("/media", kLength);
  for (const int connections : {1, 3}) {
    server_.Script("/media", {origin::CutAt(70000)});
    server_.Handle("/media", [](const Request& request) {
      Answer answer;
      answer.ignoreRange = request.first == 70000;
      return answer;
    });
    Download download(connections, 1);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media), Right(kLength));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  }
}

TEST_F(RetryTest, AResumedRequestAnsweredFromElsewhereIsAFailedAttempt) {
  const origin::Resource media = Put("/media", kLength);
  Answer shifted;
  shifted.shift = 100;
  server_.Script("/media", {origin::CutAt(70000), shifted, Answer{}});
  Download download(1, 2);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  EXPECT_EQ(server_.RequestCount(), 3);
}

// The end of an unframed answer is the end of the connection, so only the range tells that bytes are missing.
TEST_F(RetryTest, ARangeThatEndsEarlyWithoutAnErrorIsResumed) {
  const origin::Resource media = Put("/media", kLength);
  Answer early = origin::CutAt(1000);
  early.noContentLength = true;
  server_.Script("/media", {early});
  Download download(3, 1);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
}

TEST_F(RetryTest, ARangeWithAllItsBytesIsDoneHoweverItsConnectionEnds) {
  const origin::Resource media = Put("/media", kLength);
  const auto flaws = {origin::ResetAt(1000), origin::StallAt(1000)};
  for (Answer flaw : flaws) {
    server_.ClearLog();
    flaw.chunkBytes = 100;
    flaw.noLastChunk = true;
    server_.Script("/media", {flaw});
    Download download(1, 2);
    ZV_HttpBaseSetRange(download.Get(), 1000, 1999);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media, 1000), Right(1000));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    EXPECT_EQ(server_.RequestCount(), 1);
  }
}

TEST_F(RetryTest, TheLastBytesThatWereCutAreResumedByWhatIsMissing) {
  const origin::Resource media = Put("/media", 1000);
  struct {
    int64_t last;
    int64_t cut;
    uint64_t count;
  } const rows[] = {{499, 0, 499}, {499, 100, 499}, {1000, 400, 1000}, {5000, 400, 1000}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.last) + ", cut at " + std::to_string(row.cut));
    server_.ClearLog();
    server_.Script("/media", {origin::CutAt(row.cut)});
    Download download(1, 1);
    ZV_HttpBaseSetRange(download.Get(), -1, row.last);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media, 1000 - row.count), Right(row.count));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    EXPECT_EQ(server_.RequestCount(), 2);
  }
}

TEST_F(RetryTest, AnAttemptThatBroughtNothingLeavesNoTrace) {
  const origin::Resource media = Put("/media", kLength);
  Answer ignoring = origin::CutAt(0);
  ignoring.ignoreRange = true;
  Answer packed = origin::CutAt(0);
  packed.gzip = true;
  for (const Answer& first : {ignoring, packed}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(std::string(first.gzip ? "packed, " : "ignores the range, ") + std::to_string(connections));
      server_.Script("/media", {first});
      Download download(connections, 1);
      ZV_HttpBaseSetRange(download.Get(), 1000, kSegLen);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media, 1000), Right(kSegLen - 999));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    }
  }
}

TEST_F(RetryTest, ATransferIsTriedOnceMoreThanItsRetries) {
  Put("/media", kLength);
  for (const int connections : {1, 3}) {
    for (const int retries : {0, 1, 2, 5}) {
      SCOPED_TRACE(retries);
      server_.ClearLog();
      server_.Handle("/media", [](const Request&) { return origin::CutAt(origin::kBeforeAnswer); });
      Download download(connections, retries);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadText(), "");
      EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
      EXPECT_EQ(server_.RequestCount(), retries + 1);
    }
  }
}

TEST_F(RetryTest, NoConnectionReports22222) {
  const std::string url = DeadUrl();
  for (const int connections : {1, 5}) {
    Download download(connections, 2);
    download.Open(url);
    EXPECT_EQ(download.ReadText(), "");
    EXPECT_THAT(download.Codes(), ElementsAre(kUnreachable));
  }
}

TEST_F(RetryTest, TheRetryCallbackIsAskedAsLongAsItWantsMore) {
  struct {
    std::vector<int32_t> answers;  // the last one repeats
    int questions;
    int requests;
  } const rows[] = {{{0}, 1, 3}, {{2999}, 1, 3}, {{-1}, 1, 3}, {{3000, 0}, 2, 4}, {{9999, 3000, 2147483647, 1}, 4, 6}};
  Put("/media", kLength);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.answers[0]);
    server_.ClearLog();
    server_.Handle("/media", [](const Request&) { return origin::CutAt(origin::kBeforeAnswer); });
    Download download(1, 1);
    download.onRetry = [&row](int n) {
      return row.answers[std::min<size_t>(static_cast<size_t>(n), row.answers.size()) - 1];
    };
    download.AskAboutRetries();
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadText(), "");
    EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
    EXPECT_EQ(download.RetryQuestions(), row.questions);
    EXPECT_EQ(server_.RequestCount(), row.requests);
  }
}

// Each connection has its own retries: what one was answered must not end another.
TEST_F(RetryTest, TheRetryCallbackIsAskedForEachTransfer) {
  const origin::Resource media = Put("/media", kLength);
  server_.Handle("/media", [](const Request& request) {
    const bool fails = request.first > 0 && request.forTarget <= 9;
    return fails ? origin::CutAt(0) : Answer{};
  });
  Download download(3, 0);
  download.onRetry = [](int) { return 3000; };
  download.AskAboutRetries();
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  EXPECT_EQ(download.RetryQuestions(), 8);
}

TEST_F(RetryTest, NegativeRetriesGoOnUntilClose) {
  Put("/media", kLength);
  for (const int32_t whole : {-1, 0}) {
    server_.ClearLog();
    server_.Handle("/media", [](const Request&) { return origin::CutAt(origin::kBeforeAnswer); });
    Download download(1, -1);
    ZV_HttpBaseSetNeedDownloadComplete(download.Get(), whole);
    download.Open(server_.Url("/media"));
    EXPECT_TRUE(server_.WaitForRequests(12));
    download.Close();
    EXPECT_TRUE(download.Codes().empty());
  }
}

TEST_F(RetryTest, ThePauseBetweenAttemptsIsTheDelayRoundedUp) {
  struct {
    int32_t delay;
    int64_t pauseMs;
  } const rows[] = {{0, 100}, {99, 100}, {100, 200}, {3000, 3100}, {-1, 3100}, {2147483647, 3100}};
  Put("/media", kLength);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.delay);
    server_.Handle("/media", [](const Request&) { return origin::CutAt(origin::kBeforeAnswer); });
    Download download(1, 1);
    ZV_HttpBaseSetRetryDelay(download.Get(), row.delay);
    const int64_t start = ZV_ChronoGetTick();
    download.Open(server_.Url("/media"));
    download.ReadText();
    EXPECT_GE(ZV_ChronoGetTick() - start, row.pauseMs - kTimeScale);
    EXPECT_LT(ZV_ChronoGetTick() - start, row.pauseMs + 1000 * kTimeScale);
  }
}

}  // namespace
}  // namespace flow
