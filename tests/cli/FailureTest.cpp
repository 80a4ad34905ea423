// zvhttp when something goes wrong: the exit code, one line that says what, and no file that was not there before.
#include <sys/socket.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "CliFixture.h"

namespace {

using nlohmann::json;

enum Code {
  kBadArguments = 2,
  kTransferFailed = 3,
  kHttpError = 4,
  kOutputFailed = 5,
  kInterrupted = 130,
  kTerminated = 143
};

// Command lines for a server that has /a.
std::vector<std::vector<std::string>> LinesWithBadArguments(const std::string& server) {
  const std::string url = server + "/a";
  return {
      {},
      {"fetch"},
      {"get"},
      {"get", ""},
      {"get", url, "again"},
      {"get", url, "--unknown"},
      {"get", url, "-n", "0"},
      {"get", url, "-n", "6"},
      {"get", url, "-n", "two"},
      {"get", url, "-n", "99999999999"},
      {"get", url, "--segment", "204799"},
      {"get", url, "--segment", "716801"},
      {"get", url, "--retries", "-2"},
      {"get", url, "--retry-delay", "-1"},
      {"get", url, "--retry-delay", "2147483647"},
      {"get", url, "--range", "5-3"},
      {"get", url, "--range", "x"},
      {"get", url, "--range", ""},
      {"get", url, "--range", "1-2", "--whole"},
      {"get", url, "-H", "no colon"},
      {"get", url, "-H", "X: a\r\nY: b"},
      {"get", url, "--header-key", ""},
      {"get", url, "--log", "loud"},
      {"get", url, "-o", ""},
      {"get", url, "-o"},
      {"get", server + "/"},
      {"get", "http://127.0.0.1"},
      {"get", "nothing"},
      {"hls"},
      {"hls", url, "--workers", "0"},
      {"hls", url, "--workers", "6"},
      {"hls", url, "--start", "-1"},
      {"hls", url, "--live-edge", "0"},
      {"hls", url, "--variant", "-1"},
      {"stream"},
      {"stream", url, "--seek", "-1"},
      {"stream", url, "--seek", "1", "--walk", "1"},
      {"stream", url, "--walk", "1,"},
      {"stream", url, "--walk", "x"},
      {"stream", url, "--cache-time", "-1"},
      {"stream", url, "--duration", "x"},
      {"probe", url},
      {"probe", url, "--offset", "-1"},
      {"probe", url, "--offset", "1", "--idle", "-1"},
      {"serve"},
      {"serve", "missing"},
      {"serve", ".", "--port", "65536"},
  };
}

TEST_F(CliTest, BadArgumentsAreRefusedBeforeAnythingIsAttempted) {
  PutPattern("/a", 10);
  const std::string address = server_.Url("");
  for (const std::vector<std::string>& row : LinesWithBadArguments(address)) {
    SCOPED_TRACE(testing::PrintToString(row));
    const ProcessResult result = RunProcess(Zvhttp(row));
    ExpectFailure(result, kBadArguments, "");
    EXPECT_EQ(result.output, "");
  }
  EXPECT_EQ(server_.RequestCount(), 0);
  EXPECT_EQ(Files(), "");
}

TEST_F(CliTest, HelpAndVersionSucceed) {
  for (const std::vector<std::string>& row : std::vector<std::vector<std::string>>{
           {"--help"}, {"get", "--help"}, {"stream", "--help"}, {"probe", "--help"}}) {
    const ProcessResult result = RunProcess(Zvhttp(row));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.output.find("Exit codes:"), std::string::npos) << result.output;
  }
  EXPECT_EQ(RunProcess(Zvhttp({"--version"})).output.rfind("zvhttp ", 0), 0u);
}

struct FailureRow {
  std::string name;
  std::vector<origin::Answer> answers;  // the script of /a
  std::vector<std::string> arguments;
  Code code;
  std::string message;
};

std::vector<FailureRow> AnswersThatFail() {
  origin::Answer everything;
  everything.ignoreRange = true;
  origin::Answer everythingUnknown = everything;
  everythingUnknown.chunkBytes = 1000;
  origin::Answer cut = origin::CutAt(300000);
  return {
      {"missing", {origin::Status(404, "not here")}, {}, kHttpError, "HTTP status 404"},
      {"missing, five connections", {origin::Status(404, "not here")}, {"-n", "5"}, kHttpError, "HTTP status 404"},
      {"server error", {origin::Status(503)}, {}, kHttpError, "HTTP status 503"},
      {"whole, missing", {origin::Status(404, "not here")}, {"--whole", "--retries", "0"}, kHttpError, "404"},
      {"range behind the end", {}, {"--range", "5000000-"}, kHttpError, "HTTP status 416"},
      {"gone", {origin::Status(410, "gone")}, {}, kTransferFailed, "410"},
      {"broken off", {cut}, {"--retries", "0"}, kTransferFailed, "after 300000 bytes"},
      {"no answer", {origin::CutAtWire(0), origin::CutAtWire(0)}, {"--retries", "0"}, kTransferFailed, "failed"},
      {"range ignored", {everything}, {"--range", "1000-1999"}, kTransferFailed, "ignored the range"},
      {"range ignored, no length", {everythingUnknown}, {"--range", "-10"}, kTransferFailed, "ignored the range"},
      {"range ignored, from the start", {everythingUnknown}, {"--range", "0-9"}, kTransferFailed, "ignored the range"},
      {"redirect in circles", {40, origin::Redirect("/a")}, {"--retries", "0"}, kTransferFailed, "failed"},
      {"redirect to a file", {3, origin::Redirect("file:///etc/hostname")}, {"--retries", "0"}, kTransferFailed, ""},
  };
}

TEST_F(CliTest, FailedTransferSaysWhyAndLeavesTheOldFile) {
  const std::string url = PutPattern("/a", kMegabyte);
  WriteFile("a", "old");
  for (const FailureRow& row : AnswersThatFail()) {
    SCOPED_TRACE(row.name);
    server_.ClearScript();
    server_.Script("/a", row.answers);
    std::vector<std::string> arguments = row.arguments;
    arguments.push_back(url);
    ExpectFailure(Get(arguments), row.code, row.message);
    EXPECT_EQ(Files(), "a ");
    EXPECT_EQ(Contents("a"), "old");
  }
}

TEST_F(CliTest, WrongBytesNeverReachStandardOutput) {
  const std::string url = PutPattern("/a", kMegabyte);
  origin::Answer everything;
  everything.ignoreRange = true;
  server_.Script("/a", {origin::Status(404, "an error page"), everything});
  EXPECT_EQ(Get({"-o", "-", url}).output, "");
  EXPECT_EQ(Get({"-o", "-", "--range", "5-", url}).output, "");
}

TEST_F(CliTest, UrlsThatLeadNowhereFail) {
  const std::string closed = [] {
    const origin::Server gone;
    return gone.Url("/a");
  }();
  const struct {
    std::string url;
    const char* message;
  } rows[] = {{closed, "no connection"},
              {"ftp://127.0.0.1/a", "http:// or https://"},
              {"127.0.0.1/a", "http:// or https://"},
              {"http://127.0.0.1:99999/a", "failed"},
              {"http:///a", "failed"},
              {"http://a b/a", "failed"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.url);
    ExpectFailure(Get({"--retries", "0", row.url}), kTransferFailed, row.message);
    EXPECT_EQ(Files(), "");
  }
}

TEST_F(CliTest, OutputThatCannotBeWrittenIsAnError) {
  const std::string url = PutPattern("/a", 3 * kMegabyte);
  for (const char* name : {"/dev/full", "missing/a", ".", "/dev/null/a"}) {
    SCOPED_TRACE(name);
    const ProcessResult result = Get({"-o", name, url});
    ExpectFailure(result, kOutputFailed, name);
    EXPECT_EQ(Files(), "");
  }
}

TEST_F(CliTest, FileThatHitsTheSizeLimitIsRemoved) {
  ProcessSetup setup = Zvhttp({"get", PutPattern("/a", 3 * kMegabyte)});
  setup.mostFileBytes = kMegabyte;
  ExpectFailure(RunProcess(setup), kOutputFailed, "cannot write a: ");
  EXPECT_EQ(Files(), "");
}

TEST_F(CliTest, ClosedReaderOfStandardOutputIsAnError) {
  Process process(Zvhttp({"get", "-o", "-", PutPattern("/a", 30 * kMegabyte)}));
  EXPECT_TRUE(process.AwaitOutput(1));
  process.CloseOutput();
  ExpectFailure(process.Wait(), kOutputFailed, "standard output");
}

TEST_F(CliTest, ClosedStandardOutputIsAnError) {
  ProcessSetup setup = Zvhttp({"get", "-o", "-", PutPattern("/a", 1000)});
  setup.closeOutput = true;
  ExpectFailure(RunProcess(setup), kOutputFailed, "standard output");
}

TEST_F(CliTest, SignalEndsATransferInEveryState) {
  const std::string url = PutPattern("/a", 2 * kMegabyte);
  for (const int64_t position : {origin::kBeforeAnswer, int64_t{0}, int64_t{1000000}}) {
    for (const int number : {SIGINT, SIGTERM}) {
      SCOPED_TRACE("signal " + std::to_string(number) + " at " + std::to_string(position));
      origin::Answer held;
      held.gate = std::make_shared<origin::Gate>();
      held.gateAt = position;
      server_.Script("/a", {held});
      Process process(Zvhttp({"get", url}));
      ASSERT_TRUE(held.gate->AwaitWaiting(1));
      process.Signal(number);
      ExpectFailure(process.Wait(), number == SIGINT ? kInterrupted : kTerminated, "");
      EXPECT_EQ(Files(), "");
    }
  }
}

TEST_F(CliTest, SignalEndsARetryPause) {
  const std::string url = PutPattern("/a", 1000);
  server_.Handle("/a", [](const origin::Request&) { return origin::CutAtWire(0); });
  Process process(Zvhttp({"get", "--retries", "-1", "--retry-delay", "600000", url}));
  ASSERT_TRUE(server_.WaitForEnded(1));
  process.Signal(SIGINT);
  ExpectFailure(process.Wait(), kInterrupted, "interrupted");
}

TEST_F(CliTest, SignalEndsAWriteThatNobodyReads) {
  Process process(Zvhttp({"get", "-o", "-", PutPattern("/a", 100 * kMegabyte)}));
  EXPECT_TRUE(process.AwaitOutput(1));
  process.Signal(SIGTERM);
  ExpectFailure(process.Wait(), kTerminated, "terminated");
}

TEST_F(CliTest, JsonTellsOfAFailure) {
  server_.Script("/a", {origin::Status(404)});
  const ProcessResult result = Get({"--json", server_.Url("/a")});
  ExpectFailure(result, kHttpError, "404");
  const json report = json::parse(result.output);
  EXPECT_EQ(report["status"], "httpError");
  EXPECT_EQ(report["exitCode"], 4);
  EXPECT_EQ(report["code"], 404);
  EXPECT_EQ(report["error"], "HTTP status 404");
  EXPECT_EQ(report["bytes"], 0);
  EXPECT_TRUE(report["firstByteMs"].is_null() || report["firstByteMs"].is_number());
  EXPECT_TRUE(report["contentLength"].is_null());
}

}  // namespace
