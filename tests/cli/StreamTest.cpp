// zvhttp stream and probe: every byte through the cache, from every place, and no cache file left however it ends.
#include <boost/crc.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "CliFixture.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr int64_t kNoGate = -2;
constexpr int kTransferFailed = 3;
constexpr int kHttpError = 4;
constexpr int kOutputFailed = 5;

// Private cache folders are made in the test's own folder, so that Files() shows what is left of them.
class StreamTest : public CliTest {
 protected:
  StreamTest() {
    fs::create_directory(PathOf("tmp"));
    setenv("TMPDIR", PathOf("tmp").c_str(), 1);
  }
  ~StreamTest() override {
    unsetenv("TMPDIR");
    EXPECT_TRUE(fs::is_empty(PathOf("tmp"))) << "cache files are left";
  }

  ProcessSetup Command(const std::string& command, const std::vector<std::string>& arguments) const {
    ProcessSetup setup = Zvhttp({command, "--retry-delay", "0"});
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    return setup;
  }
  ProcessResult Stream(const std::vector<std::string>& arguments) const {
    return RunProcess(Command("stream", arguments));
  }
};

TEST_F(StreamTest, EveryByteComesWithAnyConnectionsAndCache) {
  const std::vector<std::vector<std::string>> rows = {
      {}, {"-n", "5", "--segment", "204800"}, {"--cache-dir", "tmp"}, {"--duration", "10000", "--cache-time", "1"}};
  for (const uint64_t bytes : {uint64_t{0}, uint64_t{1}, 20 * kMegabyte}) {
    const std::string url = PutPattern("/" + std::to_string(bytes), bytes);
    for (std::vector<std::string> arguments : rows) {
      SCOPED_TRACE(url + " " + testing::PrintToString(arguments));
      arguments.push_back(url);
      const ProcessResult result = Stream(arguments);
      EXPECT_EQ(result.exitCode, 0);
      EXPECT_EQ(result.error, "");
      ExpectPattern(result.output, 0, bytes);
    }
  }
}

TEST_F(StreamTest, BodiesThatAreHardToReadAreComplete) {
  origin::Answer chunked;
  chunked.chunkBytes = 70000;
  origin::Answer everything;
  everything.ignoreRange = true;
  const struct {
    const char* name;
    origin::Answer answer;
  } rows[] = {
      {"unknown length", chunked}, {"range ignored", everything}, {"cut again and again", origin::CutAt(400000)}};
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server_.Handle("/a", [&row](const origin::Request&) { return row.answer; });
    const ProcessResult result = Stream({"--retries", "-1", url});
    EXPECT_EQ(result.exitCode, 0) << result.error;
    ExpectPattern(result.output, 0, 2 * kMegabyte);
  }
}

TEST_F(StreamTest, SeeksAreMadeInTurnAndTheLastIsWritten) {
  const std::string url = PutPattern("/a", 30 * kMegabyte);
  const ProcessResult result =
      Stream({"--seek", "500", "--seek", "29000000", "--seek", "29000500", "--seek", "1000", "-o", "a", "--json", url});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPattern(Contents("a"), 1000, 30 * kMegabyte - 1000);
  const json report = json::parse(result.output);
  EXPECT_EQ(report["bytes"], 30 * kMegabyte - 1000);
  ASSERT_EQ(report["seeks"].size(), 4u);
  const int64_t positions[] = {500, 29000000, 29000500, 1000};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(report["seeks"][i]["position"], positions[i]);
    EXPECT_GT(report["seeks"][i]["firstByteMs"], 0);
  }
  EXPECT_EQ(report["seeks"][1]["cached"], false);
  EXPECT_EQ(report["seeks"][3]["cached"], true);
}

TEST_F(StreamTest, ReaderThatHasSeenEnoughIsAGoodEnd) {
  Process process(Command("stream", {PutPattern("/a", 30 * kMegabyte)}));
  EXPECT_TRUE(process.AwaitOutput(1));
  process.CloseOutput();
  const ProcessResult result = process.Wait();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.error, "");
}

TEST_F(StreamTest, CacheFolderThatCannotBeUsedCostsAWarningAtMost) {
  const std::string url = PutPattern("/a", 3 * kMegabyte);
  for (const char* folder : {"missing", "/dev/null", "/proc"}) {
    SCOPED_TRACE(folder);
    const ProcessResult result = Stream({"--cache-dir", folder, "--seek", "9", "--seek", "1000", url});
    EXPECT_EQ(result.exitCode, 0) << result.error;
    ExpectPattern(result.output, 1000, 3 * kMegabyte - 1000);
  }
}

TEST_F(StreamTest, CacheFilesThatCannotGrowDoNotHarmTheStream) {
  ProcessSetup setup = Command("stream", {PutPattern("/a", 12 * kMegabyte)});
  setup.mostFileBytes = kMegabyte;
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 0) << result.error;
  ExpectPattern(result.output, 0, 12 * kMegabyte);
}

TEST_F(StreamTest, FailuresAreThoseOfGet) {
  const std::string url = PutPattern("/a", kMegabyte);
  const struct {
    const char* name;
    std::vector<origin::Answer> answers;
    std::vector<std::string> arguments;
    int code;
    const char* message;
  } rows[] = {
      {"missing", {origin::Status(404, "not here")}, {url}, kHttpError, "HTTP status 404"},
      {"gone", {origin::Status(410)}, {url}, kTransferFailed, "410"},
      {"no cache, missing", {origin::Status(404, "not here")}, {"--cache-dir", "/proc", url}, kHttpError, "404"},
      {"behind the end", {}, {"--seek", "5000000", url}, kHttpError, "HTTP status 416"},
      {"no answer", {origin::CutAtWire(0), origin::CutAtWire(0)}, {"--retries", "0", url}, kTransferFailed, "failed"},
      {"bad scheme", {}, {"ftp://127.0.0.1/a"}, kTransferFailed, "http:// or https://"},
      {"output", {}, {"-o", "/dev/full", url}, kOutputFailed, "/dev/full"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server_.ClearScript();
    server_.Script("/a", row.answers);
    const ProcessResult result = Stream(row.arguments);
    ExpectFailure(result, row.code, row.message);
    EXPECT_EQ(result.output, "");
  }
}

TEST_F(StreamTest, StatusInTheMiddleIsToldWhenItLasts) {
  const std::string url = PutPattern("/a", 3 * kMegabyte);
  server_.Handle("/a", [](const origin::Request& request) {
    return request.forTarget == 1 ? origin::CutAt(1000000) : origin::Status(403);
  });
  const ProcessResult result = Stream({"--retries", "1", url});
  ExpectFailure(result, kHttpError, "HTTP status 403 after 1000000 bytes");
  ExpectPattern(result.output, 0, kMegabyte);
}

TEST_F(StreamTest, SignalLeavesNoCacheFileInAnyState) {
  const std::string url = PutPattern("/a", 100 * kMegabyte);
  for (const int64_t position : {origin::kBeforeAnswer, int64_t{1000000}, kNoGate}) {
    for (const int number : {SIGINT, SIGTERM}) {
      SCOPED_TRACE("signal " + std::to_string(number) + " at " + std::to_string(position));
      origin::Answer held;
      held.gate = std::make_shared<origin::Gate>();
      held.gateAt = position;
      // Without a gate it is the reader who does not go on, so that a write blocks.
      server_.Script("/a", position == kNoGate ? std::vector<origin::Answer>() : std::vector<origin::Answer>{held});
      Process process(Command("stream", {url}));
      ASSERT_TRUE(position == kNoGate ? process.AwaitOutput(1) : held.gate->AwaitWaiting(1));
      process.Signal(number);
      ExpectFailure(process.Wait(), 128 + number, "");
      EXPECT_TRUE(fs::is_empty(PathOf("tmp")));
    }
  }
}

TEST_F(StreamTest, ProgressShowsWhatIsAhead) {
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  ProcessSetup setup = Command("stream", {"-o", "/dev/null", url});
  setup.errorIsTerminal = true;
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(std::regex_search(result.error, std::regex("100.0 %  2.0 MB of 2.0 MB.* ahead"))) << result.error;
}

std::string Crc32(const origin::Resource& resource, const json& line) {
  std::vector<char> bytes(line["length"].get<size_t>());
  resource.read(line["position"], bytes.data(), bytes.size());
  boost::crc_32_type crc;
  crc.process_bytes(bytes.data(), bytes.size());
  char text[9];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(crc.checksum()));
  return text;
}

TEST_F(StreamTest, WalkTellsTheSameThroughAnyCache) {
  const origin::Resource resource = origin::PatternResource(20 * kMegabyte);
  const std::string url = PutPattern("/a", 20 * kMegabyte);
  const ProcessResult first = Stream({"--walk", "5,40", url});
  EXPECT_EQ(first.exitCode, 0) << first.error;
  EXPECT_EQ(Stream({"--walk", "5,40", "-n", "4", "--cache-dir", "/proc", url}).output, first.output);
  EXPECT_NE(Stream({"--walk", "6,40", url}).output, first.output);
  std::istringstream lines(first.output);
  std::string text;
  int64_t next = 0;
  int count = 0;
  int seeks = 0;
  for (; std::getline(lines, text); ++count) {
    const json line = json::parse(text);
    EXPECT_EQ(line["step"], count);
    seeks += line["action"] == "seek" ? 1 : 0;
    if (line["action"] != "seek") {
      EXPECT_EQ(line["position"], next) << text;
    }
    next = line["position"].get<int64_t>() + line["length"].get<int64_t>();
    EXPECT_EQ(line["crc32"], Crc32(resource, line)) << text;
  }
  EXPECT_EQ(count, 40);
  EXPECT_GT(seeks, 4);
}

TEST_F(StreamTest, ProbePrintsTwoFigures) {
  const std::string url = PutPattern("/a", 30 * kMegabyte);
  const struct {
    std::vector<std::string> arguments;
    int requests;  // 0: any number
  } rows[] = {{{"--offset", "29000000"}, 0},
              {{"--offset", "29000000", "--idle", "1"}, 0},
              {{"--offset", "1000", "--read", "2000"}, 1},
              {{"--offset", "29000000", "--direct"}, 2},
              {{"--offset", "0", "--direct", "--read", "0", "-n", "2"}, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    server_.ClearLog();
    std::vector<std::string> arguments = row.arguments;
    arguments.push_back(url);
    const ProcessResult result = RunProcess(Command("probe", arguments));
    EXPECT_EQ(result.exitCode, 0) << result.error;
    EXPECT_TRUE(std::regex_match(result.output, std::regex("first_ms=[0-9.]+ seek_ms=[0-9.]+\n"))) << result.output;
    EXPECT_TRUE(row.requests == 0 || server_.RequestCount() == row.requests) << server_.RequestCount();
  }
}

TEST_F(StreamTest, ProbeFailsAsGetDoes) {
  const std::string url = PutPattern("/a", kMegabyte);
  std::vector<std::string> arguments = {"--offset", "2000000", url};
  ExpectFailure(RunProcess(Command("probe", arguments)), kHttpError, "416");
  for (int i = 0; i < 2; ++i) {
    server_.Script("/a", {origin::Status(404, "not here")});
    ExpectFailure(RunProcess(Command("probe", arguments)), kHttpError, "404");
    arguments.emplace_back("--direct");
  }
}

}  // namespace
