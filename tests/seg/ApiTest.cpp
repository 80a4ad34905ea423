// The exported functions by themselves: bad arguments, calls at the wrong time, direct mode, settings, streams.
#include <thread>

#include "SegPlayer.h"
#include "ZVBase.h"
#include "ZVHttpBaseSegCacheStream.h"

namespace seg {
namespace {

using testing::ElementsAre;

class ApiTest : public SegTest {};

TEST_F(ApiTest, NullArgumentsAreRefusedWithALine) {
  SegPlayer player;
  HttpBaseSegCache* const handle = player.Get();
  HttpBaseSegCache* none = nullptr;
  char buffer[10];
  char* noText = nullptr;
  uint32_t n = 0;
  const LocalCacheParam param = {40, "x"};
  const std::function<int64_t()> kRows[] = {
      [&] { return ZV_HttpBaseSegCacheOpen(none, "u"); },
      [&] { return ZV_HttpBaseSegCacheOpen(handle, nullptr); },
      [&] { return ZV_HttpBaseSegCacheRead(none, buffer, 10, &n); },
      [&] { return ZV_HttpBaseSegCacheRead(handle, nullptr, 10, &n); },
      [&] { return ZV_HttpBaseSegCacheRead(handle, buffer, 10, nullptr); },
      [&] { return ZV_HttpBaseSegCacheClose(none); },
      [&] { return ZV_HttpBaseSegCacheGetOpenFlag(none); },
      [&] { return ZV_HttpBaseSegCacheGetContentLength(none); },
      [&] { return ZV_HttpBaseSegCacheGetDownSpeed(none); },
      [&] { return -ZV_HttpBaseSegCacheAddSegment(none, "u", 1, 0, 0, 0, 0); },
      [&] { return -ZV_HttpBaseSegCacheAddSegment(handle, nullptr, 1, 0, 0, 0, 0); },
      [&] { return -ZV_HttpBaseSegCacheAddSegment(handle, "u", 1, 0, 0, 0, 0); },
      [&] { return ZV_HttpBaseSegCacheGetRedirectURL(none) == nullptr ? -1 : 0; },
      [&] { return ZV_HttpBaseSegCacheRelease(nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheRelease(&none), -1; },
      [&] { return ZV_HttpBaseSegCacheSetLocalCache(none, &param, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetLocalCache(handle, nullptr, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheCloseLocalCache(none), -1; },
      [&] { return ZV_HttpBaseSegCacheAbortCurrentCaching(none), -1; },
      [&] { return ZV_HttpBaseSegCacheResumeCaching(none), -1; },
      [&] { return ZV_HttpBaseSegCacheSetCacheStateCallback(none, [](void*, int32_t, int32_t) {}), -1; },
      [&] { return ZV_HttpBaseSegCacheSetCacheStateCallback(handle, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheSetList(none, buffer, 1, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheSetList(handle, nullptr, 1, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheSetList(handle, buffer, 1, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheUpdateTsUrlBySeq(none, "u", 0, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle, nullptr, 0, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle, "u", 0, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheSetThreadNumber(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetThreadNumber(handle, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheSetRange(none, 0, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheSetNeedDownloadComplete(none, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheSetHttpConnNum(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetHttpConnRangeSize(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetUserAgent(handle, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheCleanUserAgent(none), -1; },
      [&] { return ZV_HttpBaseSegCacheSetDevice(handle, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheCleanDevice(none), -1; },
      [&] { return ZV_HttpBaseSegCacheSetReqHeader(handle, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheCleanReqHeader(none), -1; },
      [&] { return ZV_HttpBaseSegCacheSetRespKey(handle, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheCleanRespKey(none), -1; },
      [&] { return ZV_HttpBaseSegCacheGetRespbyKey(handle, "k", nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheGetRespbyKey(handle, "k", &noText), -1; },
      [&] { return ZV_HttpBaseSegCacheSetRetryTimes(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetRetryDelay(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetDownloadType(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheSetNetMonitor(handle, 0), -1; },
  };
  for (const auto& row : kRows) {
    log_.Clear();
    EXPECT_EQ(row(), -1) << "row " << &row - kRows;
    EXPECT_EQ(log_.Count("", LUM_LEVEL_ERROR), 1) << "row " << &row - kRows << "\n" << log_.Text();
  }
}

TEST_F(ApiTest, StreamsRefuseNullArgumentsToo) {
  HttpBaseSegCacheStream* none = nullptr;
  HttpBaseSegCacheStream* stream = ZV_HttpBaseSegCacheStreamInit(nullptr, nullptr, 3);
  ASSERT_NE(stream, nullptr);
  char buffer[10];
  char* noText = nullptr;
  uint32_t n = 0;
  const std::function<int64_t()> kRows[] = {
      [&] { return ZV_HttpBaseSegCacheStreamOpen(none, "u"); },
      [&] { return ZV_HttpBaseSegCacheStreamOpen(stream, nullptr); },
      [&] { return ZV_HttpBaseSegCacheStreamClose(none); },
      [&] { return ZV_HttpBaseSegCacheStreamRead(none, buffer, 1, &n); },
      [&] { return ZV_HttpBaseSegCacheStreamRead(stream, nullptr, 1, &n); },
      [&] { return ZV_HttpBaseSegCacheStreamRead(stream, buffer, 1, nullptr); },
      [&] { return ZV_HttpBaseSegCacheStreamGetOpenFlag(none); },
      [&] { return ZV_HttpBaseSegCacheStreamGetDownSpeed(none); },
      [&] { return ZV_HttpBaseSegCacheStreamGetContentLength(none); },
      [&] { return ZV_HttpBaseSegCacheStreamGetRedirectURL(none) == nullptr ? -1 : 0; },
      [&] { return ZV_HttpBaseSegCacheStreamSetRange(none, 0, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetNeedDownloadComplete(none, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetUserAgent(stream, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamCleanUserAgent(none), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetDevice(stream, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamCleanDevice(none), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetReqHeader(stream, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamCleanReqHeader(none), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetRespKey(stream, nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamCleanRespKey(none), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamGetRespbyKey(stream, "k", &noText), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetRetryTimes(none, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetRetryDelay(none, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetDownloadType(none, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetNetMonitor(stream, 0), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetHttpConnNum(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamSetHttpConnRangeSize(none, 1), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamRelease(nullptr), -1; },
      [&] { return ZV_HttpBaseSegCacheStreamRelease(&none), -1; },
  };
  for (const auto& row : kRows) {
    log_.Clear();
    EXPECT_EQ(row(), -1) << "row " << &row - kRows;
    EXPECT_EQ(log_.Count("input params", LUM_LEVEL_ERROR), 1) << "row " << &row - kRows << "\n" << log_.Text();
  }
  ZV_HttpBaseSegCacheStreamRelease(&stream);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(ApiTest, AStreamTellsItsNumberWithEachCode) {
  const Segment segment = PutSegment(0, 1000);
  struct Heard {
    std::mutex mutex;
    std::vector<std::pair<int32_t, int32_t>> codes;
  } heard;
  const auto callback = [](void* userData, int32_t code, int32_t index) -> int32_t {
    Heard* const to = static_cast<Heard*>(userData);
    const std::lock_guard<std::mutex> guard(to->mutex);
    to->codes.emplace_back(code, index);
    return 0;
  };
  const auto size = [&heard] {
    const std::lock_guard<std::mutex> guard(heard.mutex);
    return heard.codes.size();
  };
  HttpBaseSegCacheStream* stream = ZV_HttpBaseSegCacheStreamInit(callback, &heard, 3);
  EXPECT_EQ(ZV_HttpBaseSegCacheStreamOpen(stream, Url(segment).c_str()), 0);
  EXPECT_TRUE(WaitUntil([&] { return size() == 1; }));
  char buffer[1000];
  uint32_t total = 0;
  EXPECT_TRUE(WaitUntil([&] {
    uint32_t n = 0;
    const int32_t result = ZV_HttpBaseSegCacheStreamRead(stream, buffer, sizeof buffer, &n);
    total += n;
    return result == 0;
  }));
  EXPECT_EQ(total, 1000u);
  EXPECT_EQ(ZV_HttpBaseSegCacheStreamClose(stream), 0);
  EXPECT_EQ(ZV_HttpBaseSegCacheStreamOpen(stream, "nonsense"), 0);
  EXPECT_TRUE(WaitUntil([&] { return size() == 2; }));
  ZV_HttpBaseSegCacheStreamRelease(&stream);
  EXPECT_THAT(heard.codes, ElementsAre(std::pair(kOk, 3), std::pair(kFailed, 3)));
}

TEST_F(ApiTest, WithoutTheLocalCacheAHandleIsADownloader) {
  const Segment segment = PutSegment(0, 700000);
  server_.Handle("/moved", [](const origin::Request&) { return origin::Redirect("/s0"); });
  SegPlayer player;
  HttpBaseSegCache* const handle = player.Get();
  EXPECT_EQ(ZV_HttpBaseSegCacheGetOpenFlag(handle), -1);
  ZV_HttpBaseSegCacheSetUserAgent(handle, "Agent/1");
  ZV_HttpBaseSegCacheSetReqHeader(handle, "X-Extra: 1");
  ZV_HttpBaseSegCacheSetRespKey(handle, "Content-Type");
  ZV_HttpBaseSegCacheSetHttpConnNum(handle, 2);
  ZV_HttpBaseSegCacheSetHttpConnRangeSize(handle, 204800);
  EXPECT_EQ(player.Open(server_.Url("/moved"), segment), 0);
  EXPECT_EQ(player.Open(server_.Url("/moved")), -1) << "open already";
  EXPECT_EQ(player.ReadAll(), "");
  EXPECT_EQ(player.Count(302) > 0 ? 1 : 0, 1);
  EXPECT_EQ(player.Count(kOk), 1);
  EXPECT_EQ(ZV_HttpBaseSegCacheGetContentLength(handle), 700000);
  EXPECT_STREQ(ZV_HttpBaseSegCacheGetRedirectURL(handle), Url(segment).c_str());
  char placeholder[] = "";
  char* value = placeholder;
  ZV_HttpBaseSegCacheGetRespbyKey(handle, "Content-Type", &value);
  EXPECT_STREQ(value, "application/octet-stream");
  ZV_Free(&value);
  const origin::Request request = server_.LogOf("/s0").front();
  EXPECT_EQ(request.Header("User-Agent"), "Agent/1");
  EXPECT_EQ(request.Header("X-Extra"), "1");
  EXPECT_EQ(ZV_HttpBaseSegCacheClose(handle), 0);
  EXPECT_EQ(ZV_HttpBaseSegCacheClose(handle), -1);
  int32_t result = 7;
  player.SetPosition(0);
  for (const int32_t size : {0, -1, INT32_MIN}) {
    uint32_t n = 77;
    EXPECT_EQ(player.ReadOnce(size, &result, &n), "");
    EXPECT_EQ(result, -1) << size;
    EXPECT_EQ(n, 0u);
  }
}

TEST_F(ApiTest, SettingsOfTheOwnStreamDoNotReachTheWorkers) {
  const std::vector<Segment> segments = PutSegments(1);
  const auto player = NewPlayer(segments);
  ZV_HttpBaseSegCacheSetUserAgent(player->Get(), "Agent/1");
  EXPECT_EQ(player->Play(Url(segments[0]), segments[0]), "");
  EXPECT_EQ(server_.LogOf("/s0").front().Header("User-Agent"), "ZOVEX/1.0");
}

TEST_F(ApiTest, TheLocalCacheIsTurnedOnOnceAndBeforeTheListIsMade) {
  const Segment segment = PutSegment(0, 1000);
  SegPlayer player;
  player.SetList(5);
  EXPECT_EQ(player.Add(Url(segment), segment), 1);
  player.UseFiles(Prefix(), Kind::kOnDemand, 10);
  EXPECT_TRUE(log_.Contains("isVod=1 cacheTime=10 cacheDir=" + Prefix()));
  EXPECT_EQ(player.Ask([](HttpBaseSegCache* cache) { return cache->localCacheParam->cacheTime; }), 40);
  int32_t result = 0;
  uint32_t n = 9;
  EXPECT_EQ(player.Open(Url(segment), segment), 0);
  EXPECT_EQ(player.ReadOnce(10, &result, &n), "");
  EXPECT_EQ(result, -1) << "no list";
  EXPECT_EQ(player.Add(Url(segment), segment), 1);
  player.SetList(5);
  EXPECT_EQ(player.ReadOnce(10, &result, &n), "");
  EXPECT_EQ(result, -1) << "nothing opened";
  EXPECT_EQ(ZV_HttpBaseSegCacheGetOpenFlag(player.Get()), -1);
  EXPECT_EQ(ZV_HttpBaseSegCacheGetContentLength(player.Get()), 0);
  log_.Clear();
  player.UseFiles("/nowhere/", Kind::kLive);
  EXPECT_EQ(log_.Count("refused", LUM_LEVEL_ERROR), 1);
  EXPECT_EQ(player.Add(Url(segment), segment), 0);
  EXPECT_EQ(player.Play(Url(segment), segment), "");
}

TEST_F(ApiTest, ReadsOfNoSizeDeliverNothing) {
  const std::vector<Segment> segments = PutSegments(1, 1000);
  const auto player = NewPlayer(segments);
  player->Open(Url(segments[0]), segments[0]);
  ASSERT_TRUE(player->WaitForState(0, kSegmentCached));
  for (const int32_t size : {0, -1, INT32_MIN}) {
    int32_t result = 7;
    uint32_t n = 7;
    EXPECT_EQ(player->ReadOnce(size, &result, &n), "");
    EXPECT_EQ(result, 1) << size;
    EXPECT_EQ(n, 0u);
  }
  EXPECT_EQ(player->ReadAll(), "");
}

// What starts or stops the handle would wait for the very thread that calls; all else may be called.
TEST_F(ApiTest, FromACallbackEverythingButStartingAndStoppingMayBeCalled) {
  const std::vector<Segment> segments = PutSegments(4, 300000);
  const auto player = NewPlayer(segments, 2);
  HttpBaseSegCache* handle = player->Get();
  std::atomic<int> calls{0};
  const auto callBack = [&] {
    const HttpBaseSegCache* const before = handle;
    EXPECT_EQ(ZV_HttpBaseSegCacheOpen(handle, "x"), -1);
    EXPECT_EQ(ZV_HttpBaseSegCacheClose(handle), -1);
    ZV_HttpBaseSegCacheCloseLocalCache(handle);
    ZV_HttpBaseSegCacheRelease(&handle);
    EXPECT_EQ(handle, before);
    ZV_HttpBaseSegCacheSetThreadNumber(handle, 2);
    ZV_HttpBaseSegCacheAddSegment(handle, "x", 1, 0, 0, 0, 0);
    ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle, "x", 0, 77);
    ZV_HttpBaseSegCacheResumeCaching(handle);
    ZV_HttpBaseSegCacheGetContentLength(handle);
    calls += 1;
  };
  player->onCode = [&](int32_t) { callBack(); };
  player->onState = [&](int32_t, int32_t) { callBack(); };
  for (const Segment& segment : segments) {
    EXPECT_EQ(player->Play(Url(segment), segment), "");
  }
  EXPECT_GE(calls.load(), 8);
}

TEST_F(ApiTest, MissingCallbacksAreNotCalled) {
  const std::vector<Segment> segments = PutSegments(2, 300000);
  HttpBaseSegCache* handle = ZV_HttpBaseSegCacheInit(nullptr, nullptr);
  const std::string prefix = Prefix();
  const LocalCacheParam param = {40, prefix.c_str()};
  ZV_HttpBaseSegCacheSetLocalCache(handle, &param, 1);
  const char listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES] = {};
  ZV_HttpBaseSegCacheSetList(handle, listInfo, 2, 0);
  for (const Segment& segment : segments) {
    ZV_HttpBaseSegCacheAddSegment(handle, Url(segment).c_str(), 1, 0, 0, 0, 0);
  }
  EXPECT_EQ(ZV_HttpBaseSegCacheOpen(handle, Url(segments[0]).c_str()), 0);
  std::vector<char> buffer(100000);
  uint32_t n = 0;
  EXPECT_TRUE(WaitUntil([&] { return ZV_HttpBaseSegCacheRead(handle, buffer.data(), 100000, &n) == 0; }));
  ZV_HttpBaseSegCacheCloseLocalCache(handle);
  EXPECT_EQ(ZV_HttpBaseSegCacheOpen(handle, Url(segments[1]).c_str()), 0);
  EXPECT_TRUE(WaitUntil([&] { return ZV_HttpBaseSegCacheRead(handle, buffer.data(), 100000, &n) == 0; }));
  ZV_HttpBaseSegCacheRelease(&handle);
}

}  // namespace
}  // namespace seg
