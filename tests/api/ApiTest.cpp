// The exported functions, each with bad arguments and at the wrong time: its result and the very line that it logs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "LogCapture.h"
#include "Origin.h"
#include "ZVHttpBase.h"

namespace {

class ApiTest : public testing::Test {
 protected:
  ApiTest() : hb_(ZV_HttpBaseInit([](void*, int32_t) { return 0; }, nullptr)) { EXPECT_NE(nullptr, hb_); }
  ~ApiTest() override { ZV_HttpBaseRelease(&hb_); }

  const Watchdog watchdog_{120, "ApiTest"};
  const Leftovers leftovers_{fault_platform::LiveGauges()};
  HttpBase* hb_;
};

// One call, its result (0 where it has none) and the lines it writes: "level text", where {hb} stands for the handle,
// {null} for none and {f} for the function's name, which begins with ZV_HttpBase.
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

// As the log shows it.
std::string Address(void* pointer) {
  char text[32];
  snprintf(text, sizeof text, "%p", pointer);
  return text;
}

void CheckCall(const CallRow& row, HttpBase* hb) {
  const LogCapture log;
  EXPECT_EQ(row.result, row.call(hb)) << row.function;
  std::vector<std::string> expected;
  for (const std::string& line : row.lines) {
    const std::string handles = Replace(Replace(line, "{hb}", Address(hb)), "{null}", Address(nullptr));
    expected.push_back(Replace(handles, "{f}", std::string("ZV_HttpBase") + row.function));
  }
  std::vector<std::string> lines;
  for (const LogLine& line : log.Lines()) {
    lines.push_back(std::to_string(line.level) + " " + line.text);
    EXPECT_EQ("ZVLib-ZVHttpBase src/ZVHttpBase", line.tag + " " + line.path);
    EXPECT_GT(line.line, 0);
  }
  EXPECT_EQ(expected, lines) << row.function;
}

// A call on the test's handle. Results that are pointers count as 0 when null, else 1.
template <typename Function, typename... Arguments>
std::function<int64_t(HttpBase*)> On(Function function, Arguments... arguments) {
  return [=](HttpBase* hb) -> int64_t {
    using Result = decltype(function(hb, arguments...));
    if constexpr (std::is_void_v<Result>) {
      function(hb, arguments...);
      return 0;
    } else if constexpr (std::is_pointer_v<Result>) {
      return function(hb, arguments...) != nullptr ? 1 : 0;
    } else {
      return function(hb, arguments...);
    }
  };
}

template <typename Function, typename... Arguments>
std::function<int64_t(HttpBase*)> OnNull(Function function, Arguments... arguments) {
  return [call = On(function, arguments...)](HttpBase*) { return call(nullptr); };
}

const std::vector<std::string> kParams = {"2 {f}: Invalid input params!"};
const std::vector<std::string> kParameter = {"2 {f}: Invalid input parameter!"};

TEST_F(ApiTest, NullHandlesAreRefusedWithTheFunctionsOwnLine) {
  char* value = nullptr;
  HttpBase* none = nullptr;
  const auto init = [](HttpBase*) { return ZV_HttpBaseInit(nullptr, nullptr) == nullptr ? 0 : 1; };
  const auto release = [&](HttpBase*) { return ZV_HttpBaseRelease(&none), 0; };
  const auto releaseNull = [](HttpBase*) { return ZV_HttpBaseRelease(nullptr), 0; };
  const CallRow rows[] = {
      {"Init", init, 0, {"0 {f}: Init HttpBase."}},
      {"Open", OnNull(ZV_HttpBaseOpen, "http://x"), -1, {"0 {f}: Open HttpBase[{null}]"}},
      {"Read", OnNull(ZV_HttpBaseRead, nullptr, 0U, nullptr), -1, {}},
      {"Close", OnNull(ZV_HttpBaseClose), -1, {"0 {f}: Close HttpBase[{null}]", kParameter[0]}},
      {"Release", release, 0, {"0 {f}: Release HttpBase[{null}]", kParameter[0]}},
      {"Release", releaseNull, 0, {"0 {f}: Release HttpBase[{null}]", kParameter[0]}},
      {"GetOpenFlag", OnNull(ZV_HttpBaseGetOpenFlag), -1, {}},
      {"GetDownSpeed", OnNull(ZV_HttpBaseGetDownSpeed), -1, kParams},
      {"GetRedirectURL", OnNull(ZV_HttpBaseGetRedirectURL), 0, kParams},
      {"GetContentLength", OnNull(ZV_HttpBaseGetContentLength), -1, kParams},
      {"SetRange", OnNull(ZV_HttpBaseSetRange, 1, 2), 0, kParams},
      {"SetNeedDownloadComplete", OnNull(ZV_HttpBaseSetNeedDownloadComplete, 0), 0, kParams},
      {"SetUserAgent", OnNull(ZV_HttpBaseSetUserAgent, "a"), 0, kParams},
      {"CleanUserAgent", OnNull(ZV_HttpBaseCleanUserAgent), 0, kParams},
      {"SetDevice", OnNull(ZV_HttpBaseSetDevice, "lo"), 0, kParameter},
      {"CleanDevice", OnNull(ZV_HttpBaseCleanDevice), 0, {}},
      {"SetReqHeader", OnNull(ZV_HttpBaseSetReqHeader, "A: b"), 0, kParameter},
      {"CleanReqHeader", OnNull(ZV_HttpBaseCleanReqHeader), 0, {}},
      {"SetRespKey", OnNull(ZV_HttpBaseSetRespKey, "A"), 0, kParameter},
      {"CleanRespKey", OnNull(ZV_HttpBaseCleanRespKey), 0, {}},
      {"GetRespbyKey", OnNull(ZV_HttpBaseGetRespbyKey, "A", &value), 0, kParameter},
      {"SetRetryTimes", OnNull(ZV_HttpBaseSetRetryTimes, 1), 0, kParameter},
      {"SetRetryDelay", OnNull(ZV_HttpBaseSetRetryDelay, 1), 0, kParameter},
      {"SetDownloadType", OnNull(ZV_HttpBaseSetDownloadType, 1), 0, kParameter},
      {"SetNetMonitor", OnNull(ZV_HttpBaseSetNetMonitor, 1), 0, kParams},
      {"SetDownloadThreadNum", OnNull(ZV_HttpBaseSetDownloadThreadNum, 1), -1, kParams},
      {"SetDownloadSegLen", OnNull(ZV_HttpBaseSetDownloadSegLen, 500000), -1, kParams},
      {"SetMsgCallBack", OnNull(ZV_HttpBaseSetMsgCallBack, nullptr), 0, kParams},
  };
  for (const CallRow& row : rows) {
    CheckCall(row, hb_);
  }
}

TEST_F(ApiTest, BadArgumentsAreRefusedAndGoodOnesLogged) {
  char bytes[4];
  uint32_t count = 0;
  char* value = nullptr;
  const std::string needed = "0 {f}: hb is {hb}, needDownloadComplete set to 0.";
  const CallRow rows[] = {
      {"Open", On(ZV_HttpBaseOpen, nullptr), -1, {"0 {f}: Open HttpBase[{hb}]"}},
      {"Read", On(ZV_HttpBaseRead, nullptr, 4, &count), -1, {}},
      {"Read", On(ZV_HttpBaseRead, bytes, 0, &count), -1, {}},
      {"Read", On(ZV_HttpBaseRead, bytes, 4, nullptr), -1, {}},
      {"SetDevice", On(ZV_HttpBaseSetDevice, nullptr), 0, kParameter},
      {"SetReqHeader", On(ZV_HttpBaseSetReqHeader, nullptr), 0, kParameter},
      {"SetRespKey", On(ZV_HttpBaseSetRespKey, nullptr), 0, kParameter},
      {"GetRespbyKey", On(ZV_HttpBaseGetRespbyKey, nullptr, &value), 0, kParameter},
      {"GetRespbyKey", On(ZV_HttpBaseGetRespbyKey, "A", nullptr), 0, kParameter},
      {"GetRespbyKey", On(ZV_HttpBaseGetRespbyKey, "A", &value), 0, {}},
      {"SetDownloadType", On(ZV_HttpBaseSetDownloadType, 2), 0, kParameter},
      {"SetDownloadType", On(ZV_HttpBaseSetDownloadType, -1), 0, kParameter},
      {"SetUserAgent", On(ZV_HttpBaseSetUserAgent, nullptr), 0, {}},
      {"SetRange", On(ZV_HttpBaseSetRange, 5, INT64_MAX), 0, {"0 {f}: range is set[5, 9223372036854775807] "}},
      {"SetNeedDownloadComplete", On(ZV_HttpBaseSetNeedDownloadComplete, 0), 0, {needed}},
      {"GetContentLength", On(ZV_HttpBaseGetContentLength), -1, {"2 {f}: content-length = -1!"}},
      {"GetDownSpeed", On(ZV_HttpBaseGetDownSpeed), 0, {}},
      {"GetRedirectURL", On(ZV_HttpBaseGetRedirectURL), 0, {}},
      {"GetOpenFlag", On(ZV_HttpBaseGetOpenFlag), -1, {}},
  };
  for (const CallRow& row : rows) {
    CheckCall(row, hb_);
  }
  EXPECT_EQ(nullptr, value);
}

TEST_F(ApiTest, ConnectionsAndRangeLengthsStayWithinTheirBounds) {
  const auto threads = [](int32_t n) { return On(ZV_HttpBaseSetDownloadThreadNum, n); };
  const auto segLen = [](int32_t n) { return On(ZV_HttpBaseSetDownloadSegLen, n); };
  const std::string threadRange = "{f}: Invalid thread number, range should be [1 - 5], ";
  const std::string few = "3 " + threadRange + "value[4] will not change!";
  const std::string many = "2 " + threadRange + "maximum value[5] of httpbase[{hb}] will be set!";
  const std::string length = "2 {f}: Invalid segment length, range should be [204800 - 716800], ";
  const std::string least = length + "minimum value[204800] of httpbase[{hb}] will be set!";
  const std::string most = length + "maximum value[716800] of httpbase[{hb}] will be set!";
  const std::string isSet = "0 {f}: Httpbase[{hb}] download segment length is set to ";
  const CallRow rows[] = {
      {"SetDownloadThreadNum", threads(4), 0, {"0 {f}: Httpbase[{hb}] download thread number is set[4] "}},
      {"SetDownloadThreadNum", threads(0), -1, {few}},
      {"SetDownloadThreadNum", threads(INT32_MIN), -1, {few}},
      {"SetDownloadThreadNum", threads(6), 0, {many}},
      {"SetDownloadThreadNum", threads(INT32_MAX), 0, {many}},
      {"SetDownloadSegLen", segLen(204800), 0, {isSet + "204800 bytes "}},
      {"SetDownloadSegLen", segLen(716800), 0, {isSet + "716800 bytes "}},
      {"SetDownloadSegLen", segLen(204799), 0, {least, isSet + "204799 bytes "}},
      {"SetDownloadSegLen", segLen(716801), 0, {most, isSet + "716801 bytes "}},
  };
  for (const CallRow& row : rows) {
    CheckCall(row, hb_);
  }
}

TEST_F(ApiTest, WhatComesAtTheWrongTimeIsRefusedWithItsLine) {
  char bytes[10];
  uint32_t count = 7;
  const std::string busy = "2 {f}: Another download is processing, please closed it!";
  const std::string ended = "2 {f}: Libcurl is cloesd, Read 0 bytes of hb[{hb}], finish";
  EXPECT_EQ(1, ZV_HttpBaseRead(hb_, bytes, sizeof bytes, &count));
  EXPECT_EQ(0U, count);
  EXPECT_EQ(0, ZV_HttpBaseClose(hb_));
  CheckCall({"Close", On(ZV_HttpBaseClose), -1, {"0 {f}: Close HttpBase[{hb}]", "2 {f}: Not open or already closed!"}},
            hb_);
  count = 7;
  CheckCall({"Read", On(ZV_HttpBaseRead, bytes, sizeof bytes, &count), 0, {ended}}, hb_);
  EXPECT_EQ(0U, count);
  EXPECT_EQ(-1, ZV_HttpBaseGetDownSpeed(hb_));
  EXPECT_EQ(0, ZV_HttpBaseOpen(hb_, "none://"));
  ASSERT_TRUE(WaitUntil([&] { return ZV_HttpBaseRead(hb_, bytes, sizeof bytes, &count) == 0; }));
  CheckCall({"Open", On(ZV_HttpBaseOpen, "none://"), -1, {"0 {f}: Open HttpBase[{hb}]", busy}}, hb_);
  EXPECT_EQ(0, ZV_HttpBaseClose(hb_));
}

// The lines of one life, in their order; others stand between them.
TEST_F(ApiTest, ALifeLeavesItsTrace) {
  origin::Server server;
  server.Put("/a", origin::PatternResource(10));
  const std::string url = server.Url("/a");
  const LogCapture log;
  HttpBase* hb = ZV_HttpBaseInit([](void*, int32_t) { return 0; }, nullptr);
  char handle[32];
  snprintf(handle, sizeof handle, "%p", static_cast<void*>(hb));
  ZV_HttpBaseOpen(hb, url.c_str());
  char bytes[20];
  uint32_t count = 0;
  ASSERT_TRUE(WaitUntil([&] { return ZV_HttpBaseRead(hb, bytes, sizeof bytes, &count) == 0; }));
  ZV_HttpBaseClose(hb);
  ZV_HttpBaseRelease(&hb);
  const std::string lines[] = {
      "ZV_HttpBaseInit: Init HttpBase.",
      "ZV_HttpBaseInit: Init httpBase OK[{hb}]",
      "ZV_HttpBaseOpen: Open HttpBase[{hb}]",
      "ZVIner_MonitorThreadFunc: Monitor thread of httpbase[{hb}] get signal, 1 threads is waiting to perform url:{url}, range[-1 - -1]...",
      "ZVIner_ServiceThreadFunc: Thread[0] is to perform range[-1--1], url:{url}",
      "ZVIner_HeaderCallback, HTTP/1.1 200 OK",
      "ZVIner_GetContentLengthAndAllocRingBuffer: Get file contentLength:10.000000 of url[{url}]",
      "ZVIner_StreamCallback: Response code callback, code=200",
      "ZVIner_ServiceThreadFunc: Thread[0] perform result:0, range[-1--1], url:{url}",
      "ZVIner_SingleServiceThreadDistribution: Single thread download[{url}] finish.",
      "ZVIner_MonitorThreadFunc: Monitor thread of httpbase[{hb}] finish download url:{url}, range[-1 - -1], waiting for task signal...",
      "ZV_HttpBaseClose: Threads of httpbase[{hb}] stoped!",
      "ZV_HttpBaseClose: Close HttpBase[{hb}] finish",
      "ZV_HttpBaseRelease: Release HttpBase[{hb}]",
      "ZV_HttpBaseRelease: Release HttpBase[{hb}] finish"};
  EXPECT_TRUE(log.Contains("ZVIner_SingleServiceThreadDistribution: Notify thread 0 to download url:" + url));
  EXPECT_TRUE(log.Contains("ZV_HttpBaseRead: Read finish, url[" + url + "], range[-1 - -1]"));
  const std::string text = log.Text();
  size_t at = 0;
  for (const std::string& line : lines) {
    const std::string expected = Replace(Replace(line, "{hb}", handle), "{url}", url);
    at = text.find(expected, at);
    ASSERT_NE(std::string::npos, at) << expected << "\nis not where it should be in\n" << text;
  }
}

}  // namespace
