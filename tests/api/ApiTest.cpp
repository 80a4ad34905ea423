// The exported functions: what each does with bad arguments and says about it, the life of a handle, what lasts and what
// Close resets.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "LogCapture.h"
#include "LumLog.h"
#include "Origin.h"
#include "ZVBase.h"
#include "ZVHttpBase.h"

namespace {

constexpr uint64_t kMediaBytes = 700000;
constexpr char kRefused[] = "Called from a callback of HttpBase[";

class ApiTest : public testing::Test {
 protected:
  ApiTest() {
    hb_ = ZV_HttpBaseInit(OnMessage, this);
    EXPECT_NE(nullptr, hb_);
  }
  ~ApiTest() override {
    ZV_HttpBaseRelease(&hb_);
    EXPECT_EQ(nullptr, hb_);
  }

  static int32_t OnMessage(void* self, int32_t code) {
    ApiTest* const test = static_cast<ApiTest*>(self);
    if (test->onCode_) {
      test->onCode_(code);
    }
    const std::lock_guard<std::mutex> guard(test->mutex_);
    test->codes_.push_back(code);
    return 0;
  }

  std::vector<int32_t> TakeCodes() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::move(codes_);
  }

  // Reads to the end; the number of bytes, which must be those of the pattern from position first on.
  uint64_t ReadAll(uint64_t first = 0) {
    std::vector<char> block(100000);
    uint64_t total = 0;
    EXPECT_TRUE(WaitUntil(
        [&] {
          uint32_t count = 0;
          int32_t result = 1;
          do {
            result = ZV_HttpBaseRead(hb_, block.data(), static_cast<uint32_t>(block.size()), &count);
            EXPECT_TRUE(origin::CheckPattern(block.data(), first + total, count)) << "at " << total;
            total += count;
          } while (result == 1 && count > 0);
          return result == 0;
        },
        60000));
    return total;
  }

  const Watchdog watchdog_{120, "ApiTest"};
  const Leftovers leftovers_{fault_platform::LiveGauges()};
  std::mutex mutex_;
  std::vector<int32_t> codes_;  // under mutex_
  std::function<void(int32_t)> onCode_;
  HttpBase* hb_ = nullptr;
};

// One call, its result (0 where it has none) and the lines it writes: "level text", {hb} standing for the handle and
// {f} for the function's name.
struct CallRow {
  const char* function;
  std::function<int64_t(HttpBase*)> call;
  int64_t result;
  std::vector<std::string> lines;
};

std::string Replace(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

void CheckCall(const CallRow& row, HttpBase* hb) {
  const LogCapture log;
  EXPECT_EQ(row.result, row.call(hb)) << row.function;
  char handle[32];
  snprintf(handle, sizeof handle, "%p", static_cast<void*>(hb));
  std::vector<std::string> expected;
  for (const std::string& line : row.lines) {
    expected.push_back(Replace(Replace(line, "{hb}", handle), "{f}", row.function));
  }
  std::vector<std::string> lines;
  for (const LogLine& line : log.Lines()) {
    lines.push_back(std::to_string(line.level) + " " + line.text);
    EXPECT_EQ("ZVLib-ZVHttpBase src/ZVHttpBase", line.tag + " " + line.path);
    EXPECT_GT(line.line, 0);
  }
  EXPECT_EQ(expected, lines) << row.function;
}

// A call whose result nobody reads.
template <typename Function, typename... Arguments>
std::function<int64_t(HttpBase*)> OnNull(Function function, Arguments... arguments) {
  return [=](HttpBase*) {
    if constexpr (std::is_void_v<decltype(function(nullptr, arguments...))>) {
      function(nullptr, arguments...);
      return int64_t{0};
    } else {
      return static_cast<int64_t>(function(nullptr, arguments...));
    }
  };
}

TEST_F(ApiTest, NullHandlesAreRefusedWithTheFunctionsOwnLine) {
  static char* value = nullptr;
  const std::vector<std::string> params = {"2 {f}: Invalid input params!"};
  const std::vector<std::string> parameter = {"2 {f}: Invalid input parameter!"};
  const CallRow rows[] = {
      {"ZV_HttpBaseInit",
       [](HttpBase*) { return ZV_HttpBaseInit(nullptr, &value) == nullptr; },
       1,
       {"0 {f}: Init HttpBase."}},
      {"ZV_HttpBaseOpen", OnNull(ZV_HttpBaseOpen, "http://x"), -1, {"0 {f}: Open HttpBase[(nil)]"}},
      {"ZV_HttpBaseRead", OnNull(ZV_HttpBaseRead, nullptr, 0U, nullptr), -1, {}},
      {"ZV_HttpBaseClose", OnNull(ZV_HttpBaseClose), -1, {"0 {f}: Close HttpBase[(nil)]", parameter[0]}},
      {"ZV_HttpBaseRelease", OnNull(ZV_HttpBaseRelease), 0, {"0 {f}: Release HttpBase[(nil)]", parameter[0]}},
      {"ZV_HttpBaseGetOpenFlag", OnNull(ZV_HttpBaseGetOpenFlag), -1, {}},
      {"ZV_HttpBaseGetDownSpeed", OnNull(ZV_HttpBaseGetDownSpeed), -1, params},
      {"ZV_HttpBaseGetRedirectURL", [](HttpBase*) { return ZV_HttpBaseGetRedirectURL(nullptr) == nullptr; }, 1, params},
      {"ZV_HttpBaseGetContentLength", OnNull(ZV_HttpBaseGetContentLength), -1, params},
      {"ZV_HttpBaseSetRange", OnNull(ZV_HttpBaseSetRange, 1, 2), 0, params},
      {"ZV_HttpBaseSetNeedDownloadComplete", OnNull(ZV_HttpBaseSetNeedDownloadComplete, 0), 0, params},
      {"ZV_HttpBaseSetUserAgent", OnNull(ZV_HttpBaseSetUserAgent, "a"), 0, params},
      {"ZV_HttpBaseCleanUserAgent", OnNull(ZV_HttpBaseCleanUserAgent), 0, params},
      {"ZV_HttpBaseSetDevice", OnNull(ZV_HttpBaseSetDevice, "lo"), 0, parameter},
      {"ZV_HttpBaseCleanDevice", OnNull(ZV_HttpBaseCleanDevice), 0, {}},
      {"ZV_HttpBaseSetReqHeader", OnNull(ZV_HttpBaseSetReqHeader, "A: b"), 0, parameter},
      {"ZV_HttpBaseCleanReqHeader", OnNull(ZV_HttpBaseCleanReqHeader), 0, {}},
      {"ZV_HttpBaseSetRespKey", OnNull(ZV_HttpBaseSetRespKey, "A"), 0, parameter},
      {"ZV_HttpBaseCleanRespKey", OnNull(ZV_HttpBaseCleanRespKey), 0, {}},
      {"ZV_HttpBaseGetRespbyKey", OnNull(ZV_HttpBaseGetRespbyKey, "A", &value), 0, parameter},
      {"ZV_HttpBaseSetRetryTimes", OnNull(ZV_HttpBaseSetRetryTimes, 1), 0, parameter},
      {"ZV_HttpBaseSetRetryDelay", OnNull(ZV_HttpBaseSetRetryDelay, 1), 0, parameter},
      {"ZV_HttpBaseSetDownloadType", OnNull(ZV_HttpBaseSetDownloadType, 1), 0, parameter},
      {"ZV_HttpBaseSetNetMonitor", OnNull(ZV_HttpBaseSetNetMonitor, 1), 0, params},
      {"ZV_HttpBaseSetDownloadThreadNum", OnNull(ZV_HttpBaseSetDownloadThreadNum, 1), -1, params},
      {"ZV_HttpBaseSetDownloadSegLen", OnNull(ZV_HttpBaseSetDownloadSegLen, 500000), -1, params},
      {"ZV_HttpBaseSetMsgCallBack", OnNull(ZV_HttpBaseSetMsgCallBack, nullptr), 0, params},
  };
  EXPECT_EQ(27U, std::size(rows));
  for (const CallRow& row : rows) {
    CheckCall(row, hb_);
  }
}

TEST_F(ApiTest, BadArgumentsAreRefusedAndGoodOnesLogged) {
  static char bytes[4];
  static uint32_t count;
  static char* value = nullptr;
  static HttpBase* none = nullptr;
  const std::vector<std::string> parameter = {"2 {f}: Invalid input parameter!"};
  const CallRow rows[] = {
      {"ZV_HttpBaseOpen",
       [](HttpBase* hb) { return ZV_HttpBaseOpen(hb, nullptr); },
       -1,
       {"0 {f}: Open HttpBase[{hb}]"}},
      {"ZV_HttpBaseRead", [](HttpBase* hb) { return ZV_HttpBaseRead(hb, nullptr, 4, &count); }, -1, {}},
      {"ZV_HttpBaseRead", [](HttpBase* hb) { return ZV_HttpBaseRead(hb, bytes, 0, &count); }, -1, {}},
      {"ZV_HttpBaseRead", [](HttpBase* hb) { return ZV_HttpBaseRead(hb, bytes, 4, nullptr); }, -1, {}},
      {"ZV_HttpBaseRelease",
       [](HttpBase*) { return ZV_HttpBaseRelease(&none), 0; },
       0,
       {"0 {f}: Release HttpBase[(nil)]", parameter[0]}},
      {"ZV_HttpBaseSetDevice", [](HttpBase* hb) { return ZV_HttpBaseSetDevice(hb, nullptr), 0; }, 0, parameter},
      {"ZV_HttpBaseSetReqHeader", [](HttpBase* hb) { return ZV_HttpBaseSetReqHeader(hb, nullptr), 0; }, 0, parameter},
      {"ZV_HttpBaseSetRespKey", [](HttpBase* hb) { return ZV_HttpBaseSetRespKey(hb, nullptr), 0; }, 0, parameter},
      {"ZV_HttpBaseGetRespbyKey", [](HttpBase* hb) { return ZV_HttpBaseGetRespbyKey(hb, nullptr, &value), 0; }, 0,
       parameter},
      {"ZV_HttpBaseGetRespbyKey", [](HttpBase* hb) { return ZV_HttpBaseGetRespbyKey(hb, "A", nullptr), 0; }, 0,
       parameter},
      {"ZV_HttpBaseGetRespbyKey",
       [](HttpBase* hb) { return ZV_HttpBaseGetRespbyKey(hb, "A", &value), value != nullptr; },
       0,
       {}},
      {"ZV_HttpBaseSetDownloadType", [](HttpBase* hb) { return ZV_HttpBaseSetDownloadType(hb, 2), 0; }, 0, parameter},
      {"ZV_HttpBaseSetDownloadType", [](HttpBase* hb) { return ZV_HttpBaseSetDownloadType(hb, -1), 0; }, 0, parameter},
      {"ZV_HttpBaseSetUserAgent", [](HttpBase* hb) { return ZV_HttpBaseSetUserAgent(hb, nullptr), 0; }, 0, {}},
      {"ZV_HttpBaseSetRange",
       [](HttpBase* hb) { return ZV_HttpBaseSetRange(hb, 5, INT64_MAX), 0; },
       0,
       {"0 {f}: range is set[5, 9223372036854775807] "}},
      {"ZV_HttpBaseSetNeedDownloadComplete",
       [](HttpBase* hb) { return ZV_HttpBaseSetNeedDownloadComplete(hb, 0), 0; },
       0,
       {"0 {f}: hb is {hb}, needDownloadComplete set to 0."}},
      {"ZV_HttpBaseGetContentLength", ZV_HttpBaseGetContentLength, -1, {"2 {f}: content-length = -1!"}},
      {"ZV_HttpBaseGetDownSpeed", ZV_HttpBaseGetDownSpeed, 0, {}},
      {"ZV_HttpBaseGetOpenFlag", ZV_HttpBaseGetOpenFlag, -1, {}},
  };
  for (const CallRow& row : rows) {
    CheckCall(row, hb_);
  }
}

TEST_F(ApiTest, ConnectionsAndRangeLengthsStayWithinTheirBounds) {
  const auto threads = [](int32_t n) { return [n](HttpBase* hb) { return ZV_HttpBaseSetDownloadThreadNum(hb, n); }; };
  const auto segLen = [](int32_t n) { return [n](HttpBase* hb) { return ZV_HttpBaseSetDownloadSegLen(hb, n); }; };
  const std::string few = "3 {f}: Invalid thread number, range should be [1 - 5], value[4] will not change!";
  const std::string many =
      "2 {f}: Invalid thread number, range should be [1 - 5], maximum value[5] of httpbase[{hb}] will be set!";
  const std::string length = "2 {f}: Invalid segment length, range should be [204800 - 716800], ";
  const std::string isSet = "0 {f}: Httpbase[{hb}] download segment length is set to ";
  const CallRow rows[] = {
      {"ZV_HttpBaseSetDownloadThreadNum", threads(4), 0, {"0 {f}: Httpbase[{hb}] download thread number is set[4] "}},
      {"ZV_HttpBaseSetDownloadThreadNum", threads(0), -1, {few}},
      {"ZV_HttpBaseSetDownloadThreadNum", threads(INT32_MIN), -1, {few}},
      {"ZV_HttpBaseSetDownloadThreadNum", threads(6), 0, {many}},
      {"ZV_HttpBaseSetDownloadThreadNum", threads(INT32_MAX), 0, {many}},
      {"ZV_HttpBaseSetDownloadSegLen", segLen(204800), 0, {isSet + "204800 bytes "}},
      {"ZV_HttpBaseSetDownloadSegLen", segLen(716800), 0, {isSet + "716800 bytes "}},
      {"ZV_HttpBaseSetDownloadSegLen",
       segLen(204799),
       0,
       {length + "minimum value[204800] of httpbase[{hb}] will be set!", isSet + "204799 bytes "}},
      {"ZV_HttpBaseSetDownloadSegLen",
       segLen(716801),
       0,
       {length + "maximum value[716800] of httpbase[{hb}] will be set!", isSet + "716801 bytes "}},
  };
  for (const CallRow& row : rows) {
    CheckCall(row, hb_);
  }
}

TEST_F(ApiTest, TheRangeLengthOfADownloadIsTheBoundedOne) {
  const struct {
    int32_t given;
    const char* range;
  } rows[] = {{INT32_MIN, "bytes=0-204799"}, {300000, "bytes=0-299999"}, {INT32_MAX, "bytes=0-716799"}};
  origin::Server server;
  server.Put("/a", origin::PatternResource(kMediaBytes));
  ZV_HttpBaseSetDownloadThreadNum(hb_, 2);
  for (const auto& row : rows) {
    server.ClearLog();
    ZV_HttpBaseSetDownloadSegLen(hb_, row.given);
    ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
    EXPECT_EQ(kMediaBytes, ReadAll());
    ZV_HttpBaseClose(hb_);
    EXPECT_EQ(row.range, server.Log().at(0).range);
  }
}

TEST_F(ApiTest, AHandleIsClosedOnceAndOpenedOnce) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(kMediaBytes));
  const LogCapture log(LUM_LEVEL_ERROR);
  EXPECT_EQ(0, ZV_HttpBaseClose(hb_));
  EXPECT_EQ(-1, ZV_HttpBaseClose(hb_));
  EXPECT_EQ(1, log.Count("ZV_HttpBaseClose: Not open or already closed!", LUM_LEVEL_ERROR));
  EXPECT_EQ(0, ZV_HttpBaseOpen(hb_, server.Url("/a").c_str()));
  EXPECT_EQ(0, ZV_HttpBaseGetOpenFlag(hb_));
  EXPECT_EQ(-1, ZV_HttpBaseOpen(hb_, server.Url("/b").c_str()));
  EXPECT_EQ(1, log.Count("ZV_HttpBaseOpen: Another download is processing, please closed it!", LUM_LEVEL_ERROR));
  EXPECT_EQ(kMediaBytes, ReadAll());
  EXPECT_GE(ZV_HttpBaseGetDownSpeed(hb_), 0);
  EXPECT_EQ(static_cast<int64_t>(kMediaBytes), ZV_HttpBaseGetContentLength(hb_));
  EXPECT_EQ(0, ZV_HttpBaseClose(hb_));
  EXPECT_EQ(-1, ZV_HttpBaseClose(hb_));
  EXPECT_EQ(-1, ZV_HttpBaseGetOpenFlag(hb_));
  EXPECT_EQ(-1, ZV_HttpBaseGetDownSpeed(hb_));
  EXPECT_EQ(-1, ZV_HttpBaseGetContentLength(hb_));
  EXPECT_EQ(std::vector<int32_t>{200}, TakeCodes());
}

TEST_F(ApiTest, ReadAfterCloseGivesTheEndAndSaysWhy) {
  char bytes[10];
  uint32_t count = 7;
  EXPECT_EQ(1, ZV_HttpBaseRead(hb_, bytes, sizeof bytes, &count));
  EXPECT_EQ(0U, count);
  ZV_HttpBaseClose(hb_);
  count = 7;
  const CallRow row = {"ZV_HttpBaseRead",
                       [&](HttpBase* hb) { return ZV_HttpBaseRead(hb, bytes, sizeof bytes, &count); },
                       0,
                       {"2 {f}: Libcurl is cloesd, Read 0 bytes of hb[{hb}], finish"}};
  CheckCall(row, hb_);
  EXPECT_EQ(0U, count);
}

TEST_F(ApiTest, ReleaseWithoutCloseReportsNothing) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(kMediaBytes));
  server.Script("/a", {origin::StallAt(origin::kBeforeAnswer + 1)});
  ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
  ASSERT_TRUE(server.WaitForStalls(1));
  ZV_HttpBaseRelease(&hb_);
  EXPECT_EQ(std::vector<int32_t>{}, TakeCodes());
  hb_ = ZV_HttpBaseInit(OnMessage, this);
}

TEST_F(ApiTest, UrlsThatCannotBeFetchedFailOnceAndEnd) {
  ZV_HttpBaseSetRetryTimes(hb_, 0);
  const std::pair<std::string, int32_t> rows[] = {
      {"", ZV_HTTP_CODE_FAILED},
      {"http", ZV_HTTP_CODE_FAILED},
      {"http:/127.0.0.1/", ZV_HTTP_CODE_FAILED},
      {"ftp://127.0.0.1/", ZV_HTTP_CODE_FAILED},
      {"file:///etc/hosts", ZV_HTTP_CODE_FAILED},
      {" http://127.0.0.1/", ZV_HTTP_CODE_FAILED},
      {std::string(65536, 'x'), ZV_HTTP_CODE_FAILED},
      {"http://", ZV_HTTP_CODE_FAILED},
      {"http:///", ZV_HTTP_CODE_FAILED},
      {"http://127.0.0.1:99999/", ZV_HTTP_CODE_FAILED},
      {"https://127.0.0.1:0x/", ZV_HTTP_CODE_FAILED},
      {"http://127.0.0.1/a b c", ZV_HTTP_CODE_FAILED},
      {"http://127.0.0.1:1/", ZV_HTTP_CODE_UNREACHABLE},
      {"HTTP://127.0.0.1:1/" + std::string(65536, 'x'), ZV_HTTP_CODE_UNREACHABLE}};
  for (const auto& [url, code] : rows) {
    EXPECT_EQ(0, ZV_HttpBaseOpen(hb_, url.c_str()));
    EXPECT_EQ(0U, ReadAll());
    EXPECT_EQ(0, ZV_HttpBaseClose(hb_));
    EXPECT_EQ(std::vector<int32_t>{code}, TakeCodes()) << url.substr(0, 40);
  }
}

TEST_F(ApiTest, CloseResetsWhatBelongsToOneDownload) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(kMediaBytes));
  ZV_HttpBaseSetUserAgent(hb_, "Agent/7");
  ZV_HttpBaseSetReqHeader(hb_, "X-Extra: 1");
  ZV_HttpBaseSetDevice(hb_, "127.0.0.1");
  ZV_HttpBaseSetRespKey(hb_, "content-type");
  ZV_HttpBaseSetRange(hb_, 100, 299);
  ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
  EXPECT_EQ(200U, ReadAll(100));
  char* value = nullptr;
  ZV_HttpBaseGetRespbyKey(hb_, "content-type", &value);
  EXPECT_STREQ("application/octet-stream", value);
  ZV_Free(&value);
  ZV_HttpBaseClose(hb_);
  ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
  EXPECT_EQ(kMediaBytes, ReadAll());
  ZV_HttpBaseGetRespbyKey(hb_, "content-type", &value);
  EXPECT_EQ(nullptr, value);
  const std::vector<origin::Request> log = server.Log();
  ASSERT_EQ(2U, log.size());
  EXPECT_EQ("bytes=100-299", log[0].range);
  EXPECT_EQ("", log[1].range);
  EXPECT_EQ("Agent/7", log[1].Header("User-Agent"));
  EXPECT_EQ("1", log[1].Header("X-Extra"));
}

TEST_F(ApiTest, CleanBringsTheDefaultsBack) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(10));
  ZV_HttpBaseSetUserAgent(hb_, "Agent/7");
  ZV_HttpBaseSetReqHeader(hb_, "X-Extra: 1");
  ZV_HttpBaseSetDevice(hb_, "no such device");
  ZV_HttpBaseSetRespKey(hb_, "content-type");
  ZV_HttpBaseCleanUserAgent(hb_);
  ZV_HttpBaseCleanReqHeader(hb_);
  ZV_HttpBaseCleanDevice(hb_);
  ZV_HttpBaseCleanRespKey(hb_);
  ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
  EXPECT_EQ(10U, ReadAll());
  const origin::Request request = server.Log().at(0);
  EXPECT_EQ("ZOVEX/1.0", request.Header("User-Agent"));
  EXPECT_EQ("", request.Header("X-Extra"));
  EXPECT_EQ("keep-alive", request.Header("Connection"));
  EXPECT_EQ("20000.0", request.Header("DownLoadRate"));
  EXPECT_EQ("gzip", request.Header("Accept-Encoding"));
}

// All but the three that would wait for the very thread that calls.
void CallEverythingElse(HttpBase* hb) {
  char bytes[10];
  uint32_t count = 0;
  char* value = nullptr;
  EXPECT_GE(ZV_HttpBaseRead(hb, bytes, 0, &count), -1);
  EXPECT_EQ(0, ZV_HttpBaseGetOpenFlag(hb));
  EXPECT_GE(ZV_HttpBaseGetDownSpeed(hb), 0);
  EXPECT_EQ(nullptr, ZV_HttpBaseGetRedirectURL(hb));
  EXPECT_GE(ZV_HttpBaseGetContentLength(hb), -1);
  ZV_HttpBaseSetRange(hb, -1, -1);
  ZV_HttpBaseSetNeedDownloadComplete(hb, -1);
  ZV_HttpBaseSetUserAgent(hb, "a");
  ZV_HttpBaseCleanUserAgent(hb);
  ZV_HttpBaseSetDevice(hb, "lo");
  ZV_HttpBaseCleanDevice(hb);
  ZV_HttpBaseSetReqHeader(hb, "A: b");
  ZV_HttpBaseCleanReqHeader(hb);
  ZV_HttpBaseSetRespKey(hb, "A");
  ZV_HttpBaseGetRespbyKey(hb, "A", &value);
  ZV_HttpBaseCleanRespKey(hb);
  ZV_HttpBaseSetRetryTimes(hb, 0);
  ZV_HttpBaseSetRetryDelay(hb, 0);
  ZV_HttpBaseSetDownloadType(hb, 1);
  ZV_HttpBaseSetNetMonitor(hb, 1);
  EXPECT_EQ(0, ZV_HttpBaseSetDownloadThreadNum(hb, 2));
  EXPECT_EQ(0, ZV_HttpBaseSetDownloadSegLen(hb, 300000));
  ZV_HttpBaseSetMsgCallBack(hb, nullptr);
}

TEST_F(ApiTest, FromItsOwnCallbackAHandleCannotBeStartedOrStopped) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(kMediaBytes));
  const LogCapture log(LUM_LEVEL_ERROR);
  onCode_ = [this](int32_t) {
    HttpBase* hb = hb_;
    EXPECT_EQ(-1, ZV_HttpBaseOpen(hb, "http://127.0.0.1/"));
    EXPECT_EQ(-1, ZV_HttpBaseClose(hb));
    ZV_HttpBaseRelease(&hb);
    EXPECT_EQ(hb_, hb);
    CallEverythingElse(hb);
  };
  // Reported by a service thread, and by the monitor.
  ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
  EXPECT_EQ(kMediaBytes, ReadAll());
  ZV_HttpBaseClose(hb_);
  ZV_HttpBaseOpen(hb_, "ftp://x");
  EXPECT_EQ(0U, ReadAll());
  ZV_HttpBaseClose(hb_);
  EXPECT_EQ((std::vector<int32_t>{ZV_HTTP_CODE_OK, ZV_HTTP_CODE_FAILED}), TakeCodes());
  for (const char* name : {"ZV_HttpBaseOpen: ", "ZV_HttpBaseClose: ", "ZV_HttpBaseRelease: "}) {
    EXPECT_EQ(2, log.Count(std::string(name) + kRefused, LUM_LEVEL_ERROR)) << name;
  }
}

TEST_F(ApiTest, FromACallbackAnotherHandleMayBeUsed) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(kMediaBytes));
  onCode_ = [&](int32_t) {
    HttpBase* other = ZV_HttpBaseInit([](void*, int32_t) { return 0; }, nullptr);
    EXPECT_EQ(0, ZV_HttpBaseOpen(other, server.Url("/a").c_str()));
    EXPECT_EQ(0, ZV_HttpBaseClose(other));
    ZV_HttpBaseRelease(&other);
    EXPECT_EQ(nullptr, other);
  };
  ZV_HttpBaseOpen(hb_, server.Url("/a").c_str());
  EXPECT_EQ(kMediaBytes, ReadAll());
}

}  // namespace
