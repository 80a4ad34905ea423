// Servers that answer in their own way: ranges ignored, totals missing or wrong, odd framing, odd headers. Whatever they
// say, the bytes are right or the download fails with a code.
#include <limits>

#include "Download.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr uint64_t kLength = 4 * kSegLen + 11;

// One answer for every request of the target, over each number of connections.
struct AnswerRow {
  const char* name;
  std::function<Answer(const Request&)> answer;
  std::vector<int> requests = {1, 1};  // with one connection, with three; 0: any number
};

Answer With(const std::function<void(Answer*)>& change) {
  Answer answer;
  change(&answer);
  return answer;
}

std::function<Answer(const Request&)> Always(const std::function<void(Answer*)>& change) {
  return [answer = With(change)](const Request&) { return answer; };
}

// A 206 whose Content-Range is made from the range that was asked for; plain requests get a plain answer, ranges behind
// the end their 416.
std::function<Answer(const Request&)> ContentRange(const std::function<std::string(int64_t, int64_t)>& text) {
  return [text](const Request& request) {
    const int64_t last = std::min<int64_t>(request.last < 0 ? kLength - 1 : request.last, kLength - 1);
    Answer answer;
    if (request.first >= 0 && request.first <= last) {
      answer.headers = {{"Content-Range", text(request.first, last)}};
    }
    return answer;
  };
}

std::string RangeText(int64_t first, int64_t last, const std::string& total) {
  return "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" + total;
}

class AnswersTest : public FlowTest {
 protected:
  void CheckRows(const std::vector<AnswerRow>& rows) {
    const origin::Resource media = Put("/media", kLength);
    for (const AnswerRow& row : rows) {
      for (const int connections : {1, 3}) {
        SCOPED_TRACE(std::string(row.name) + ", " + std::to_string(connections) + " connections");
        server_.ClearLog();
        server_.Handle("/media", row.answer);
        Download download(connections);
        download.Open(server_.Url("/media"));
        EXPECT_EQ(download.ReadAll(media), Right(kLength));
        EXPECT_THAT(download.Codes(), ElementsAre(kOk));
        const int expected = row.requests[connections == 1 ? 0 : 1];
        EXPECT_TRUE(expected == 0 || server_.RequestCount() == expected) << server_.RequestCount() << " requests";
      }
    }
  }

  void CheckFails(const std::vector<AnswerRow>& rows, int connections, uint64_t delivered,
                  const std::vector<int32_t>& codes) {
    const origin::Resource media = Put("/media", kLength);
    for (const AnswerRow& row : rows) {
      SCOPED_TRACE(std::string(row.name) + ", " + std::to_string(connections) + " connections");
      server_.Handle("/media", row.answer);
      Download download(connections);
      ZV_HttpBaseSetRange(download.Get(), 0, -1);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media), Right(delivered));
      EXPECT_THAT(download.Codes(), ElementsAreArray(codes));
    }
  }
};

TEST_F(AnswersTest, AServerThatIgnoresRangesIsReadToItsEnd) {
  CheckRows({
      {"200 that says it knows ranges", Always([](Answer* a) { a->ignoreRange = true; }), {1, 2}},
      {"200 that does not", Always([](Answer* a) {
         a->ignoreRange = true;
         a->without = {"Accept-Ranges"};
       })},
      {"200 that refuses ranges", Always([](Answer* a) {
         a->ignoreRange = true;
         a->headers = {{"Accept-Ranges", "none"}};
       })},
      {"200, chunked", Always([](Answer* a) {
         a->ignoreRange = true;
         a->chunkBytes = 3000;
       })},
      {"200, chunked, with trailers that lie", Always([](Answer* a) {
         a->ignoreRange = true;
         a->chunkBytes = 70000;
         a->trailers = {{"Content-Range", "bytes 0-5/6"}, {"Content-Length", "7"}};
       })},
      {"200, no length", Always([](Answer* a) {
         a->ignoreRange = true;
         a->noContentLength = true;
       })},
  });
}

TEST_F(AnswersTest, OddButTrueAnswersAreUnderstood) {
  const std::string star = "*";
  CheckRows({
      {"lower-case names", Always([](Answer* a) { a->lowerCaseNames = true; }), {1, 5}},
      {"bare line feeds", Always([](Answer* a) { a->bareLf = true; }), {1, 5}},
      {"interim answers",
       Always([](Answer* a) {
         a->interim = {100, 103, 103};
       }),
       {1, 5}},
      {"lower case, bare, interim",
       Always([](Answer* a) {
         a->lowerCaseNames = a->bareLf = true;
         a->interim = {103};
       }),
       {1, 5}},
      {"chunked ranges", Always([](Answer* a) { a->chunkBytes = 5000; }), {1, 5}},
      {"ranges ended by closing", Always([](Answer* a) { a->noContentLength = true; }), {1, 5}},
      {"old version", Always([](Answer* a) { a->version = "HTTP/1.0"; }), {1, 5}},
      {"the same length twice",
       [](const Request&) {
         return With([](Answer* a) {
           a->headers = {{"X-A", "b"}, {"X-A", "c"}, {"X-Fold", "a\r\n b\r\n\tc"}, {"X-Empty", ""}};
         });
       },
       {1, 5}},
      {"many headers", Always([](Answer* a) { a->fillerHeaderBytes = 100000; }), {1, 5}},
      {"few bytes at a time", Always([](Answer* a) { a->maxBytes = 60000; }), {1, 0}},
      {"total not told", ContentRange([](int64_t first, int64_t last) { return RangeText(first, last, "*"); }), {1, 2}},
      {"total zero", ContentRange([](int64_t first, int64_t last) { return RangeText(first, last, "0"); }), {1, 2}},
      {"total huge",
       ContentRange([](int64_t first, int64_t last) { return RangeText(first, last, "9999999999999999999"); }),
       {1, 2}},
      {"spaces",
       ContentRange([](int64_t first, int64_t last) {
         return "  " + RangeText(first, last, " " + std::to_string(kLength) + "  ");
       }),
       {1, 5}},
  });
}

TEST_F(AnswersTest, RangesWithoutAPositionAreBelievedWhenRangesAreConfirmed) {
  CheckRows({
      {"no Content-Range", Always([](Answer* a) { a->without = {"Content-Range"}; }), {1, 2}},
      {"rubbish", ContentRange([](int64_t, int64_t) { return "rubbish"; }), {1, 2}},
      {"empty", ContentRange([](int64_t, int64_t) { return ""; }), {1, 2}},
      {"no number", ContentRange([](int64_t, int64_t) { return "bytes a-b/c"; }), {1, 2}},
  });
}

// Nothing says where the bytes belong, so they need not be taken; but then the end is a failure.
TEST_F(AnswersTest, RangesWithoutAnyPromiseEndInAllBytesOrACode) {
  const origin::Resource media = Put("/media", kLength);
  server_.Handle("/media", Always([](Answer* a) { a->without = {"Content-Range", "Accept-Ranges"}; }));
  Download download(3);
  download.Open(server_.Url("/media"));
  const std::string got = download.ReadAll(media);
  EXPECT_TRUE(got == Right(kLength) ? download.Count(kFailed) == 0 : download.Count(kFailed) == 1) << got;
  EXPECT_THAT(got, testing::HasSubstr(" right bytes, end"));
}

TEST_F(AnswersTest, AResourceOfWholeSegmentsWithoutATotalEndsWhereItEnds) {
  for (const uint64_t length : {static_cast<uint64_t>(1000), static_cast<uint64_t>(kSegLen), 2 * uint64_t{kSegLen}}) {
    SCOPED_TRACE(length);
    const std::string target = "/" + std::to_string(length);
    const origin::Resource media = Put(target, length);
    server_.Handle(target, [length](const Request& request) {
      const int64_t end = static_cast<int64_t>(length) - 1;
      const int64_t last = request.last < 0 ? end : std::min(request.last, end);
      return request.first > end ? Answer{} : With([&](Answer* a) {
        a->headers = {{"Content-Range", RangeText(request.first, last, "*")}};
      });
    });
    Download download(3);
    download.Open(server_.Url(target));
    EXPECT_EQ(download.ReadAll(media), Right(length));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  }
}

TEST_F(AnswersTest, AnAnswerThatIsNotWhatWasAskedForFailsWithoutAByte) {
  const std::vector<AnswerRow> rows = {
      {"starts later", Always([](Answer* a) { a->shift = 1; })},
      {"starts much later", Always([](Answer* a) { a->first = 300000; })},
      {"ends behind the total",
       ContentRange([](int64_t first, int64_t last) { return RangeText(first, last, std::to_string(last)); })},
      {"two different ranges",
       [](const Request&) {
         return With([](Answer* a) {
           a->headers = {{"Content-Range", RangeText(0, 99, "1000")}, {"Content-Range", RangeText(0, 99, "2000")}};
         });
       }},
      {"two different lengths",
       [](const Request&) {
         return With([](Answer* a) { a->headers = {{"Content-Length", "500"}, {"Content-Length", "600"}}; });
       }},
  };
  CheckFails(rows, 1, 0, {kFailed});
  CheckFails(rows, 3, 0, {kFailed});
}

TEST_F(AnswersTest, ALaterRangeThatIsNotWhatWasAskedForEndsTheDownloadBeforeIt) {
  const auto later = [](const std::function<void(Answer*)>& change) {
    return [change](const Request& request) { return request.first == kSegLen ? With(change) : Answer{}; };
  };
  CheckFails(
      {
          {"starts later", later([](Answer* a) { a->shift = 1; })},
          {"starts earlier", later([](Answer* a) { a->shift = -1; })},
          {"another total", later([](Answer* a) {
             a->headers = {{"Content-Range", RangeText(kSegLen, 2 * kSegLen - 1, std::to_string(kLength + 1))}};
           })},
          {"everything, of another length", later([](Answer* a) { *a = origin::Status(200, "all there is"); })},
          {"two different ranges", later([](Answer* a) {
             a->headers = {{"Content-Range", RangeText(kSegLen, 2 * kSegLen - 1, "*")},
                           {"Content-Range", RangeText(0, kSegLen - 1, "*")}};
           })},
      },
      3, kSegLen, {kOk, kFailed});
}

TEST_F(AnswersTest, ALaterRangeAnsweredWithEverythingIsCutToIt) {
  const origin::Resource media = Put("/media", kLength);
  server_.Handle("/media", [](const Request& request) {
    return With([&](Answer* a) { a->ignoreRange = request.first == kSegLen || request.first == 3 * kSegLen; });
  });
  Download download(3);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  EXPECT_EQ(server_.RequestCount(), 5);
}

// The caller's own range goes to the caller as the server answers it.
TEST_F(AnswersTest, AServerThatIgnoresTheCallersRangeIsDeliveredWhole) {
  const origin::Resource media = Put("/media", kLength);
  for (const int connections : {1, 3}) {
    for (const bool tellsRanges : {true, false}) {
      for (const auto& [start, end] : {std::pair<int64_t, int64_t>{1000, 1999}, {kSegLen, -1}, {-1, 10}}) {
        SCOPED_TRACE(std::to_string(start) + "-" + std::to_string(end));
        server_.ClearLog();
        server_.Handle("/media", Always([tellsRanges](Answer* a) {
                         a->ignoreRange = true;
                         a->without =
                             tellsRanges ? std::vector<std::string>{} : std::vector<std::string>{"Accept-Ranges"};
                       }));
        Download download(connections);
        ZV_HttpBaseSetRange(download.Get(), start, end);
        download.Open(server_.Url("/media"));
        EXPECT_EQ(download.ReadAll(media), Right(kLength));
        EXPECT_THAT(download.Codes(), ElementsAre(kOk));
        EXPECT_EQ(server_.RequestCount(), 1);
      }
    }
  }
}

}  // namespace
}  // namespace flow
