// What goes wrong: servers that fail once the stream has begun, disks that are full or gone, callbacks that call back,
// handles that are released at any moment. Right bytes, or an end with its code; no hang, no file left.
#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include "CachePlayer.h"
#include "FileLimit.h"

namespace cache {
namespace {

using testing::ElementsAre;

constexpr uint64_t kMb = 1000000;
constexpr char kErrorPage[] = "this is a page about an error and no media";

class FailureTest : public CacheTest {
 protected:
  // The first request as it should be, but cut at that byte; the following ones get `then`.
  void FailBehind(uint64_t bytes, const origin::Answer& then, int times = 1000) {
    server_.Handle("/media", [=, count = std::make_shared<int>(0)](const origin::Request& request) {
      if (++*count == 1) {
        return origin::CutAt(static_cast<int64_t>(bytes));
      }
      return *count <= times + 1 && request.first != 0 ? then : origin::Answer{};
    });
  }
};

TEST_F(FailureTest, AFailureIsKeptBackUntilTheCacheIsUsedUpAndNeverReadAsMedia) {
  const origin::Resource media = Put("/media", 20 * kMb);
  for (const int status : {403, 404, 503}) {
    SCOPED_TRACE(status);
    FailBehind(9 * kMb, origin::Status(status, kErrorPage));
    CachePlayer player(1, 0);
    player.UseFiles(Prefix());
    const int32_t duration = 1000;  // everything is wanted
    ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
    player.Open(Url());
    ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->httpResponseError != 0; }));
    EXPECT_THAT(player.Codes(), ElementsAre(kOk));
    EXPECT_EQ(player.ReadSome(media, 4 * kMb), "");
    EXPECT_THAT(player.Codes(), ElementsAre(kOk));
    std::string wrong;
    ASSERT_TRUE(WaitUntil([&] {
      wrong += player.ReadOnce(media, 100000, nullptr, nullptr);
      return player.Count(status) > 0;
    }));
    EXPECT_EQ(wrong, "");
    const uint64_t reached = player.Position();
    EXPECT_LE(reached, 9 * kMb);
    // The player gives up here, or goes back to what it has.
    EXPECT_EQ(player.Seek(1000), 0);
    EXPECT_EQ(player.ReadSome(media, 4 * kMb), "");
    EXPECT_EQ(player.Check(), "");
  }
}

TEST_F(FailureTest, AKeptStatusIsNotReplacedByTheFailureThatFollowsFromIt) {
  const origin::Resource media = Put("/media", 20 * kMb);
  FailBehind(9 * kMb, origin::Status(403, kErrorPage));
  CachePlayer player(1, 1);
  player.UseFiles(Prefix());
  const int32_t duration = 1000;
  ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
  player.Open(Url());
  // The downloader's own retry got the status; that it has given up is told after that.
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->isTransError != 0; }));
  EXPECT_EQ(player.Ask([](HttpBaseCache* cache) ZV_UNCHECKED { return int64_t{cache->httpResponseError}; }), 403);
  EXPECT_EQ(player.ReadSome(media, 4 * kMb), "");
}

TEST_F(FailureTest, AFailureThatPassesIsNeverHeardOf) {
  const origin::Resource media = Put("/media", 20 * kMb);
  for (const origin::Answer& answer :
       {origin::Status(503, kErrorPage), origin::CutAt(0), origin::ResetAt(origin::kBeforeAnswer)}) {
    FailBehind(9 * kMb, answer, 1);
    CachePlayer player(1, 0);
    player.UseFiles(Prefix());
    const int32_t duration = 1000;
    ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
    player.Open(Url());
    ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->httpResponseError != 0; }));
    EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
  }
}

TEST_F(FailureTest, AfterAFailedTransferFourFilesAreReadBeforeTheNextRequest) {
  const origin::Resource media = Put("/media", 60 * kMb);
  FailBehind(50 * kMb, origin::Answer{});
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  const int32_t duration = 1000;
  ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
  player.Open(Url());
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->isTransError != 0; }));
  ASSERT_EQ(player.ReadSome(media, 25 * kMb), "");
  EXPECT_EQ(server_.RequestCount(), 1);
  EXPECT_EQ(player.ReadSome(media, 10 * kMb), "");
  EXPECT_TRUE(server_.WaitForRequests(2));
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
  EXPECT_THAT(player.Codes(), ElementsAre(kOk));
}

TEST_F(FailureTest, AnEndBeforeTheKnownLengthIsAFailure) {
  const origin::Resource media = Put("/media", 20 * kMb);
  // The same target later holds less, or more: bytes of another resource must not be mixed in.
  for (const uint64_t other : {10 * kMb, 30 * kMb}) {
    SCOPED_TRACE(other);
    Put("/media", 20 * kMb);
    CachePlayer player(1, 0);
    player.UseFiles(Prefix());
    player.Open(Url());
    ASSERT_EQ(player.ReadSome(media, kMb), "");
    Put("/media", other, 5);
    ASSERT_EQ(player.Seek(9500000), 0);
    ASSERT_TRUE(player.WaitForCode(kFailed));
    EXPECT_EQ(player.ReadOnce(media, 1000, nullptr, nullptr), "");
    EXPECT_EQ(player.Position(), 9500000u);
  }
}

TEST_F(FailureTest, AServerThatCutsEveryConnectionIsReadInPieces) {
  const origin::Resource media = Put("/media", 2 * kMb);
  server_.Handle("/media", [](const origin::Request&) { return origin::CutAt(100000); });
  CachePlayer player(1, 1);
  player.UseFiles(Prefix());
  player.Open(Url());
  EXPECT_EQ(player.ReadAll(media), EndAt(2 * kMb));
}

TEST_F(FailureTest, ASeekThatFailsReportsItsCodeAndTheNextOneWorks) {
  const origin::Resource media = Put("/media", 30 * kMb);
  server_.Handle("/media", [](const origin::Request& request) {
    return request.first == 20000000 ? origin::Status(403, kErrorPage) : origin::Answer{};
  });
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ASSERT_EQ(player.Seek(20 * kMb), 0);
  ASSERT_TRUE(player.WaitForCode(403));
  EXPECT_EQ(player.ReadOnce(media, 100, nullptr, nullptr), "");
  EXPECT_EQ(player.Position(), 20 * kMb);
  ASSERT_EQ(player.Seek(25 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
  EXPECT_EQ(server_.RequestCount(), 3);
}

TEST_F(FailureTest, AFirstOpenThatFailsCanBeTriedAgainBySeeking) {
  const origin::Resource media = Put("/media", kMb);
  server_.Script("/media", {origin::Status(503, kErrorPage)});
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_TRUE(player.WaitForCode(503));
  EXPECT_EQ(player.ReadOnce(media, 100, nullptr, nullptr), "");
  EXPECT_EQ(player.Position(), 0u);
  ASSERT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(kMb));
}

// ---- The disk ----

TEST_F(FailureTest, WithoutAFirstFileTheStreamIsReadFromMemory) {
  const origin::Resource media = Put("/media", 10 * kMb);
  for (const std::string& prefix :
       {Prefix() + "missing/", Prefix() + std::string(4096, 'p'), std::string("/proc/no/")}) {
    CachePlayer player;
    player.UseFiles(prefix);
    EXPECT_TRUE(log_.Contains("start CacheThread failed, still cache in memory", LUM_LEVEL_ERROR));
    player.Open(Url());
    EXPECT_EQ(player.ReadAll(media), EndAt(10 * kMb));
  }
}

TEST_F(FailureTest, WhenNoFurtherFileCanBeMadeTheOnesThereAreUsedAgain) {
  ZV_NEEDS_FILES_THAT_CAN_GO();
  const origin::Resource media = Put("/media", 60 * kMb);
  for (const uint64_t before : {uint64_t{0}, 20 * kMb}) {
    CachePlayer player;
    player.UseFiles(Prefix());
    player.Open(Url());
    ASSERT_EQ(player.ReadSome(media, before), "");
    const std::string hidden = folder_ + "x";
    std::filesystem::rename(folder_, hidden);
    EXPECT_EQ(player.ReadSome(media, 60 * kMb - before), "");
    EXPECT_EQ(player.Seek(30 * kMb), 0);
    EXPECT_EQ(player.ReadSome(media, 15 * kMb), "");
    EXPECT_EQ(player.Seek(3), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
    std::filesystem::rename(hidden, folder_);
  }
}

// Holds up whoever cannot make a file until the player has asked three times more.
std::atomic<int> asked{0};
void HoldUp(void*, int32_t, const char*, const char*, int32_t, const char* text) {
  if (std::string(text).find("failed for open") != std::string::npos) {
    const int seen = asked.load();
    WaitUntil([seen] { return asked.load() > seen + 3; }, 2000);
  }
}

TEST_F(FailureTest, APlayerThatKeepsAskingDoesNotKeepTheCacheFromReusingAFile) {
  ZV_NEEDS_FILES_THAT_CAN_GO();
  const origin::Resource media = Put("/media", 12 * kMb);
  CachePlayer player;
  player.onState = [](int32_t) { asked.fetch_add(1); };
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  const std::string hidden = folder_ + "x";
  std::filesystem::rename(folder_, hidden);
  LumLogSetCallback(HoldUp, nullptr);
  EXPECT_EQ(player.ReadAll(media), EndAt(12 * kMb));
  LumLogSetCallback(nullptr, nullptr);
  std::filesystem::rename(hidden, folder_);
}

TEST_F(FailureTest, AFileThatFillsUpEndsAtItsLastGoodByte) {
  ZV_NEEDS_FILE_LIMIT();
  const origin::Resource media = Put("/media", 30 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  {
    // Files are there in full, so only what lies behind the limit fails: first within a file, then at its beginning.
    const FileLimit limit(2000000);
    ASSERT_EQ(player.ReadSome(media, 12 * kMb), "");
    ASSERT_EQ(player.Seek(25 * kMb), 0);
    ASSERT_EQ(player.ReadSome(media, 4 * kMb), "");
  }
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
}

TEST_F(FailureTest, WhenNothingCanBeWrittenThePlayerReadsOnFromMemory) {
  ZV_NEEDS_FILE_LIMIT();
  const origin::Resource media = Put("/media", 30 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 9 * kMb), "");
  {
    const FileLimit limit(0);
    EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
    EXPECT_EQ(player.Get()->isLocalCache.load(), 0);
    EXPECT_EQ(FilesInFolder(), 0);
  }
  // A player that does not know of it seeks as before.
  EXPECT_EQ(player.Seek(20 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
  EXPECT_EQ(ZV_HttpBaseCacheClose(player.Get()), 0);
  EXPECT_EQ(player.Seek(29 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
}

TEST_F(FailureTest, FilesCutFromOutsideAreFetchedAgain) {
  ZV_NEEDS_FILES_THAT_CAN_GO();
  const origin::Resource media = Put("/media", 20 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  const int32_t duration = 1000;
  ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
  player.Open(Url());
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->lastNode != nullptr; }));
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    std::filesystem::resize_file(entry.path(), 1000000);
  }
  EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    std::filesystem::remove(entry.path());
  }
  EXPECT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
}

TEST_F(FailureTest, LeavingTheFileCacheLosesNoByte) {
  const origin::Resource media = Put("/media", 30 * kMb);
  for (const uint64_t at : {uint64_t{0}, 3 * kMb, 9 * kMb, 30 * kMb - 1}) {
    CachePlayer player;
    player.UseFiles(Prefix());
    player.Open(Url());
    ASSERT_EQ(player.ReadSome(media, at), "");
    ZV_HttpBaseCacheCloseLocalCache(player.Get());
    EXPECT_EQ(FilesInFolder(), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
    player.UseFiles(Prefix());
    EXPECT_EQ(FilesInFolder(), 0) << "a second file cache";
  }
}

// ---- Callbacks and the end ----

TEST_F(FailureTest, CallbacksMayCallEverythingThatDoesNotStopTheHandle) {
  const origin::Resource media = Put("/media", 30 * kMb);
  const auto hasFailed = std::make_shared<std::atomic<bool>>(false);
  server_.Handle("/media", [hasFailed](const origin::Request& request) {
    if (request.first < static_cast<int64_t>(6 * kMb) || hasFailed->exchange(true)) {
      return origin::Answer{};
    }
    return origin::Status(503, kErrorPage);
  });
  CachePlayer player(3, 0);
  HttpBaseCache* handle = player.Get();
  player.UseFiles(Prefix());
  std::atomic<int> refused{0};
  const auto call = [&](int32_t) {
    uint32_t n = 0;
    char byte = 0;
    char* value = &byte;
    int32_t number = 300000;
    HttpBaseCache* copy = handle;
    ZV_HttpBaseCacheSetDuration(handle, &number);
    ZV_HttpBaseCacheGetBufferingTime(handle, &number);
    ZV_HttpBaseCacheGetContentLength(handle);
    ZV_HttpBaseCacheGetDownSpeed(handle);
    ZV_HttpBaseCacheGetOpenFlag(handle);
    ZV_HttpBaseCacheGetRedirectURL(handle);
    ZV_HttpBaseCacheSetReqHeader(handle, "X-A: b");
    ZV_HttpBaseCacheCleanReqHeader(handle);
    ZV_HttpBaseCacheSetRespKey(handle, "Server");
    ZV_HttpBaseCacheGetRespbyKey(handle, "Server", &value);
    ZV_Free(&value);
    ZV_HttpBaseCacheSetUserAgent(handle, "player");
    EXPECT_EQ(ZV_HttpBaseCacheRead(handle, &byte, 0, &n), 1);
    const bool stopped = ZV_HttpBaseCacheOpen(handle, "http://127.0.0.1/") == 0 || ZV_HttpBaseCacheClose(handle) == 0;
    ZV_HttpBaseCacheCloseLocalCache(handle);
    ZV_HttpBaseCacheRelease(&copy);
    refused += !stopped && copy == handle ? 1 : 0;
    EXPECT_FALSE(stopped);
  };
  player.onCode = call;
  player.onState = call;
  player.Open(Url());
  EXPECT_EQ(player.ReadSome(media, 5 * kMb), "");
  // Read ahead, so that it is kept back; a seek that failed would have to be made again.
  ASSERT_TRUE(WaitUntil([&] { return hasFailed->load(); }));
  EXPECT_EQ(player.Seek(25 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
  EXPECT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
  EXPECT_GT(refused.load(), 3);
}

TEST_F(FailureTest, ACallbackMaySeekWithTheNextOpenElsewhere) {
  const origin::Resource media = Put("/media", 30 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.onCode = [&](int32_t) { ZV_HttpBaseCacheSetRange(player.Get(), 20 * kMb, -1); };
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  player.onCode = nullptr;
  EXPECT_EQ(player.Seek(20 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
}

TEST_F(FailureTest, AHandleIsReleasedAtAnyMoment) {
  const uint64_t seed = Seed("release");
  std::mt19937_64 random(seed);
  const origin::Resource media = Put("/media", 30 * kMb);
  for (int i = 0; i < 60; ++i) {
    SCOPED_TRACE(std::to_string(i) + ", seed " + std::to_string(seed));
    origin::Answer answer;
    answer.delayMs = static_cast<int>(random() % 3) * 5;
    server_.Handle("/media", [answer](const origin::Request&) { return answer; });
    CachePlayer player(1 + static_cast<int>(random() % 3));
    player.UseFiles(Prefix());
    player.Open(Url());
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
    if (random() % 2 == 0) {
      player.Seek(static_cast<int64_t>(random() % (30 * kMb)));
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
    }
    if (random() % 4 == 0) {
      ZV_HttpBaseCacheCloseLocalCache(player.Get());
      EXPECT_EQ(player.ReadOnce(media, 100000, nullptr, nullptr), "");
    }
    player.Release();
    EXPECT_EQ(FilesInFolder(), 0);
  }
}

TEST_F(FailureTest, ReadAndSeekFromTwoThreads) {
  const origin::Resource media = Put("/media", 30 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  std::atomic<bool> done{false};
  std::thread asker([&] {
    int32_t duration = 300000;
    while (!done.load()) {
      ZV_HttpBaseCacheGetBufferingTime(player.Get(), &duration);
      ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
      ZV_HttpBaseCacheSetRange(player.Get(), 5, 6);
      std::this_thread::yield();
    }
  });
  EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
  done.store(true);
  asker.join();
}

}  // namespace
}  // namespace cache
