// Close and Release at any moment: at once, and nothing of the old download afterwards.
#include <thread>

#include "Download.h"
#include "FullPort.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;

constexpr uint64_t kLong = 20000000;

// A state that a download stays in: how it gets there, and how to know that it is there.
struct State {
  const char* name;
  std::string url;
  std::function<bool(Download*)> await;
  bool isWhole = false;
};

class StopTest : public FlowTest {
 protected:
  StopTest() {
    Put("/media", kLong);
    Put("/other", kLong, 9);
    Put("/fine", 3 * kSegLen + 5, 3);
    server_.Handle("/silent", [](const Request&) { return origin::StallAt(origin::kBeforeAnswer); });
    server_.Handle("/fails", [](const Request&) { return origin::CutAt(origin::kBeforeAnswer); });
    server_.Handle("/slow", [](const Request&) {
      Answer answer = origin::StallAt(1000);
      answer.body = std::string(3000000, 's');
      return answer;
    });
    server_.Handle("/drip", [](const Request&) {
      Answer answer;
      answer.body = std::string(3000000, 'd');
      answer.dripBytes = 100;
      answer.dripMs = 1;
      return answer;
    });
  }

  std::vector<State> States() {
    const auto isAsked = [this](const std::string& target) {
      return [this, target](Download*) {
        return server_.WaitForLog(
            [&](const std::vector<Request>& log) { return !log.empty() && log.back().target == target; });
      };
    };
    return {
        {"waiting for an answer", server_.Url("/silent"), isAsked("/silent")},
        {"receiving", server_.Url("/drip"), [](Download* d) { return d->WaitForCode(kOk); }},
        {"stalled", server_.Url("/slow"), [](Download* d) { return d->WaitForCode(kOk); }},
        {"stalled, whole resource", server_.Url("/slow"), [](Download* d) { return d->WaitForCode(kOk); }, true},
        {"paused", server_.Url("/media"),
         [this](Download* d) {
           return d->WaitForCode(kOk) && WaitUntil([&] { return server_.Log().back().target == "/media"; });
         }},
        {"between attempts", server_.Url("/fails"), isAsked("/fails")},
        {"connecting", full_.Url(), [this](Download*) { return log_.WaitFor("is to perform"); }},
        {"shaking hands", secure_.Url("/media"), [this](Download*) { return log_.WaitFor("is to perform"); }},
        {"just opened", server_.Url("/media"), [](Download*) { return true; }},
        {"refused", "nothing:", [](Download* d) { return d->WaitForCode(kFailed); }},
        {"ended", server_.Url("/fine"), [](Download* d) { return d->WaitForCode(kOk); }},
    };
  }

  void Enter(Download* download, const State& state) {
    server_.ClearLog();
    log_.Clear();
    // The pause between attempts lasts as long as the test.
    ZV_HttpBaseSetRetryDelay(download->Get(), 1000000000);
    ZV_HttpBaseSetNeedDownloadComplete(download->Get(), state.isWhole ? 0 : -1);
    download->Open(state.url);
    ASSERT_TRUE(state.await(download));
  }

  const FullPort full_;
  const origin::Server secure_{{.https = true, .port = 0, .stallHandshake = true}};
};

TEST_F(StopTest, CloseIsQuickInEveryStateAndTheNextDownloadIsItsOwn) {
  const origin::Resource fine = origin::PatternResource(3 * kSegLen + 5, 3);
  for (const int connections : {1, 4}) {
    Download download(connections, 3);
    for (const State& state : States()) {
      SCOPED_TRACE(state.name);
      Enter(&download, state);
      download.Close();
      const std::vector<int32_t> codes = download.Codes();
      char byte = 0;
      uint32_t n = 1;
      EXPECT_EQ(ZV_HttpBaseRead(download.Get(), &byte, 1, &n), 0);
      EXPECT_EQ(n, 0U);
      EXPECT_EQ(ZV_HttpBaseClose(download.Get()), -1);
      EXPECT_EQ(ZV_HttpBaseGetContentLength(download.Get()), -1);
      EXPECT_EQ(download.Codes(), codes);
      download.Open(server_.Url("/fine"));
      EXPECT_EQ(download.ReadAll(fine), Right(fine.length));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
      download.Close();
    }
  }
}

TEST_F(StopTest, ReleaseWithoutCloseIsQuickInEveryStateAndReportsNothing) {
  for (const int connections : {1, 4}) {
    for (const State& state : States()) {
      SCOPED_TRACE(state.name);
      Download download(connections, 3);
      Enter(&download, state);
      const bool isSettled = std::string(state.name) != "just opened";
      const std::vector<int32_t> codes = download.Codes();
      download.Release();
      EXPECT_TRUE(!isSettled || download.Codes() == codes);
      EXPECT_EQ(download.Count(kFailed) + download.Count(kUnreachable), state.url == "nothing:" ? 1 : 0);
    }
  }
}

// The message callback holds the transfer where 302 was reported and 200 is about to be.
TEST_F(StopTest, NoCodeIsReportedOnceReleaseHasBegun) {
  server_.Handle("/start", [](const Request&) { return origin::Redirect("/fine"); });
  Download download;
  std::atomic<bool> isReleasing{false};
  download.onCode = [&](int32_t code) {
    if (code == kRedirected) {
      isReleasing = true;
      EXPECT_TRUE(log_.WaitFor("Release HttpBase["));
      // The line is logged just before Release sets its flag.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  };
  download.Open(server_.Url("/start"));
  ASSERT_TRUE(WaitUntil([&] { return isReleasing.load(); }));
  download.Release();
  EXPECT_THAT(download.Codes(), ElementsAre(kRedirected));
}

TEST_F(StopTest, OpenAndCloseAtOnceOverAndOverLeaveNothingOfEachOther) {
  const origin::Resource media = origin::PatternResource(kLong);
  const origin::Resource other = origin::PatternResource(kLong, 9);
  Download download(5);
  for (uint64_t i = 0; i < 60; ++i) {
    const bool odd = i % 2 == 1;
    download.Open(server_.Url(odd ? "/other" : "/media"));
    ASSERT_EQ(download.ReadSome(odd ? other : media, 0, i % 4 * 150000), "");
    download.Close();
    ASSERT_EQ(download.Count(kFailed) + download.Count(kUnreachable), 0);
    ASSERT_LE(download.Count(kOk), 1);
  }
}

TEST_F(StopTest, CloseFromAnotherThreadEndsAReadersWait) {
  Download download(2);
  download.Open(server_.Url("/slow"));
  ASSERT_TRUE(download.WaitForCode(kOk));
  std::thread closer([&] { download.Close(); });
  const std::string text = download.ReadText();
  closer.join();
  EXPECT_TRUE(text == std::string(text.size(), 's') && text.size() <= 1000) << text;
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
}

TEST_F(StopTest, AHandleThatWasNeverOpenedClosesOnce) {
  Download download;
  download.Close();
  EXPECT_EQ(ZV_HttpBaseClose(download.Get()), -1);
  EXPECT_TRUE(log_.Contains("Not open or already closed!"));
  download.Open(server_.Url("/fine"));
  EXPECT_EQ(download.ReadAll(origin::PatternResource(3 * kSegLen + 5, 3)), Right(3 * kSegLen + 5));
}

TEST_F(StopTest, OpenOnAnOpenHandleIsRefusedAndTheDownloadGoesOn) {
  Download download(2);
  download.Open(server_.Url("/fine"));
  EXPECT_EQ(ZV_HttpBaseOpen(download.Get(), server_.Url("/other").c_str()), -1);
  EXPECT_EQ(download.ReadAll(origin::PatternResource(3 * kSegLen + 5, 3)), Right(3 * kSegLen + 5));
  EXPECT_TRUE(server_.LogOf("/other").empty());
}

}  // namespace
}  // namespace flow
