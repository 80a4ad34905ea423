// The exported functions against nginx.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <set>

#include "Player.h"
#include "RealTest.h"

namespace {

using testing::ElementsAre;
using testing::Le;

constexpr int64_t kMedia = Nginx::kMediaBytes;

// Waits for lines that account for so many bytes.
std::vector<AccessLine> LinesOf(const std::string& target, int64_t bytes) {
  return Server().WaitForLines(target,
                               [bytes](const std::vector<AccessLine>& lines) { return SumOfBodies(lines) >= bytes; });
}

class RealLibrary : public testing::TestWithParam<Way> {};

INSTANTIATE_TEST_SUITE_P(Ways, RealLibrary, testing::ValuesIn(kWays), NameOfWay);

TEST_P(RealLibrary, FetchesEveryByteOverTheProtocolAskedFor) {
  const Way way = GetParam();
  const std::string target = TargetOfTest("/media.bin");
  Player player(way.connections);
  const Download download = player.Get(Server().Url(way.protocol, target));
  EXPECT_TRUE(download.ended);
  EXPECT_TRUE(SameBytes(download.body, MediaBytes(0, kMedia - 1)));
  EXPECT_THAT(download.codes, ElementsAre(200));
  EXPECT_EQ(download.length, kMedia);

  const std::vector<AccessLine> lines = LinesOf(target, kMedia);
  for (const AccessLine& line : lines) {
    EXPECT_EQ(line.protocol, way.version);
  }
  // More requests than connections: connections are kept and used again.
  EXPECT_THAT(ConnectionsOf(lines).size(), Le(static_cast<size_t>(way.connections)));
  EXPECT_GE(lines.size(), way.connections > 1 ? 6U : 1U);
}

TEST_P(RealLibrary, FetchesRanges) {
  const Way way = GetParam();
  const struct {
    int64_t start, end, first, last;
  } rows[] = {
      {0, 0, 0, 0},
      {1000001, 4999999, 1000001, 4999999},
      {4096000, -1, 4096000, kMedia - 1},
      {-1, 1234567, kMedia - 1234567, kMedia - 1},
      {kMedia - 1, kMedia + 1000, kMedia - 1, kMedia - 1},
  };
  Player player(way.connections);
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.start << " to " << row.end);
    ZV_HttpBaseSetRange(player.Handle(), row.start, row.end);
    const Download download = player.Get(Server().Url(way.protocol, TargetOfTest("/media.bin")));
    EXPECT_TRUE(download.ended);
    EXPECT_TRUE(SameBytes(download.body, MediaBytes(row.first, row.last)));
    EXPECT_THAT(download.codes, ElementsAre(200));
  }
}

TEST_P(RealLibrary, FetchesTheNextDownloadsOverTheSameConnections) {
  const Way way = GetParam();
  const std::string target = TargetOfTest("/media.bin");
  Player player(way.connections);
  for (int round = 1; round <= 3; ++round) {
    const Download download = player.Get(Server().Url(way.protocol, target));
    EXPECT_TRUE(SameBytes(download.body, MediaBytes(0, kMedia - 1)));
    EXPECT_THAT(ConnectionsOf(LinesOf(target, round * kMedia)).size(), Le(static_cast<size_t>(way.connections)));
  }
}

TEST_P(RealLibrary, UnpacksWhatTheServerPacks) {
  const Way way = GetParam();
  const std::string target = TargetOfTest("/packed/text.txt");
  Player player(way.connections);
  const Download download = player.Get(Server().Url(way.protocol, target));
  EXPECT_TRUE(download.ended);
  EXPECT_TRUE(SameBytes(download.body, TextOfTheServer()));
  EXPECT_THAT(download.codes, ElementsAre(200));
  // Without this the test would pass with a server that packs nothing.
  EXPECT_LT(SumOfBodies(LinesOf(target, 1)), Nginx::kTextBytes / 2);
}

TEST_P(RealLibrary, FollowsARedirectAndTellsWhereItLed) {
  const Way way = GetParam();
  const std::string target = TargetOfTest("/media.bin");
  Player player(way.connections);
  const Download download = player.Get(Server().Url(way.protocol, "/moved" + target));
  EXPECT_TRUE(SameBytes(download.body, MediaBytes(0, kMedia - 1)));
  EXPECT_THAT(download.codes, testing::IsSupersetOf({302, 200}));
  EXPECT_EQ(download.redirect, Server().Url(way.protocol, target));
}

TEST_P(RealLibrary, ReportsAMissingFileWithTheServersPage) {
  const Way way = GetParam();
  Player player(way.connections);
  const Download download = player.Get(Server().Url(way.protocol, "/missing.bin"));
  EXPECT_TRUE(download.ended);
  EXPECT_THAT(download.codes, ElementsAre(404));
  EXPECT_THAT(download.body, testing::HasSubstr("404 Not Found"));
}

TEST(RealLimits, FiveConnectionsTogetherPassALimitPerAnswer) {
  const std::string target = TargetOfTest("/slow/media.bin");
  Player player(5);
  const auto begin = std::chrono::steady_clock::now();
  const Download download = player.Get(Server().Url(Protocol::kHttp, target));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  EXPECT_TRUE(SameBytes(download.body, MediaBytes(0, kMedia - 1)));
  EXPECT_EQ(ConnectionsOf(LinesOf(target, kMedia)).size(), 5U);
  // One answer with everything takes 22 seconds; twelve ranges of one second each, five at a time, take about three.
  EXPECT_LT(seconds, 12.0);
}

#if !ZV_SANITIZED
int64_t ResidentBytes() {
  int64_t pages = 0;
  std::ifstream("/proc/self/statm").ignore(64, ' ') >> pages;
  return pages * sysconf(_SC_PAGESIZE);
}

TEST(RealLimits, AFileBeyondFourGigabytesNeedsNoMoreMemory) {
  const std::vector<char> zeros(256 * 1024);
  int64_t bytes = 0;
  int64_t resident = 0;
  bool allZero = true;
  Player player(5);
  const Download download =
      player.Get(Server().Url(Protocol::kHttp, "/huge.bin"), [&](const char* block, uint32_t count) {
        allZero = allZero && std::memcmp(block, zeros.data(), count) == 0;
        bytes += count;
        // From the time when every buffer has been used once.
        if (resident == 0 && bytes > Nginx::kHugeBytes / 100) {
          resident = ResidentBytes();
        }
      });
  const int64_t grown = ResidentBytes() - resident;
  EXPECT_TRUE(download.ended);
  EXPECT_TRUE(allZero);
  EXPECT_EQ(bytes, Nginx::kHugeBytes);
  EXPECT_EQ(download.length, Nginx::kHugeBytes);
  EXPECT_LT(grown, 4 << 20);
}
#endif

}  // namespace
