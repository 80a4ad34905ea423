// What the setters put into requests and what answers put into the getters; calls from callbacks.
#include "Download.h"
#include "ZVBase.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;

class SettingsTest : public FlowTest {
 protected:
  // Downloads /media once and gives its request.
  Request Ask(Download* download) {
    const origin::Resource media = Put("/media", 1000);
    server_.ClearLog();
    download->Open(server_.Url("/media"));
    EXPECT_EQ(download->ReadAll(media), Right(1000));
    EXPECT_EQ(ZV_HttpBaseClose(download->Get()), 0);
    return server_.Log().empty() ? Request{} : server_.Log().back();
  }

  static int CountOf(const Request& request, const std::string& name) {
    int count = 0;
    for (const auto& header : request.headers) {
      count += header.first == name ? 1 : 0;
    }
    return count;
  }

  static std::string ValueOf(Download* download, const char* key) {
    char* value = nullptr;
    ZV_HttpBaseGetRespbyKey(download->Get(), key, &value);
    const std::string copy = value == nullptr ? "(null)" : value;
    ZV_Free(&value);
    return copy;
  }
};

TEST_F(SettingsTest, RequestsCarryTheDefaultsAndWhatWasAdded) {
  Download download;
  Request request = Ask(&download);
  EXPECT_EQ(request.Header("User-Agent"), "ZOVEX/1.0");
  EXPECT_EQ(request.Header("Connection"), "keep-alive");
  EXPECT_EQ(request.Header("DownLoadRate"), "20000.0");
  EXPECT_EQ(request.Header("Accept-Encoding"), "gzip");

  ZV_HttpBaseSetUserAgent(download.Get(), "player/7");
  ZV_HttpBaseSetReqHeader(download.Get(), "X-One: 1");
  ZV_HttpBaseSetReqHeader(download.Get(), "X-Two: 2");
  ZV_HttpBaseSetReqHeader(download.Get(), "X-Two: 2");
  for (int i = 0; i < 2; ++i) {  // they outlive Close
    request = Ask(&download);
    EXPECT_EQ(request.Header("User-Agent"), "player/7");
    EXPECT_EQ(request.Header("X-One"), "1");
    EXPECT_EQ(CountOf(request, "X-Two"), 2);
    EXPECT_EQ(request.Header("DownLoadRate"), "20000.0");
  }
  ZV_HttpBaseCleanReqHeader(download.Get());
  ZV_HttpBaseSetUserAgent(download.Get(), nullptr);
  request = Ask(&download);
  EXPECT_EQ(request.Header("User-Agent"), "ZOVEX/1.0");
  EXPECT_EQ(CountOf(request, "X-One") + CountOf(request, "X-Two"), 0);
  EXPECT_EQ(CountOf(request, "Connection"), 1);
}

TEST_F(SettingsTest, HeadersMayChangeWhileRequestsAreUnderWay) {
  const origin::Resource media = Put("/media", 20 * kSegLen);
  Download download(5);
  download.Open(server_.Url("/media"));
  for (int i = 0; i < 200; ++i) {
    ZV_HttpBaseSetReqHeader(download.Get(), "X-More: of them");
    ZV_HttpBaseCleanReqHeader(download.Get());
    ZV_HttpBaseSetUserAgent(download.Get(), i % 2 == 0 ? "a" : "b");
    ASSERT_EQ(download.ReadSome(media, static_cast<uint64_t>(i) * 10000, 10000), "");
  }
  EXPECT_EQ(download.ReadAll(media, 2000000), Right(media.length - 2000000));
}

TEST_F(SettingsTest, ADeviceThatDoesNotExistFailsTheTransfer) {
  Download download;
  ZV_HttpBaseSetDevice(download.Get(), "nodevice0");
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadText(), "");
  EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
  EXPECT_EQ(server_.RequestCount(), 0);
  download.Close();
  std::vector<const char*> devices = {"127.0.0.1"};
#if defined(__linux__)
  devices.push_back("lo");  // Elsewhere only addresses are known.
#endif
  for (const char* const device : devices) {
    ZV_HttpBaseSetDevice(download.Get(), device);
    Ask(&download);
  }
  ZV_HttpBaseCleanDevice(download.Get());
  Ask(&download);
}

TEST_F(SettingsTest, TheRangeAndTheWholeResourceAreSetForOneDownload) {
  Download download;
  ZV_HttpBaseSetRange(download.Get(), 0, 999);
  EXPECT_EQ(Ask(&download).range, "bytes=0-999");
  EXPECT_EQ(Ask(&download).range, "");
  ZV_HttpBaseSetNeedDownloadComplete(download.Get(), 0);
  ZV_HttpBaseSetRange(download.Get(), 0, -1);
  EXPECT_EQ(Ask(&download).range, "");
  ZV_HttpBaseSetRange(download.Get(), 0, -1);
  EXPECT_EQ(Ask(&download).range, "bytes=0-");
}

TEST_F(SettingsTest, ResponseHeadersAreKeptByKey) {
  const origin::Resource media = Put("/media", 100);
  Answer answer;
  answer.headers = {{"ETag", "\"abc\""}, {"X-Empty", ""},      {"X-Blank", "  padded"},
                    {"x-lower", "l"},    {"X-Twice", "first"}, {"X-Twice", "last"}};
  for (const bool isBare : {false, true}) {
    answer.bareLf = isBare;
    server_.Handle("/media", [answer](const Request&) { return answer; });
    Download download;
    for (const char* const key : {"ETag", "X-Empty", "X-Blank", "X-LOWER", "X-Twice", "X-Missing", "ETag"}) {
      ZV_HttpBaseSetRespKey(download.Get(), key);
      EXPECT_EQ(ValueOf(&download, key), "(null)");
    }
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media), Right(100));
    EXPECT_EQ(ValueOf(&download, "ETag"), "\"abc\"");
    EXPECT_EQ(ValueOf(&download, "X-Empty"), "");
    EXPECT_EQ(ValueOf(&download, "X-Blank"), "padded");
    EXPECT_EQ(ValueOf(&download, "X-LOWER"), "l");
    EXPECT_EQ(ValueOf(&download, "X-Twice"), "last");
    EXPECT_EQ(ValueOf(&download, "X-Missing"), "(null)");
    EXPECT_EQ(ValueOf(&download, "etag"), "(null)");
    download.Close();
    EXPECT_EQ(ValueOf(&download, "ETag"), "(null)");
  }
}

TEST_F(SettingsTest, AHeaderWithoutABlankBehindItsColonLosesNothing) {
  server_.Handle("/media", [](const Request&) {
    return origin::Raw("HTTP/1.1 200 OK\r\nContent-Length:3\r\nETag:abc\r\nX-No:\r\n\r\nabc");
  });
  Download download;
  ZV_HttpBaseSetRespKey(download.Get(), "ETag");
  ZV_HttpBaseSetRespKey(download.Get(), "X-No");
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadText(), "abc");
  EXPECT_EQ(ValueOf(&download, "ETag"), "abc");
  EXPECT_EQ(ValueOf(&download, "X-No"), "");
}

TEST_F(SettingsTest, TheSpeedIsThatOfTheRunningDownloadThenOfTheLast) {
  const origin::Resource media = Put("/media", 3000000);
  Download download;
  EXPECT_EQ(ZV_HttpBaseGetDownSpeed(download.Get()), 0);
  for (int i = 0; i < 2; ++i) {
    auto gate = std::make_shared<origin::Gate>();
    Answer answer;
    answer.gate = gate;
    server_.Script("/media", {answer});
    download.Open(server_.Url("/media"));
    ASSERT_TRUE(gate->AwaitWaiting(1));
    EXPECT_EQ(ZV_HttpBaseGetDownSpeed(download.Get()), 0);
    gate->Open();
    EXPECT_EQ(download.ReadAll(media), Right(media.length));
    const int32_t speed = ZV_HttpBaseGetDownSpeed(download.Get());
    EXPECT_GT(speed, 0);
    EXPECT_EQ(ZV_HttpBaseGetDownSpeed(download.Get()), speed);
    download.Close();
    EXPECT_EQ(ZV_HttpBaseGetDownSpeed(download.Get()), -1);
  }
}

class CallbackTest : public FlowTest {
 protected:
  // Calls everything that a callback may call, and what it may not.
  void CallEverything(Download* download) {
    HttpBase* hb = download->Get();
    EXPECT_EQ(ZV_HttpBaseOpen(hb, server_.Url("/media").c_str()), -1);
    EXPECT_EQ(ZV_HttpBaseClose(hb), -1);
    ZV_HttpBaseRelease(&hb);
    EXPECT_EQ(hb, download->Get());
    EXPECT_EQ(ZV_HttpBaseGetOpenFlag(hb), 0);
    ZV_HttpBaseGetDownSpeed(hb);
    ZV_HttpBaseGetRedirectURL(hb);
    ZV_HttpBaseGetContentLength(hb);
    ZV_HttpBaseSetRange(hb, -1, -1);
    ZV_HttpBaseSetNeedDownloadComplete(hb, -1);
    ZV_HttpBaseSetUserAgent(hb, "callback");
    ZV_HttpBaseCleanUserAgent(hb);
    ZV_HttpBaseSetDevice(hb, "lo");
    ZV_HttpBaseCleanDevice(hb);
    ZV_HttpBaseSetReqHeader(hb, "X-Callback: 1");
    ZV_HttpBaseCleanReqHeader(hb);
    ZV_HttpBaseCleanRespKey(hb);
    ZV_HttpBaseSetRespKey(hb, "ETag");
    char* value = nullptr;
    ZV_HttpBaseGetRespbyKey(hb, "ETag", &value);
    ZV_Free(&value);
    ZV_HttpBaseSetRetryTimes(hb, 1);
    ZV_HttpBaseSetRetryDelay(hb, 0);
    ZV_HttpBaseSetDownloadType(hb, 0);
    ZV_HttpBaseSetNetMonitor(hb, 0);
    ZV_HttpBaseSetDownloadThreadNum(hb, 3);
    ZV_HttpBaseSetDownloadSegLen(hb, kSegLen);
    download->AskAboutRetries();
    char byte = 0;
    uint32_t n = 0;
    EXPECT_NE(ZV_HttpBaseRead(hb, &byte, 1, &n), -1);
    calls_.fetch_add(1);
  }

  std::atomic<int> calls_{0};
};

TEST_F(CallbackTest, EveryCallbackMayCallEverythingButOpenCloseAndRelease) {
  Put("/media", 4 * kSegLen);
  server_.Handle("/start", [](const Request&) { return origin::Redirect("/media"); });
  server_.Handle("/missing", [](const Request&) { return origin::Status(404); });
  server_.Handle("/gone", [](const Request&) { return origin::Status(410); });
  server_.Handle("/fails", [](const Request&) { return origin::CutAt(origin::kBeforeAnswer); });
  struct {
    std::string url;
    int32_t code;
  } const rows[] = {{server_.Url("/media"), kOk},     {server_.Url("/start"), kRedirected},
                    {server_.Url("/missing"), 404},   {server_.Url("/gone"), kUnreachable},
                    {server_.Url("/fails"), kFailed}, {"none://", kFailed}};
  for (const auto& row : rows) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(row.url);
      Download download(connections, 1);
      calls_ = 0;
      download.onCode = [&](int32_t) { CallEverything(&download); };
      download.onRetry = [&](int) {
        CallEverything(&download);
        return 0;
      };
      download.AskAboutRetries();
      download.Open(row.url);
      download.ReadText();
      EXPECT_GE(download.Count(row.code), 1);
      EXPECT_EQ(calls_.load(), static_cast<int>(download.Codes().size()) + download.RetryQuestions());
      EXPECT_GE(log_.Count("Called from a callback", 2), 3 * calls_.load());
    }
  }
}

TEST_F(CallbackTest, ACallbackMayUseAnotherHandle) {
  const origin::Resource media = Put("/media", 1000);
  Download inner;
  Download outer;
  outer.onCode = [&](int32_t) {
    inner.Open(server_.Url("/media"));
    EXPECT_EQ(inner.ReadAll(media), Right(1000));
    inner.Close();
  };
  outer.Open(server_.Url("/media"));
  EXPECT_EQ(outer.ReadAll(media), Right(1000));
  EXPECT_THAT(inner.Codes(), ElementsAre(kOk));
}

}  // namespace
}  // namespace flow
