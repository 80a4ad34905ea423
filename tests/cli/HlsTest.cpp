// zvhttp hls: the bytes of every segment in their order, on demand and live, and no cache file left however it ends.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>

#include "CliFixture.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr int kBadArguments = 2;
constexpr int kTransferFailed = 3;
constexpr int kHttpError = 4;
constexpr int kOutputFailed = 5;
constexpr uint64_t kSegmentBytes = 300000;

// Some bytes of the pattern with that seed.
struct Piece {
  uint32_t seed;
  uint64_t first = 0;
  uint64_t count = kSegmentBytes;
};

void ExpectPieces(const std::string& text, const std::vector<Piece>& pieces) {
  size_t position = 0;
  for (const Piece& piece : pieces) {
    ASSERT_LE(position + piece.count, text.size()) << "too short for seed " << piece.seed;
    EXPECT_TRUE(origin::CheckPattern(text.data() + position, piece.first, piece.count, piece.seed))
        << "seed " << piece.seed;
    position += piece.count;
  }
  EXPECT_EQ(position, text.size()) << "more than was listed";
}

// A media playlist that lists /s[first] to /s[end - 1] in its folder.
std::string List(int64_t first, int64_t end, bool isEnded, const std::string& suffix = "") {
  std::string text = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXT-X-MEDIA-SEQUENCE:" + std::to_string(first) + "\n";
  for (int64_t i = first; i < end; ++i) {
    text += "#EXTINF:1.0,\ns" + std::to_string(i) + suffix + "\n";
  }
  return text + (isEnded ? "#EXT-X-ENDLIST\n" : "");
}

std::vector<Piece> Pieces(uint32_t first, uint32_t end) {
  std::vector<Piece> pieces;
  for (uint32_t seed = first; seed < end; ++seed) {
    pieces.push_back({seed});
  }
  return pieces;
}

// Private cache folders are made in the test's own folder, so that it shows what is left of them.
class HlsTest : public CliTest {
 protected:
  HlsTest() {
    fs::create_directory(PathOf("tmp"));
    setenv("TMPDIR", PathOf("tmp").c_str(), 1);
    for (uint32_t seed = 0; seed < 12; ++seed) {
      server_.Put("/s" + std::to_string(seed), origin::PatternResource(kSegmentBytes, seed));
    }
  }
  ~HlsTest() override {
    unsetenv("TMPDIR");
    EXPECT_TRUE(fs::is_empty(PathOf("tmp"))) << "cache files are left";
  }

  ProcessSetup Command(const std::vector<std::string>& arguments) const {
    ProcessSetup setup = Zvhttp({"hls", "--retry-delay", "0"});
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    return setup;
  }
  ProcessResult Hls(const std::vector<std::string>& arguments) const { return RunProcess(Command(arguments)); }
  std::string PutText(const std::string& target, const std::string& text) {
    server_.Put(target, origin::BytesResource(text));
    return server_.Url(target);
  }
  // What the n-th load of the playlist gives, from 1 on.
  std::string PutLive(const std::function<std::string(int)>& list) {
    server_.Handle("/live", [list](const origin::Request& request) {
      origin::Answer answer;
      answer.status = 200;
      answer.body = list(request.forTarget);
      return answer;
    });
    return server_.Url("/live");
  }
};

TEST_F(HlsTest, EveryByteOfEverySegmentComes) {
  server_.Put("/a/s0", origin::PatternResource(kSegmentBytes, 20));
  server_.Put("/q?0", origin::PatternResource(kSegmentBytes, 30));
  server_.Put("/q?1", origin::PatternResource(kSegmentBytes, 31));
  const std::string inf = "#EXTINF:1,\n";
  const std::string part = inf + "#EXT-X-BYTERANGE:";
  std::string many;
  for (int i = 0; i < 12; ++i) {
    many += inf + "/s" + std::to_string(i) + "\n";
  }
  const struct {
    const char* name;
    std::string lines;
    std::vector<Piece> pieces;
  } rows[] = {{"many", many, Pieces(0, 12)},
              {"relative",
               inf + "s0\n" + inf + "../s1\n" + inf + "/s2\n" + inf + server_.Url("/s3") + "\n",
               {{20}, {1}, {2}, {3}}},
              {"ranges",
               part + "1000@5\n/s0\n" + part + "2000\n/s0\n" + part + "7@299993\n/s0\n" + inf + "/s1\n",
               {{0, 5, 1000}, {0, 1005, 2000}, {0, 299993, 7}, {1}}},
              {"maps",
               "#EXT-X-MAP:URI=\"/s5\",BYTERANGE=\"100@9\"\n" + inf + "/s0\n" + inf +
                   "/s1\n#EXT-X-DISCONTINUITY\n#EXT-X-MAP:URI=\"/s6\"\n" + inf + "/s2\n",
               {{5, 9, 100}, {0}, {1}, {6}, {2}}},
              {"the same again", inf + "/s0\n" + inf + "/s1\n" + inf + "/s0\n" + inf + "/s2\n", {{0}, {1}, {0}, {2}}},
              {"queries", inf + "/q?0\n" + inf + "/q?1\n" + inf + "/q?0#x\n", {{30}, {31}, {30}}}};
  const std::vector<std::string> ways[] = {
      {}, {"--workers", "1", "--cache-dir", "tmp"}, {"--cache-dir", "/proc"}, {"--cache-dir", "missing"}};
  for (const auto& row : rows) {
    const std::string url = PutText("/a/list", "#EXTM3U\n" + row.lines + "#EXT-X-ENDLIST\n");
    for (std::vector<std::string> arguments : ways) {
      SCOPED_TRACE(row.name + testing::PrintToString(arguments));
      arguments.push_back(url);
      const ProcessResult result = Hls(arguments);
      EXPECT_EQ(result.exitCode, 0) << result.error;
      ExpectPieces(result.output, row.pieces);
    }
  }
}

TEST_F(HlsTest, MasterPlaylistLeadsToTheVariantAskedFor) {
  PutText("/v/low", "#EXTM3U\n#EXTINF:1,\n../s1\n#EXT-X-ENDLIST");
  PutText("/v/high", "#EXTM3U\n#EXTINF:1,\n../s2\n#EXT-X-ENDLIST");
  const std::string master =
      "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=10\nv/low\n#EXT-X-STREAM-INF:BANDWIDTH=20\nv/high\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=15\nv/missing\n";
  const std::string url = PutText("/master", master);
  ExpectPieces(Hls({url}).output, {{2}});
  ExpectPieces(Hls({"--variant", "0", url}).output, {{1}});
  ExpectFailure(Hls({"--variant", "3", url}), kBadArguments, "no variant 3, only 0 to 2");
  ExpectFailure(Hls({"--variant", "2", url}), kHttpError, "/v/missing: HTTP status 404");
  PutText("/v/high", master);
  ExpectFailure(Hls({url}), kTransferFailed, "a master playlist inside another");
}

TEST_F(HlsTest, RedirectOfThePlaylistMovesItsSegments) {
  server_.Put("/a/s0", origin::PatternResource(kSegmentBytes, 20));
  PutText("/a/list", List(0, 1, true));
  server_.Script("/list", {origin::Redirect("/a/list")});
  ExpectPieces(Hls({server_.Url("/list")}).output, {{20}});
}

TEST_F(HlsTest, ReportTellsOfThePlaylist) {
  const std::string url = PutText("/list", List(3, 9, true));
  const ProcessResult result = Hls({"--start", "5", "--workers", "2", "-o", "a", "--json", "--stats", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPieces(Contents("a"), Pieces(5, 9));
  const json report = json::parse(result.output);
  EXPECT_EQ(report["bytes"], 4 * kSegmentBytes);
  EXPECT_GE(report["firstByteMs"], 0);
  const json& playlist = report["playlist"];
  EXPECT_EQ(playlist["segments"], 4);
  EXPECT_EQ(playlist["workers"], 2);
  EXPECT_EQ(playlist["loads"], 1);
  EXPECT_EQ(playlist["live"], false);
  EXPECT_GE(playlist["ahead"].size(), 4u);
  EXPECT_TRUE(std::regex_search(result.error, std::regex("segments +4\n"))) << result.error;
}

TEST_F(HlsTest, LiveListIsFollowedToItsEndAtItsPace) {
  // Slides by one with every load but the third, which brings nothing new.
  const auto list = [](int n) {
    const int64_t first = n < 3 ? n : n - 1;
    return List(first, first + 4, n == 5);
  };
  const ProcessResult result = Hls({"--json", "--live-edge", "2", PutLive(list)});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPieces(result.output, Pieces(3, 8));
  const json report = json::parse(result.error);
  EXPECT_EQ(report["playlist"]["loads"], 5);
  EXPECT_EQ(report["playlist"]["live"], true);
  const std::vector<origin::Request> loads = server_.LogOf("/live");
  ASSERT_EQ(loads.size(), 5u);
  // A second, and half of one after a load that brings nothing new. A busy server notes a request late, and the next one
  // seems to follow too soon: so the bounds lie between the paces.
  const int leastMs[] = {750, 750, 250, 750};
  for (size_t i = 0; i + 1 < loads.size(); ++i) {
    EXPECT_GE(loads[i + 1].time - loads[i].time, std::chrono::milliseconds(leastMs[i])) << i;
  }
}

TEST_F(HlsTest, ReaderWhoHasFallenBehindGoesOnAtTheOldest) {
  const std::string url = PutLive([](int n) { return n == 1 ? List(0, 3, false) : List(5, 8, true); });
  // Segment 2 cannot be had any more, 3 and 4 have never been seen.
  server_.Handle("/s2", [](const origin::Request&) { return origin::Status(404); });
  const ProcessResult result = Hls({"--json", url});
  EXPECT_EQ(result.exitCode, 0);
  ExpectPieces(result.output, {{0}, {1}, {5}, {6}, {7}});
  EXPECT_NE(result.error.find("segment 2 to 4 are left out, going on at 5\n"), std::string::npos) << result.error;
  EXPECT_EQ(json::parse(result.error.substr(result.error.find('{')))["playlist"]["skipped"], 3);
}

TEST_F(HlsTest, NewUrlOfASegmentIsUsed) {
  // The first segment comes only when the second load has been taken over; the old URLs have ceased to work by then.
  const auto gate = std::make_shared<origin::Gate>();
  const std::string url = PutLive([gate](int n) {
    if (n == 3) {
      gate->Open();
    }
    return n == 1 ? List(0, 3, false, "?a") : List(0, 3, n > 3, "?b");
  });
  server_.Handle([gate](const origin::Request& request) {
    origin::Answer answer;
    if (request.target == "/s0?a") {
      answer.gate = gate;
    } else if (request.target.find("?a") != std::string::npos) {
      answer.status = 403;
    }
    return answer;
  });
  const ProcessResult result = Hls({url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPieces(result.output, Pieces(0, 3));
}

TEST_F(HlsTest, ErrorOfTheServerThatPassesIsTriedAgain) {
  const std::string url = PutText("/list", List(0, 3, true));
  const std::vector<origin::Answer> rows[] = {{origin::Status(503)}, {origin::CutAt(100000), origin::Status(503)}};
  for (const std::vector<origin::Answer>& answers : rows) {
    server_.Script("/s1", answers);
    const ProcessResult result = Hls({"--retries", "1", url});
    EXPECT_EQ(result.exitCode, 0) << result.error;
    ExpectPieces(result.output, Pieces(0, 3));
  }
}

TEST_F(HlsTest, CacheFilesThatCannotGrowDoNotHarmIt) {
  ProcessSetup setup = Command({PutText("/list", List(0, 4, true))});
  setup.mostFileBytes = kSegmentBytes / 2;
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPieces(result.output, Pieces(0, 4));
}

TEST_F(HlsTest, FailuresAreToldInOneLine) {
  const std::string url = PutText("/list", List(0, 3, true));
  const std::string key = "#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\"\n#EXTINF:1,\ns0\n#EXT-X-ENDLIST";
  const std::string map = "#EXTM3U\n#EXT-X-MAP:URI=\"no\"\n#EXTINF:1,\ns0\n#EXT-X-ENDLIST";
  const std::string shortMap = "#EXTM3U\n#EXT-X-MAP:URI=\"s1\",BYTERANGE=\"9@299999\"\n#EXTINF:1,\ns0\n#EXT-X-ENDLIST";
  const std::string far = "#EXTM3U\n#EXTINF:1,\n#EXT-X-BYTERANGE:9@2147483640\ns0\n#EXT-X-ENDLIST";
  const std::string ftp = "#EXTM3U\n#EXTINF:1,\nftp://127.0.0.1/s0\n#EXT-X-ENDLIST";
  const struct {
    std::vector<std::string> arguments;
    int code;
    const char* message;
    size_t written;  // bytes
  } rows[] = {
      {{server_.Url("/none")}, kHttpError, "/none: HTTP status 404", 0},
      {{"ftp://127.0.0.1/list"}, kTransferFailed, "http:// or https://", 0},
      {{server_.Url("/s0")}, kTransferFailed, "does not begin with #EXTM3U", 0},
      {{PutText("/key", key)}, kTransferFailed, "line 2: the segments are encrypted (METHOD=AES-128)", 0},
      {{PutText("/empty", "#EXTM3U\n#EXT-X-ENDLIST")}, kTransferFailed, "has no segments", 0},
      {{PutText("/map", map)}, kHttpError, "/no: HTTP status 404", 0},
      {{PutText("/short", shortMap)}, kTransferFailed, "segment 0 (", 0},
      {{PutText("/far", far)}, kTransferFailed, "2 GiB", 0},
      {{PutText("/ftp", ftp)}, kTransferFailed, "http:// or https://", 0},
      {{"--start", "3", url}, kBadArguments, "no segment 3, only 0 to 2", 0},
      {{"-o", "/dev/full", url}, kOutputFailed, "/dev/full", 0},
      {{PutText("/missing", List(0, 2, false) + "#EXTINF:1,\nx\n#EXT-X-ENDLIST")},
       kHttpError,
       "/x): HTTP status 404",
       2 * kSegmentBytes},
      {{"--live-wait", "1", PutText("/still", List(0, 3, false))},
       kTransferFailed,
       "nothing new for 1 s",
       3 * kSegmentBytes},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const ProcessResult result = Hls(row.arguments);
    ExpectFailure(result, row.code, row.message);
    EXPECT_EQ(result.output.size(), row.written);
  }
}

TEST_F(HlsTest, ErrorPageIsNoSegmentWithoutCacheFilesEither) {
  server_.Script("/s1", {origin::Status(404, "not here")});
  const ProcessResult result = Hls({"--cache-dir", "missing", PutText("/list", List(0, 3, true))});
  EXPECT_EQ(result.exitCode, kHttpError) << result.error;
  ExpectPieces(result.output, Pieces(0, 1));
}

TEST_F(HlsTest, LivePlaylistThatFailsAgainAndAgainIsGivenUp) {
  const std::string url = PutLive([](int n) { return n == 2 ? List(1, 4, false) : n == 1 ? List(0, 3, false) : "?"; });
  const ProcessResult result = Hls({url});
  ExpectFailure(result, kTransferFailed, "does not begin with #EXTM3U");
  ExpectPieces(result.output, Pieces(0, 4));
  EXPECT_EQ(server_.LogOf("/live").size(), 7u);
}

TEST_F(HlsTest, ReaderThatHasSeenEnoughIsAGoodEnd) {
  Process process(Command({PutText("/list", List(0, 12, true))}));
  EXPECT_TRUE(process.AwaitOutput(1));
  process.CloseOutput();
  const ProcessResult result = process.Wait();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.error, "");
}

TEST_F(HlsTest, SignalLeavesNoCacheFileInAnyState) {
  PutText("/list", List(0, 12, true));
  PutText("/still", List(0, 3, false));
  PutText("/map", "#EXTM3U\n#EXT-X-MAP:URI=\"s5\"\n#EXTINF:1,\ns0\n#EXT-X-ENDLIST");
  // Where an answer is held; nowhere: a write blocks, or a live playlist brings nothing new.
  const struct {
    const char* list;
    const char* held;
  } rows[] = {{"/list", "/list"}, {"/list", "/s0"}, {"/list", "/s3"}, {"/map", "/s5"}, {"/list", ""}, {"/still", ""}};
  for (const auto& row : rows) {
    for (const int number : {SIGINT, SIGTERM}) {
      SCOPED_TRACE(std::string(row.list) + " at " + row.held + " signal " + std::to_string(number));
      origin::Answer held;
      held.gate = std::make_shared<origin::Gate>();
      server_.ClearScript();
      server_.Script(row.held, {held});
      Process process(Command({server_.Url(row.list)}));
      ASSERT_TRUE(*row.held == 0 ? process.AwaitOutput(1) : held.gate->AwaitWaiting(1));
      process.Signal(number);
      ExpectFailure(process.Wait(), 128 + number, "");
      EXPECT_TRUE(fs::is_empty(PathOf("tmp")));
    }
  }
}

TEST_F(HlsTest, ProgressCountsSegments) {
  ProcessSetup setup = Command({"-o", "/dev/null", PutText("/list", List(0, 4, true))});
  setup.errorIsTerminal = true;
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(std::regex_search(result.error, std::regex("1.2 MB  .* 4 of 4 segments  0:00 ahead"))) << result.error;
}

}  // namespace
