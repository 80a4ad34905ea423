// Whole streams through the cache: reading to the end, seeking in and out of what is cached, ends that are not announced.
#include "CachePlayer.h"
#include "ZVHttpBase/Records.h"

namespace cache {
namespace {

using testing::ElementsAre;

constexpr uint64_t kMb = 1000000;
constexpr uint64_t kFile = 8388608;

class StreamTest : public CacheTest {
 protected:
  // Enough is cached, and the downloader's own buffer is full but for less than a block. Gives where that begins.
  int64_t AwaitFullBuffer(const CachePlayer& player) {
    EXPECT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->isCacheFinish != 0; }));
    EXPECT_TRUE(player.WaitUntilResting());
    const int64_t stored = player.Ask([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->currentRecvPos; });
    EXPECT_TRUE(player.WaitFor(
        [=](HttpBaseCache* cache) { return cache->httpBase->configParam.downloadedBytes.load() > stored + 3000000; }));
    return stored;
  }
};

TEST_F(StreamTest, AStreamIsReadToItsEnd) {
  for (const uint64_t length : {uint64_t{0}, uint64_t{1}, kMb, kFile, kFile + 1, 20 * kMb}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(std::to_string(length) + " bytes, " + std::to_string(connections) + " connections");
      const std::string target = "/media/" + std::to_string(length) + "/" + std::to_string(connections);
      const origin::Resource media = Put(target, length);
      CachePlayer player(connections);
      player.UseFiles(Prefix());
      ASSERT_EQ(player.Open(Url(target)), 0);
      EXPECT_EQ(player.ReadAll(media), EndAt(length));
      EXPECT_THAT(player.Codes(), ElementsAre(kOk));
      EXPECT_EQ(ZV_HttpBaseCacheGetContentLength(player.Get()), static_cast<int64_t>(length));
      EXPECT_TRUE(connections > 1 || RangesOf(target) == std::vector<std::string>{""});
      EXPECT_EQ(player.States().back(), 0);
    }
  }
}

TEST_F(StreamTest, AShortStreamMakesOneFileAndOneRequest) {
  const origin::Resource media = Put("/media", kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->lastNode != nullptr; }));
  ASSERT_TRUE(player.WaitUntilResting());
  EXPECT_EQ(FilesInFolder(), 1);
  EXPECT_EQ(player.ReadAll(media), EndAt(kMb));
  for (const int64_t position : {int64_t{0}, int64_t{999999}, int64_t{500000}}) {
    EXPECT_EQ(player.Seek(position), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(kMb));
  }
  EXPECT_EQ(server_.RequestCount(), 1);
  EXPECT_EQ(player.Count(kOk), 4);
}

TEST_F(StreamTest, TheDownloadRestsWhenEnoughIsCachedAndGoesOnOverTheSameConnection) {
  const origin::Resource media = Put("/media", 60 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->isCacheFinish != 0; }));
  ASSERT_TRUE(player.WaitUntilResting());
  EXPECT_EQ(FilesInFolder(), 2);  // the one that is full, and the next
  // The downloader may still be filling its own buffer.
  EXPECT_TRUE(WaitUntil([] {
    fault_platform::ResetCounts();
    return !WaitUntil([] { return fault_platform::WakeUps() > 0; }, 300);
  })) << "something wakes up while nothing happens";
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
  EXPECT_EQ(server_.RequestCount(), 1);
}

TEST_F(StreamTest, ASeekIntoTheCacheIsAnsweredBeforeOpenReturnsWithoutARequest) {
  const origin::Resource media = Put("/media", 60 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  EXPECT_EQ(player.ReadSome(media, 7 * kMb), "");
  for (const int64_t position : {6 * kMb, uint64_t{0}, 3 * kMb}) {
    const int before = player.Count(kOk);
    ASSERT_EQ(player.Seek(position), 0);
    EXPECT_EQ(player.Count(kOk), before + 1);
    uint32_t n = 0;
    EXPECT_EQ(player.ReadOnce(media, 1000, nullptr, &n), "");
    EXPECT_EQ(n, 1000u);
  }
  EXPECT_EQ(server_.RequestCount(), 1);
}

TEST_F(StreamTest, ASeekOutsideAsksForTheGapOnly) {
  const origin::Resource media = Put("/media", 60 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ASSERT_EQ(player.Seek(40 * kMb), 0);
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ASSERT_EQ(player.Seek(20 * kMb), 0);
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  EXPECT_THAT(RangesOf(), ElementsAre("", "40000000-", "20000000-39999999"));
  EXPECT_THAT(player.Codes(), ElementsAre(kOk, kOk, kOk));
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
  EXPECT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
  uint64_t asked = 0;
  for (const origin::Request& request : server_.Log()) {
    asked += request.bodySent;
  }
  EXPECT_LT(asked, 85 * kMb);  // connections that were left had some bytes on the way
}

TEST_F(StreamTest, WhatARestingDownloaderHoldsIsKeptWhenThePlayerSeeksAway) {
  const origin::Resource media = Put("/media", 60 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  const int64_t stored = AwaitFullBuffer(player);
  ASSERT_EQ(player.Seek(40 * kMb), 0);
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ASSERT_EQ(player.Seek(stored + 2 * kMb), 0);
  EXPECT_EQ(player.Count(kOk), 3);  // before Open returned: from the cache
  EXPECT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
}

TEST_F(StreamTest, ASeekToWhatARestingDownloaderHoldsNeedsNoRequest) {
  const origin::Resource media = Put("/media", 60 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  const int64_t stored = AwaitFullBuffer(player);
  ASSERT_EQ(player.Seek(stored + 3 * kMb), 0);
  // Also a player that waits until enough is there before it reads.
  EXPECT_TRUE(player.WaitFor([](HttpBaseCache* cache)
                                 ZV_UNCHECKED { return cache->currentCacheSize >= cache->targetCacheSize; }));
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
  EXPECT_EQ(server_.RequestCount(), 1);
}

TEST_F(StreamTest, TheFirstOpenMayBeASeek) {
  const origin::Resource media = Put("/media", 10 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.UseUrl(Url());
  ASSERT_EQ(player.Seek(4000000), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(10 * kMb));
  EXPECT_THAT(RangesOf(), ElementsAre("4000000-"));
  EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(StreamTest, ANegativeStartIsTheStartAndASecondOpenIsRefused) {
  const origin::Resource media = Put("/media", kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  ASSERT_EQ(player.Open(Url()), 0);
  ASSERT_EQ(player.ReadSome(media, 1000), "");
  EXPECT_EQ(player.Open(Url()), -1);
  EXPECT_EQ(ZV_HttpBaseCacheClose(player.Get()), 0);
  EXPECT_EQ(player.Open(Url()), -1);
  EXPECT_EQ(player.Seek(-5), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(kMb));
}

TEST_F(StreamTest, ASeekTakesEffectWithOpenOnly) {
  const origin::Resource media = Put("/media", kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  auto gate = std::make_shared<origin::Gate>();
  origin::Answer answer;
  answer.gate = gate;
  server_.Script("/media", {answer});
  player.Open(Url());
  ASSERT_TRUE(gate->AwaitWaiting(1));
  ZV_HttpBaseCacheSetRange(player.Get(), 500000, -1);
  gate->Open();
  ASSERT_EQ(player.ReadSome(media, 100000), "");  // from 0 on
  EXPECT_EQ(player.Seek(500000), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(kMb));
}

TEST_F(StreamTest, OfManySeeksTheLastCounts) {
  const origin::Resource media = Put("/media", 60 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  for (int64_t i = 1; i < 30; ++i) {
    ASSERT_EQ(player.Seek(static_cast<int64_t>((i * 17) % 59 * kMb)), 0);
  }
  EXPECT_EQ(player.ReadSome(media, 100000), "");
  EXPECT_EQ(player.Check(), "");
}

struct EndRow {
  const char* name;
  std::function<void(origin::Answer*)> change;
};

TEST_F(StreamTest, AnEndThatIsNotAnnouncedIsFoundOnce) {
  constexpr uint64_t kLength = 9 * kMb;
  for (const EndRow& row : {EndRow{"chunked", [](origin::Answer* a) { a->chunkBytes = 30000; }},
                            EndRow{"until closing", [](origin::Answer* a) { a->noContentLength = true; }},
                            EndRow{"packed", [](origin::Answer* a) { a->gzip = true; }}}) {
    SCOPED_TRACE(row.name);
    const origin::Resource media = Put("/media", kLength);
    server_.ClearLog();
    server_.Handle("/media", [row](const origin::Request& request) {
      origin::Answer answer;
      row.change(&answer);
      answer.ignoreRange = request.first > 0;
      return answer;
    });
    CachePlayer player;
    player.UseFiles(Prefix());
    player.Open(Url());
    EXPECT_EQ(player.ReadAll(media), EndAt(kLength));
    EXPECT_EQ(ZV_HttpBaseCacheGetContentLength(player.Get()), static_cast<int64_t>(kLength));
    EXPECT_EQ(player.Ask([](HttpBaseCache* cache) ZV_UNCHECKED { return int64_t{cache->cacheFileNodeNum}; }), 2);
    EXPECT_EQ(server_.RequestCount(), 1);
    EXPECT_EQ(player.Seek(3 * kMb), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(kLength));
    EXPECT_EQ(server_.RequestCount(), 1);
    // A seek before the end is known: the server sends everything, and what lies before is dropped.
    CachePlayer seeker;
    seeker.UseFiles(Prefix());
    seeker.Open(Url());
    EXPECT_EQ(seeker.Seek(8 * kMb), 0);
    EXPECT_EQ(seeker.ReadAll(media), EndAt(kLength));
  }
}

TEST_F(StreamTest, AWholeResourceIsCutToWhatIsMissing) {
  const origin::Resource media = Put("/media", 20 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  ZV_HttpBaseCacheSetNeedDownloadComplete(player.Get(), 0);
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 100000), "");
  ASSERT_EQ(player.Seek(15 * kMb), 0);
  ASSERT_EQ(player.ReadSome(media, 100000), "");
  ASSERT_EQ(player.Seek(12 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
}

TEST_F(StreamTest, ASeekToTheLastByteEndsAndOneBehindTheEndReports) {
  const origin::Resource media = Put("/media", 20 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 10), "");
  ASSERT_EQ(player.Seek(20 * kMb - 1), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
  for (const uint64_t position : {20 * kMb, 20 * kMb + 1, uint64_t{1} << 62}) {
    const int before = player.Count(416);
    ASSERT_EQ(player.Seek(static_cast<int64_t>(position)), 0);
    EXPECT_TRUE(player.WaitForCode(416, before + 1));
  }
  ASSERT_EQ(player.Seek(5), 0);
  EXPECT_EQ(player.ReadSome(media, 19 * kMb), "");
}

TEST_F(StreamTest, DurationMayComeBeforeTheLengthAndInTheCallback) {
  const origin::Resource media = Put("/media", 30 * kMb);
  for (const bool early : {true, false}) {
    CachePlayer player;
    player.UseFiles(Prefix());
    const int32_t duration = 300000;
    if (early) {
      ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
    } else {
      player.onCode = [&](int32_t) { ZV_HttpBaseCacheSetDuration(player.Get(), &duration); };
    }
    player.Open(Url());
    ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->isCacheFinish != 0; }));
    EXPECT_EQ(player.Ask([](HttpBaseCache* cache) ZV_UNCHECKED { return int64_t{cache->sizePerSecond}; }), 100000);
    EXPECT_EQ(player.Ask([](HttpBaseCache* cache) ZV_UNCHECKED { return int64_t{cache->targetCacheSize}; }),
              30 * kMb / 8);
    int32_t time = 0;
    ZV_HttpBaseCacheGetBufferingTime(player.Get(), &time);
    EXPECT_EQ(time, 40000);
    EXPECT_GE(player.States().back(), 75000);
    EXPECT_EQ(player.States().back() % 1000, 0);
  }
}

TEST_F(StreamTest, ResponseKeysOutliveTheCachesOwnRequests) {
  const origin::Resource media = Put("/media", 30 * kMb);
  server_.Handle("/media", [](const origin::Request& request) {
    origin::Answer answer;
    answer.headers = {{"X-First", request.first <= 0 ? "yes" : "no"}};
    if (request.first <= 0) {
      answer.headers.push_back({"X-Once", "value"});
    }
    return answer;
  });
  CachePlayer player;
  player.UseFiles(Prefix());
  ZV_HttpBaseCacheSetRespKey(player.Get(), "X-First");
  ZV_HttpBaseCacheSetRespKey(player.Get(), "X-Once");
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 10), "");
  ASSERT_EQ(player.Seek(20 * kMb), 0);
  ASSERT_EQ(player.ReadSome(media, 10), "");
  for (const auto& [key, value] : {std::pair{"X-First", "no"}, std::pair{"X-Once", "value"}}) {
    char some = 0;
    char* text = &some;
    ZV_HttpBaseCacheGetRespbyKey(player.Get(), key, &text);
    EXPECT_STREQ(text, value);
    ZV_Free(&text);
  }
}

TEST_F(StreamTest, WithoutFilesTheDownloaderIsReadDirectly) {
  const origin::Resource media = Put("/media", 3 * kMb);
  server_.Handle("/moved", [](const origin::Request&) { return origin::Redirect("/media"); });
  CachePlayer player;
  ASSERT_EQ(player.Open(Url("/moved")), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(3 * kMb));
  EXPECT_THAT(player.Codes(), ElementsAre(kOk));
  int32_t time = 5;
  const int32_t duration = 1000;
  ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
  ZV_HttpBaseCacheGetBufferingTime(player.Get(), &time);
  EXPECT_EQ(time, 0);
  EXPECT_EQ(ZV_HttpBaseCacheClose(player.Get()), 0);
  EXPECT_EQ(ZV_HttpBaseCacheGetContentLength(player.Get()), -1);
  EXPECT_EQ(player.Seek(kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(3 * kMb));
  EXPECT_EQ(RangesOf(), (std::vector<std::string>{"", "1000000-"}));
}

}  // namespace
}  // namespace cache
