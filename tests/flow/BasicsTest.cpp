// Which bytes are asked for and delivered when nothing goes wrong: lengths, connections, the caller's ranges.
#include <algorithm>

#include "Download.h"

namespace flow {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

std::string RangeText(uint64_t first, uint64_t last) {
  return std::to_string(first) + "-" + std::to_string(last);
}

// What several connections ask for from first to the end of length bytes.
std::vector<std::string> SegmentRanges(uint64_t first, uint64_t length, uint64_t segLen = kSegLen) {
  std::vector<std::string> ranges = {RangeText(first, first + segLen - 1)};
  for (uint64_t start = first + segLen; start < length; start += segLen) {
    ranges.push_back(RangeText(start, std::min(start + segLen, length) - 1));
  }
  return ranges;
}

using BasicsTest = FlowTest;

TEST_F(BasicsTest, EveryLengthArrivesOverAnyNumberOfConnectionsInExactRanges) {
  for (const uint64_t length : {1, kSegLen - 1, kSegLen, kSegLen + 1, 2 * kSegLen, 3 * kSegLen, 3 * kSegLen + 777}) {
    for (const int connections : {1, 2, 3, 5}) {
      SCOPED_TRACE(std::to_string(length) + " bytes, " + std::to_string(connections) + " connections");
      const std::string target = "/" + std::to_string(length) + "/" + std::to_string(connections);
      const origin::Resource media = Put(target, length);
      Download download(connections);
      download.Open(server_.Url(target));
      EXPECT_EQ(download.ReadAll(media), Right(length));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
      EXPECT_EQ(ZV_HttpBaseGetContentLength(download.Get()), static_cast<int64_t>(length));
      const std::vector<std::string> one = {""};
      EXPECT_THAT(RangesOf(target), ElementsAreArray(connections == 1 ? one : SegmentRanges(0, length)));
    }
  }
}

TEST_F(BasicsTest, AnEmptyResourceReports200AndEnds) {
  const origin::Resource media = Put("/empty", 0);
  Download download;
  download.Open(server_.Url("/empty"));
  EXPECT_EQ(download.ReadAll(media), Right(0));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
}

TEST_F(BasicsTest, AsManyRangesAreUnderWayAsThereAreConnections) {
  const origin::Resource media = Put("/media", 20 * kSegLen + 5);
  for (const int connections : {2, 3, 5}) {
    SCOPED_TRACE(connections);
    server_.ClearLog();
    auto gate = std::make_shared<origin::Gate>();
    server_.Handle("/media", [gate](const origin::Request& request) {
      origin::Answer answer;
      answer.gate = gate;
      answer.gateAt = request.first == 0 ? 1 : origin::kBeforeAnswer;  // the first answer's head decides the rest
      return answer;
    });
    Download download(connections);
    download.Open(server_.Url("/media"));
    EXPECT_TRUE(gate->AwaitWaiting(connections));
    EXPECT_FALSE(gate->AwaitWaiting(connections + 1, 20));
    gate->Open();
    EXPECT_EQ(download.ReadAll(media), Right(media.length));
  }
}

TEST_F(BasicsTest, TheSegmentLengthIsThatOfTheRangesWithinItsBounds) {
  struct {
    int32_t asked;
    int32_t used;
  } const rows[] = {{100, 204800}, {204800, 204800}, {300001, 300001}, {716800, 716800}, {716801, 716800}};
  const origin::Resource media = Put("/media", 1500000);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.asked);
    server_.ClearLog();
    Download download(3);
    EXPECT_EQ(ZV_HttpBaseSetDownloadSegLen(download.Get(), row.asked), 0);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media), Right(media.length));
    EXPECT_THAT(RangesOf("/media"), ElementsAreArray(SegmentRanges(0, media.length, row.used)));
  }
}

struct RangeRow {
  int64_t start;
  int64_t end;
  std::vector<std::string> asked;
  uint64_t first;
  uint64_t count;
};

class RangeTest : public FlowTest {
 protected:
  void CheckRows(int connections, const std::vector<RangeRow>& rows) {
    const origin::Resource media = Put("/media", 1000000);
    for (const RangeRow& row : rows) {
      SCOPED_TRACE("range " + std::to_string(row.start) + " to " + std::to_string(row.end));
      server_.ClearLog();
      Download download(connections);
      ZV_HttpBaseSetRange(download.Get(), row.start, row.end);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media, row.first), Right(row.count));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
      EXPECT_THAT(RangesOf("/media"), ElementsAreArray(row.asked));
    }
  }
};

TEST_F(RangeTest, TheCallersRangeGoesOutInOneRequestOverOneConnection) {
  CheckRows(1, {
                   {-1, -1, {""}, 0, 1000000},
                   {kMin, -7, {""}, 0, 1000000},
                   {100, 50, {""}, 0, 1000000},
                   {0, -1, {"0-"}, 0, 1000000},
                   {0, 0, {"0-0"}, 0, 1},
                   {1000, 1999, {"1000-1999"}, 1000, 1000},
                   {999999, -1, {"999999-"}, 999999, 1},
                   {999999, 5000000, {"999999-5000000"}, 999999, 1},
                   {500, kMax, {"500-"}, 500, 999500},
                   {-1, 499, {"-499"}, 999501, 499},
                   {-1, kMax, {""}, 0, 1000000},
               });
}

TEST_F(RangeTest, TheCallersRangeIsCutIntoSegmentsForSeveralConnections) {
  CheckRows(3, {
                   {1000, 1999, {"1000-1999"}, 1000, 1000},
                   {0, 204799, {"0-204799"}, 0, 204800},
                   {0, 204800, {"0-204799", "204800-204800"}, 0, 204801},
                   {100000, 399999, {"100000-304799", "304800-399999"}, 100000, 300000},
                   {700000, -1, {"700000-904799", "904800-999999"}, 700000, 300000},
                   {700000, 5000000, {"700000-904799", "904800-999999"}, 700000, 300000},
                   {999999, -1, {"999999-1204798"}, 999999, 1},
                   {100, 50, SegmentRanges(0, 1000000), 0, 1000000},
                   {0, kMax, SegmentRanges(0, 1000000), 0, 1000000},
                   {-1, 499, {"-499"}, 999501, 499},
               });
}

TEST_F(RangeTest, ARangeBehindTheEndReports416AndDeliversTheErrorsBody) {
  Put("/media", 1000000);
  const std::pair<int64_t, int64_t> rows[] = {{1000000, -1}, {1000000, 1000001}, {kMax, -1},
                                              {kMax, kMax},  {kMax - 10, kMax},  {-1, 0}};
  for (const auto& [start, end] : rows) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(std::to_string(start) + " to " + std::to_string(end));
      Download download(connections);
      ZV_HttpBaseSetRange(download.Get(), start, end);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadText(), "416 Range Not Satisfiable\n");
      EXPECT_THAT(download.Codes(), ElementsAre(416));
    }
  }
}

// The end that the caller named is the largest there is; nothing may be added to it.
TEST_F(RangeTest, AHugeEndWithoutAKnownTotalIsDelivered) {
  const origin::Resource media = Put("/media", 500000);
  for (const int64_t start : {0, 5}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(std::to_string(start) + ", " + std::to_string(connections) + " connections");
      server_.Handle("/media", [](const origin::Request& request) {
        origin::Answer answer;
        if (request.first >= 500000) {
          return answer;
        }
        const int64_t last = request.last < 0 ? 499999 : std::min<int64_t>(request.last, 499999);
        answer.headers = {
            {"Content-Range",
             "bytes " + RangeText(static_cast<uint64_t>(request.first), static_cast<uint64_t>(last)) + "/*"}};
        return answer;
      });
      Download download(connections);
      ZV_HttpBaseSetRange(download.Get(), start, kMax);
      download.Open(server_.Url("/media"));
      const uint64_t first = static_cast<uint64_t>(start);
      EXPECT_EQ(download.ReadAll(media, first), Right(500000 - first));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    }
  }
}

TEST_F(BasicsTest, ConnectionsAreUsedAgainByLaterDownloads) {
  Download download(2);
  const int before = server_.AcceptedConnections();
  for (uint32_t i = 0; i < 6; ++i) {
    const std::string target = "/media" + std::to_string(i);
    const origin::Resource media = Put(target, 2 * kSegLen + i, i);
    ZV_HttpBaseSetRange(download.Get(), i, -1);
    download.Open(server_.Url(target));
    EXPECT_EQ(download.ReadAll(media, i), Right(media.length - i));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    download.Close();
  }
  EXPECT_LE(server_.AcceptedConnections() - before, 5);  // of twelve ranges; one for each of the handle's threads
}

TEST_F(BasicsTest, HttpsWorksLikeHttp) {
  if (!origin::kHasTls) {
    GTEST_SKIP() << "the origin has no TLS here";
  }
  origin::Options options;
  options.https = true;
  origin::Server secure(options);
  const origin::Resource media = origin::PatternResource(5 * kSegLen + 3);
  secure.Put("/media", media);
  for (const int connections : {1, 5}) {
    Download download(connections);
    download.Open(secure.Url("/media"));
    EXPECT_EQ(download.ReadAll(media), Right(media.length));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  }
}

}  // namespace
}  // namespace flow
