// zvhttp get when all goes well: every byte arrives, where it was asked for, and nothing else is printed.
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "CliFixture.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

TEST_F(CliTest, FileHasEveryByteWithAnyNumberOfConnections) {
  for (const uint64_t bytes : {uint64_t{0}, uint64_t{1}, uint64_t{204801}, 7 * kMegabyte}) {
    const std::string url = PutPattern("/film.mp4?key=" + std::to_string(bytes), bytes);
    for (const char* connections : {"1", "2", "5"}) {
      SCOPED_TRACE(url + " over " + connections);
      const ProcessResult result = Get({url, "-n", connections, "--segment", "204800"});
      EXPECT_EQ(result.exitCode, 0);
      EXPECT_EQ(result.output + result.error, "");
      EXPECT_EQ(Files(), "film.mp4 ");
      ExpectPattern(Contents("film.mp4"), 0, bytes);
    }
  }
}

TEST_F(CliTest, StandardOutputCarriesNothingButTheBytes) {
  const std::string url = PutPattern("/a", 3 * kMegabyte);
  for (const char* name : {"-", "/dev/stdout"}) {
    SCOPED_TRACE(name);
    const ProcessResult result = Get({"-n", "3", "--stats", "--log", "trace", "-o", name, url});
    EXPECT_EQ(result.exitCode, 0) << result.error;
    ExpectPattern(result.output, 0, 3 * kMegabyte);
    EXPECT_EQ(Files(), "");
  }
}

TEST_F(CliTest, RangeSelectsItsBytes) {
  const std::string url = PutPattern("/a", kMegabyte);
  const struct {
    const char* range;
    uint64_t first;
    uint64_t count;
  } rows[] = {{"0-0", 0, 1},
              {"10-", 10, kMegabyte - 10},
              {"1000-700000", 1000, 699001},
              {"-1", 999999, 1},
              {"-250000", 750000, 250000},
              {"999999-2000000", 999999, 1},
              {"-5000000", 0, kMegabyte},
              {"0-", 0, kMegabyte}};
  for (const auto& row : rows) {
    for (const char* connections : {"1", "3"}) {
      SCOPED_TRACE(std::string(row.range) + " over " + connections);
      const ProcessResult result = Get({"--range", row.range, "-n", connections, "-o", "-", url});
      EXPECT_EQ(result.exitCode, 0) << result.error;
      ExpectPattern(result.output, row.first, row.count);
    }
  }
}

TEST_F(CliTest, RangeOfEverythingMayBeAnsweredWithEverything) {
  const std::string url = PutPattern("/a", kMegabyte);
  origin::Answer everything;
  everything.ignoreRange = true;
  server_.Handle("/a", [everything](const origin::Request&) { return everything; });
  for (const char* range : {"0-", "0-999999", "0-9999999", "-1000000"}) {
    SCOPED_TRACE(range);
    const ProcessResult result = Get({"--range", range, "-o", "-", url});
    EXPECT_EQ(result.exitCode, 0) << result.error;
    ExpectPattern(result.output, 0, kMegabyte);
  }
}

TEST_F(CliTest, WholeIsOneRequestWithoutRange) {
  const std::string url = PutPattern("/a", 5 * kMegabyte);
  const ProcessResult result = Get({"--whole", "-n", "5", "-o", "-", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPattern(result.output, 0, 5 * kMegabyte);
  ASSERT_EQ(server_.RequestCount(), 1);
  EXPECT_EQ(server_.Log()[0].range, "");
}

TEST_F(CliTest, BodyOfUnknownLengthIsComplete) {
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  origin::Answer chunked;
  chunked.chunkBytes = 70000;
  server_.Handle("/a", [chunked](const origin::Request&) { return chunked; });
  const ProcessResult result = Get({"-n", "5", "-o", "-", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPattern(result.output, 0, 2 * kMegabyte);
}

TEST_F(CliTest, BrokenConnectionIsResumed) {
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  server_.Script("/a", {origin::CutAt(700000)});
  const ProcessResult result = Get({"-o", "-", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPattern(result.output, 0, 2 * kMegabyte);
}

TEST_F(CliTest, RequestCarriesWhatWasAskedFor) {
  const std::string url = PutPattern("/a", 1000);
  const ProcessResult result =
      Get({"-H", "X-First: one", "-H", "X-Second: two", "-A", "Player/7", "--interface", "127.0.0.1", "-o", "-", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ASSERT_EQ(server_.RequestCount(), 1);
  const origin::Request request = server_.Log()[0];
  EXPECT_EQ(request.Header("X-First"), "one");
  EXPECT_EQ(request.Header("X-Second"), "two");
  EXPECT_EQ(request.Header("User-Agent"), "Player/7");
}

TEST_F(CliTest, JsonTellsWhatWasFetched) {
  PutPattern("/a", 2 * kMegabyte);
  server_.Script("/from", {origin::Redirect("/a")});
  const ProcessResult result = Get({"--json", "-n", "2", "-o", "a", "--header-key", "Accept-Ranges", "--header-key",
                                    "X-Missing", server_.Url("/from")});
  ASSERT_EQ(result.exitCode, 0) << result.error;
  const json report = json::parse(result.output);
  EXPECT_EQ(report["url"], server_.Url("/from"));
  EXPECT_EQ(report["status"], "ok");
  EXPECT_EQ(report["exitCode"], 0);
  EXPECT_EQ(report["bytes"], 2 * kMegabyte);
  EXPECT_EQ(report["contentLength"], 2 * kMegabyte);
  EXPECT_EQ(report["connections"], 2);
  EXPECT_EQ(report["redirectUrl"], server_.Url("/a"));
  EXPECT_EQ(report["headers"]["Accept-Ranges"], "bytes");
  EXPECT_TRUE(report["headers"]["X-Missing"].is_null());
  EXPECT_GT(report["seconds"], 0);
  EXPECT_GT(report["bytesPerSecond"], 0);
  EXPECT_GE(report["firstByteMs"], 0);
  EXPECT_FALSE(report.contains("error"));
}

TEST_F(CliTest, JsonGoesToStandardErrorWhenTheBytesGoToStandardOutput) {
  const std::string url = PutPattern("/a", 1000);
  const ProcessResult result = Get({"--json", "-o", "-", url});
  EXPECT_EQ(result.exitCode, 0);
  ExpectPattern(result.output, 0, 1000);
  EXPECT_EQ(json::parse(result.error)["bytes"], 1000);
}

TEST_F(CliTest, StatsTableHasARowPerFigure) {
  const std::string url = PutPattern("/a", 123456);
  const ProcessResult result = Get({"--stats", "--header-key", "Accept-Ranges", "-o", "/dev/null", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  for (const char* row :
       {"bytes            123456\n", "seconds  ", "MB/s  ", "first byte (ms)  ", "connections      1\n",
        "redirected to    -\n", "content length   123456\n", "Accept-Ranges:   bytes\n"}) {
    EXPECT_NE(result.error.find(row), std::string::npos) << row << " is missing in\n" << result.error;
  }
}

TEST_F(CliTest, ExistingFileIsReplacedAndKeepsItsPermissionsAndLinks) {
  const std::string url = PutPattern("/a", 1000);
  WriteFile("real", std::string(5000, 'x'));
  ASSERT_EQ(chmod(PathOf("real").c_str(), 0640), 0);
  fs::create_symlink("real", PathOf("link"));
  EXPECT_EQ(Get({"-o", "link", url}).exitCode, 0);
  EXPECT_EQ(Files(), "link real ");
  EXPECT_TRUE(fs::is_symlink(PathOf("link")));
  ExpectPattern(Contents("real"), 0, 1000);
  EXPECT_EQ(fs::status(PathOf("real")).permissions(), fs::perms{0640});
}

TEST_F(CliTest, FileAppearsOnlyWhenItIsComplete) {
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  origin::Answer held;
  held.gate = std::make_shared<origin::Gate>();
  held.gateAt = 1000000;
  server_.Script("/a", {held});
  Process process(Zvhttp({"get", "-o", "a", url}));
  ASSERT_TRUE(held.gate->AwaitWaiting(1));
  EXPECT_EQ(Files().find(".a.zvhttp-"), 0u) << Files();
  held.gate->Open();
  EXPECT_EQ(process.Wait().exitCode, 0);
  EXPECT_EQ(Files(), "a ");
}

TEST_F(CliTest, ProgressLineIsShownOnATerminalOnly) {
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  ProcessSetup setup = Zvhttp({"get", "-n", "5", "-o", "/dev/null", url});
  setup.errorIsTerminal = true;
  const ProcessResult shown = RunProcess(setup);
  EXPECT_EQ(shown.exitCode, 0);
  EXPECT_NE(shown.error.find("100.0 %  2.0 MB of 2.0 MB"), std::string::npos) << shown.error;
  setup.arguments.push_back("--quiet");
  EXPECT_EQ(RunProcess(setup).error, "");
}

TEST_F(CliTest, LogLinesGoToStandardError) {
  const std::string url = PutPattern("/a", 1000);
  const ProcessResult result = Get({"--log", "trace", "-o", "-", url});
  EXPECT_EQ(result.error.rfind("trace ", 0), 0u) << result.error;
  EXPECT_EQ(Get({"--log", "failure", "-o", "-", url}).error, "");
}

}  // namespace
