// Whole-resource downloads: one connection, no range, nothing to read before the end.
#include "Download.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;

constexpr uint64_t kLength = 4 * kSegLen + 11;

class WholeTest : public FlowTest {
 protected:
  static void AskWhole(Download* download) { ZV_HttpBaseSetNeedDownloadComplete(download->Get(), 0); }
};

TEST_F(WholeTest, AResourceOfAnyKindIsReadWholeOverOneConnectionWithoutARange) {
  struct {
    const char* name;
    uint64_t length;
    size_t chunkBytes;
    bool isPacked;
    bool hasLength;
  } const rows[] = {{"empty", 0, 0, false, true},
                    {"small", 1000, 0, false, true},
                    {"a segment", kSegLen, 0, false, true},
                    {"larger than the ring buffer", 9999999, 0, false, true},
                    {"small, chunked", 1000, 100, false, false},
                    {"larger, chunked", 20000001, 70000, false, false},
                    {"larger, no length", 9999999, 0, false, false},
                    {"packed", 20000000, 0, true, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string target = "/" + std::to_string(&row - rows);
    const origin::Resource media = row.isPacked ? Lines(row.length) : origin::PatternResource(row.length);
    server_.Put(target, media);
    Answer answer;
    answer.chunkBytes = row.chunkBytes;
    answer.noContentLength = !row.hasLength;
    answer.gzip = row.isPacked;
    server_.Handle(target, [answer](const Request&) { return answer; });
    Download download(5);
    AskWhole(&download);
    ZV_HttpBaseSetRange(download.Get(), 5, 7);
    download.Open(server_.Url(target));
    EXPECT_EQ(download.ReadAll(media), Right(row.length));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    EXPECT_THAT(RangesOf(target), ElementsAre(""));
  }
}

TEST_F(WholeTest, NothingIsReadBeforeTheEnd) {
  const origin::Resource media = Put("/media", kLength);
  Answer answer;
  answer.gate = std::make_shared<origin::Gate>();
  answer.gateAt = 500000;
  server_.Script("/media", {answer});
  Download download;
  AskWhole(&download);
  download.Open(server_.Url("/media"));
  ASSERT_TRUE(answer.gate->AwaitWaiting(1));
  ASSERT_TRUE(download.WaitForCode(kOk));
  char buffer[100];
  uint32_t n = 1;
  EXPECT_EQ(ZV_HttpBaseRead(download.Get(), buffer, sizeof buffer, &n), 1);
  EXPECT_EQ(n, 0U);
  answer.gate->Open();
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
}

TEST_F(WholeTest, ALengthBeyondTheLimitFailsAtOnce) {
  for (const uint64_t length : {uint64_t{1} << 30, uint64_t{3000000000}, uint64_t{4300000000}, uint64_t{1} << 50}) {
    SCOPED_TRACE(length);
    server_.ClearLog();
    Put("/media", length);
    Download download(1, 2);
    AskWhole(&download);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadText(), "");
    EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
    EXPECT_EQ(server_.RequestCount(), 1);
  }
}

TEST_F(WholeTest, AnotherAttemptStartsAgainEvenWhenTheLengthChanged) {
  const origin::Resource media = Put("/media", 6000000, 7);
  const std::string other(5000000, 'x');
  Answer cutOther = origin::Status(200, other);
  cutOther.cutAt = 4500000;
  Answer shortOther = origin::Status(200, "x");
  shortOther.contentLength = "2";
  Answer chunked = origin::CutAt(4700000);
  chunked.chunkBytes = 5000;
  for (const Answer& first : {cutOther, shortOther, chunked, origin::CutAt(origin::kBeforeAnswer)}) {
    server_.ClearLog();
    server_.Script("/media", {first, origin::Status(500, "not media"), origin::Status(404, "not media either")});
    Download download(1, 3);
    AskWhole(&download);
    download.Open(server_.Url("/media"));
    if (first.cutAt == origin::kBeforeAnswer) {
      // The error is then the first answer there is.
      EXPECT_EQ(download.ReadText(), "not media");
      continue;
    }
    EXPECT_EQ(download.ReadAll(media), Right(media.length));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk, 500, 404));
    EXPECT_THAT(RangesOf("/media"), ElementsAre("", "", "", ""));
  }
}

TEST_F(WholeTest, AnErrorsBodyIsReadWholeToo) {
  const std::string text(5000000, 'e');
  server_.Handle("/media", [&text](const Request&) { return origin::Status(500, text); });
  Download download;
  AskWhole(&download);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(origin::BytesResource(text)), Right(text.size()));
  EXPECT_THAT(download.Codes(), ElementsAre(500));
}

}  // namespace
}  // namespace flow
