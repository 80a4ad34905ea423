// Every exported function with arguments it refuses, what Init undoes when something fails, and what starting the file
// cache undoes.
#include "CachePlayer.h"

namespace cache {
namespace {

using fault_platform::Kind;

using ApiTest = CacheTest;

TEST_F(ApiTest, BadArgumentsAreLoggedUnderTheFunctionsOwnName) {
  CachePlayer player;
  HttpBaseCache* const none = nullptr;
  HttpBaseCache* const some = player.Get();
  char byte = 0;
  char* value = nullptr;
  uint32_t n = 9;
  int32_t number = 0;
  const LocalCacheParam param = {40, "x"};
  struct Row {
    const char* name;
    std::function<bool()> call;  // gives whether the result is that of a failure
  };
  const auto nothing = [](auto call) {
    return [call] {
      call();
      return true;
    };
  };
  const std::vector<Row> rows = {
      {"ZV_HttpBaseCacheOpen", [&] { return ZV_HttpBaseCacheOpen(none, "x") == -1; }},
      {"ZV_HttpBaseCacheOpen", [&] { return ZV_HttpBaseCacheOpen(some, nullptr) == -1; }},
      {"ZV_HttpBaseCacheClose", [&] { return ZV_HttpBaseCacheClose(none) == -1; }},
      {"ZV_HttpBaseCacheRead", [&] { return ZV_HttpBaseCacheRead(none, &byte, 1, &n) == -1; }},
      {"ZV_HttpBaseCacheRead", [&] { return ZV_HttpBaseCacheRead(some, nullptr, 1, &n) == -1; }},
      {"ZV_HttpBaseCacheRead", [&] { return ZV_HttpBaseCacheRead(some, &byte, 1, nullptr) == -1; }},
      {"ZV_HttpBaseCacheSetLocalCache", nothing([&] { ZV_HttpBaseCacheSetLocalCache(none, &param); })},
      {"ZV_HttpBaseCacheSetLocalCache", nothing([&] { ZV_HttpBaseCacheSetLocalCache(some, nullptr); })},
      {"ZV_HttpBaseCacheSetDuration", nothing([&] { ZV_HttpBaseCacheSetDuration(none, &number); })},
      {"ZV_HttpBaseCacheSetDuration", nothing([&] { ZV_HttpBaseCacheSetDuration(some, nullptr); })},
      {"ZV_HttpBaseCacheGetBufferingTime", nothing([&] { ZV_HttpBaseCacheGetBufferingTime(none, &number); })},
      {"ZV_HttpBaseCacheGetBufferingTime", nothing([&] { ZV_HttpBaseCacheGetBufferingTime(some, nullptr); })},
      {"ZV_HttpBaseCacheCloseLocalCache", nothing([&] { ZV_HttpBaseCacheCloseLocalCache(none); })},
      {"ZV_HttpBaseCacheSetCacheStateCallback", nothing([&] { ZV_HttpBaseCacheSetCacheStateCallback(some, nullptr); })},
      {"ZV_HttpBaseCacheSetRange", nothing([&] { ZV_HttpBaseCacheSetRange(none, 0, 1); })},
      {"ZV_HttpBaseCacheSetNeedDownloadComplete", nothing([&] { ZV_HttpBaseCacheSetNeedDownloadComplete(none, 0); })},
      {"ZV_HttpBaseCacheGetContentLength", [&] { return ZV_HttpBaseCacheGetContentLength(none) == -1; }},
      {"ZV_HttpBaseCacheGetOpenFlag", [&] { return ZV_HttpBaseCacheGetOpenFlag(none) == -1; }},
      {"ZV_HttpBaseCacheGetDownSpeed", [&] { return ZV_HttpBaseCacheGetDownSpeed(none) == -1; }},
      {"ZV_HttpBaseCacheGetRedirectURL", [&] { return ZV_HttpBaseCacheGetRedirectURL(none) == nullptr; }},
      {"ZV_HttpBaseCacheSetUserAgent", nothing([&] { ZV_HttpBaseCacheSetUserAgent(some, nullptr); })},
      {"ZV_HttpBaseCacheCleanUserAgent", nothing([&] { ZV_HttpBaseCacheCleanUserAgent(none); })},
      {"ZV_HttpBaseCacheSetDevice", nothing([&] { ZV_HttpBaseCacheSetDevice(some, nullptr); })},
      {"ZV_HttpBaseCacheCleanDevice", nothing([&] { ZV_HttpBaseCacheCleanDevice(none); })},
      {"ZV_HttpBaseCacheSetReqHeader", nothing([&] { ZV_HttpBaseCacheSetReqHeader(some, nullptr); })},
      {"ZV_HttpBaseCacheCleanReqHeader", nothing([&] { ZV_HttpBaseCacheCleanReqHeader(none); })},
      {"ZV_HttpBaseCacheSetRespKey", nothing([&] { ZV_HttpBaseCacheSetRespKey(some, nullptr); })},
      {"ZV_HttpBaseCacheCleanRespKey", nothing([&] { ZV_HttpBaseCacheCleanRespKey(none); })},
      {"ZV_HttpBaseCacheGetRespbyKey", nothing([&] { ZV_HttpBaseCacheGetRespbyKey(some, "k", nullptr); })},
      {"ZV_HttpBaseCacheGetRespbyKey", nothing([&] { ZV_HttpBaseCacheGetRespbyKey(some, "k", &value); })},
      {"ZV_HttpBaseCacheSetRetryTimes", nothing([&] { ZV_HttpBaseCacheSetRetryTimes(none, 1); })},
      {"ZV_HttpBaseCacheSetRetryDelay", nothing([&] { ZV_HttpBaseCacheSetRetryDelay(none, 1); })},
      {"ZV_HttpBaseCacheSetDownloadType", nothing([&] { ZV_HttpBaseCacheSetDownloadType(none, 1); })},
      {"ZV_HttpBaseCacheSetNetMonitor", nothing([&] { ZV_HttpBaseCacheSetNetMonitor(some, 0); })},
      {"ZV_HttpBaseCacheSetHttpConnNum", nothing([&] { ZV_HttpBaseCacheSetHttpConnNum(some, nullptr); })},
      {"ZV_HttpBaseCacheSetHttpConnRangeSize", nothing([&] { ZV_HttpBaseCacheSetHttpConnRangeSize(some, nullptr); })},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    log_.Clear();
    EXPECT_TRUE(row.call());
    EXPECT_EQ(log_.Count(std::string(row.name) + " input params failed", LUM_LEVEL_ERROR), 1);
    EXPECT_EQ(log_.Lines().back().tag, "ZVLib-ZVHttpBaseCache");
    EXPECT_EQ(log_.Lines().back().path, "src/ZVHttpBaseCache");
  }
  HttpBaseCache* gone = nullptr;
  ZV_HttpBaseCacheRelease(nullptr);
  ZV_HttpBaseCacheRelease(&gone);
  EXPECT_EQ(log_.Count("ZV_HttpBaseCacheRelease input params NULL, reutrn", LUM_LEVEL_ERROR), 2);
}

TEST_F(ApiTest, WhateverCannotBeMadeInitLeavesNothingBehind) {
  for (const Kind kind : {Kind::kAllocation, Kind::kMutex, Kind::kCondition, Kind::kThread}) {
    bool failed = true;
    for (int64_t n = 1; failed; ++n) {
      SCOPED_TRACE(std::string(fault_platform::NameOf(kind)) + " " + std::to_string(n));
      fault_platform::FailNth(kind, n);
      HttpBaseCache* cache = ZV_HttpBaseCacheInit(nullptr, nullptr);
      failed = fault_platform::Failed(kind) > 0;
      fault_platform::FailNothing();
      EXPECT_TRUE(cache != nullptr || failed);
      if (cache != nullptr) {
        ZV_HttpBaseCacheRelease(&cache);
      }
    }
  }
}

TEST_F(ApiTest, WhateverCannotBeMadeForTheFileCacheTheStreamIsRead) {
  const origin::Resource media = Put("/media", 300000);
  for (const Kind kind : {Kind::kAllocation, Kind::kCondition, Kind::kThread}) {
    bool failed = true;
    for (int64_t n = 1; failed && n < 60; ++n) {
      SCOPED_TRACE(std::string(fault_platform::NameOf(kind)) + " " + std::to_string(n));
      CachePlayer player;
      fault_platform::FailNth(kind, n);
      player.UseFiles(Prefix());
      failed = fault_platform::Failed(kind) > 0;
      fault_platform::FailNothing();
      const bool inFiles = player.Get()->isLocalCache.load() != 0;
      EXPECT_EQ(FilesInFolder(), inFiles ? 1 : 0);
      ASSERT_EQ(player.Open(Url()), 0);
      EXPECT_EQ(player.ReadAll(media), EndAt(300000));
    }
  }
}

TEST_F(ApiTest, TheFileCacheIsTurnedOnOnceAndBeforeTheFirstOpen) {
  const origin::Resource media = Put("/media", 300000);
  CachePlayer player;
  std::string prefix = Prefix();
  player.UseFiles(prefix, 10);
  prefix.assign(prefix.size(), '?');  // the text was copied
  EXPECT_EQ(player.Get()->localCacheParam->cacheTime, 40);
  player.UseFiles(Prefix(), 100);
  EXPECT_TRUE(log_.Contains("ZV_HttpBaseCacheSetLocalCache refused", LUM_LEVEL_ERROR));
  EXPECT_EQ(player.Get()->localCacheParam->cacheTime, 40);
  EXPECT_EQ(FilesInFolder(), 1);
  player.Open(Url());
  EXPECT_EQ(player.ReadAll(media), EndAt(300000));
  CachePlayer late;
  late.Open(Url());
  late.UseFiles(Prefix());
  EXPECT_EQ(late.Get()->isLocalCache.load(), 0);
  EXPECT_EQ(late.ReadAll(media), EndAt(300000));
}

TEST_F(ApiTest, ReadingNothingMovesNothing) {
  const origin::Resource media = Put("/media", 300000);
  CachePlayer player;
  player.UseFiles(Prefix());
  char byte = 0;
  uint32_t n = 77;
  EXPECT_EQ(ZV_HttpBaseCacheRead(player.Get(), &byte, 1, &n), 1);
  EXPECT_EQ(n, 0u);
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 1000), "");
  n = 77;
  EXPECT_EQ(ZV_HttpBaseCacheRead(player.Get(), &byte, 0, &n), 1);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(player.ReadAll(media), EndAt(300000));
}

}  // namespace
}  // namespace cache
