// What comes after something went wrong, or while the file cache is being left: nothing of it may stick to the handle.
#include <atomic>
#include <thread>

#include "CachePlayer.h"
#include "ZVHttpBase/Inner.h"

namespace cache {
namespace {

using testing::ElementsAre;

constexpr uint64_t kMb = 1000000;
constexpr char kErrorPage[] = "this is a page about an error and no media";

// Holds up the thread that logs a text containing `part`, until it is let go. Takes the log while it lives.
class Hold {
 public:
  explicit Hold(std::string part) : part_(std::move(part)) { LumLogSetCallback(Wait, this); }
  ~Hold() {
    LetGo();
    LumLogSetCallback(nullptr, nullptr);
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  bool AwaitReached() const {
    return WaitUntil([this] { return reached_.load(); });
  }
  void LetGo() { free_.store(true); }

 private:
  static void Wait(void* self, int32_t, const char*, const char*, int32_t, const char* text) {
    Hold* const hold = static_cast<Hold*>(self);
    if (std::string(text).find(hold->part_) != std::string::npos) {
      hold->reached_.store(true);
      WaitUntil([hold] { return hold->free_.load(); });
    }
  }

  const std::string part_;
  std::atomic<bool> reached_{false};
  std::atomic<bool> free_{false};
};

class RecoveryTest : public CacheTest {
 protected:
  // Every request gets the answer, whatever it asks for.
  void Always(const origin::Answer& answer) {
    server_.Handle("/media", [answer](const origin::Request&) { return answer; });
  }
};

// ---- Codes ----

TEST_F(RecoveryTest, ARedirectThatLeadsNowhereIsAFailure) {
  const origin::Resource media = Put("/media", kMb);
  server_.Script("/media", {origin::Status(302, kErrorPage)});
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_TRUE(player.WaitForCode(kFailed));
  EXPECT_EQ(player.ReadOnce(media, 100, nullptr, nullptr), "");
  EXPECT_EQ(player.Position(), 0u);
  EXPECT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(kMb));
  EXPECT_THAT(player.Codes(), ElementsAre(kFailed, kOk));
}

TEST_F(RecoveryTest, AnErrorThatARetryOvercomesIsForgotten) {
  const origin::Resource media = Put("/media", 30 * kMb);
  for (const int status : {503, 410}) {
    SCOPED_TRACE(status);
    origin::Answer broken = origin::Status(status, kErrorPage);
    broken.cutAt = 0;
    server_.Script("/media", {broken});
    CachePlayer player(1, 1);
    player.UseFiles(Prefix());
    player.Open(Url());
    EXPECT_EQ(player.ReadSome(media, kMb), "");
    EXPECT_EQ(player.Codes().back(), kOk);
    server_.Script("/media", {broken});
    EXPECT_EQ(player.Seek(20 * kMb), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(30 * kMb));
  }
}

TEST_F(RecoveryTest, TheFailureOfARequestThatWasLeftIsNobodysFailure) {
  const origin::Resource media = Put("/media", 60 * kMb);
  const auto gate = std::make_shared<origin::Gate>();
  server_.Handle("/media", [gate](const origin::Request& request) {
    origin::Answer refused = origin::Status(403, kErrorPage);
    refused.gate = gate;
    return request.first == 30000000 ? refused : origin::Answer{};
  });
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ASSERT_EQ(player.Seek(30 * kMb), 0);
  ASSERT_TRUE(gate->AwaitWaiting(1));
  ASSERT_EQ(player.Seek(kMb), 0);
  gate->Open();
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->requestOutstanding == 0; }));
  EXPECT_EQ(player.Ask([](HttpBaseCache* cache) ZV_UNCHECKED { return int64_t{cache->httpResponseError}; }), 0);
  EXPECT_EQ(player.ReadSome(media, 25 * kMb), "");
  EXPECT_EQ(player.Count(403), 0);
}

// ---- Ends and lengths ----

TEST_F(RecoveryTest, ASeekBehindTheEndDoesNotMoveTheEnd) {
  for (const bool isLengthTold : {true, false}) {
    SCOPED_TRACE(isLengthTold);
    const origin::Resource media = Put("/media", 20 * kMb);
    origin::Answer whole;
    whole.ignoreRange = true;
    whole.chunkBytes = isLengthTold ? 0 : 100000;
    Always(whole);
    CachePlayer player(1, 0);
    player.UseFiles(Prefix());
    player.Open(Url());
    ASSERT_EQ(player.ReadSome(media, kMb), "");
    ASSERT_EQ(player.Seek(50 * kMb), 0);
    ASSERT_TRUE(player.WaitForCode(kFailed));
    EXPECT_EQ(ZV_HttpBaseCacheGetContentLength(player.Get()), isLengthTold ? 20000000 : 0);
    ASSERT_EQ(player.Seek(15 * kMb), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
    EXPECT_EQ(ZV_HttpBaseCacheGetContentLength(player.Get()), 20000000);
  }
}

TEST_F(RecoveryTest, AnEndThatASeekHasLostIsFoundAgain) {
  const origin::Resource media = Put("/media", 10 * kMb);
  origin::Answer untold;
  untold.chunkBytes = 100000;
  server_.Script("/media", {untold});
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  player.Open(Url());
  // The transfer ends while the cache rests: what it has brought is saved, that it has ended is not.
  ASSERT_TRUE(player.WaitFor([](HttpBaseCache* cache) { return ZVIner_HasEndedWell(cache->httpBase) != 0; }));
  ASSERT_TRUE(player.WaitUntilResting());
  ASSERT_EQ(player.Seek(11 * kMb), 0);
  ASSERT_TRUE(player.WaitForCode(416));
  EXPECT_EQ(player.Seek(0), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(10 * kMb));
  EXPECT_EQ(ZV_HttpBaseCacheGetContentLength(player.Get()), 10000000);
  EXPECT_THAT(RangesOf(), ElementsAre("", "11000000-", "10000000-"));
  EXPECT_EQ(player.Count(416), 1);
  EXPECT_EQ(player.Check(), "");
}

TEST_F(RecoveryTest, ThePlaceOfASeekThatFailedIsReadThrough) {
  const origin::Resource media = Put("/media", 60 * kMb);
  server_.Handle("/media", [](const origin::Request& request) {
    return request.first == 30000000 ? origin::Status(503, kErrorPage) : origin::Answer{};
  });
  CachePlayer player(1, 0);
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ASSERT_EQ(player.Seek(30 * kMb), 0);
  ASSERT_TRUE(player.WaitForCode(503));
  ASSERT_EQ(player.Seek(kMb), 0);
  const int32_t duration = 1000;  // everything is wanted
  ZV_HttpBaseCacheSetDuration(player.Get(), &duration);
  EXPECT_EQ(player.ReadAll(media), EndAt(60 * kMb));
  uint64_t sent = 0;
  for (const origin::Request& request : server_.LogOf("/media")) {
    sent += request.bodySent;
  }
  EXPECT_LT(sent, 75 * kMb);
}

// ---- Opening ----

TEST_F(RecoveryTest, ARangeThatWasSetBeforeTheFileCacheIsItsFirstSeek) {
  const origin::Resource media = Put("/media", 2 * kMb);
  for (const int64_t position : {int64_t{1000}, int64_t{0}, int64_t{-1}}) {
    SCOPED_TRACE(position);
    CachePlayer player;
    player.SetRange(position);
    player.UseFiles(Prefix());
    player.Open(Url());
    EXPECT_EQ(player.ReadAll(media), EndAt(2 * kMb));
    EXPECT_THAT(player.Codes(), ElementsAre(kOk));
    EXPECT_EQ(player.Seek(0), 0);
    EXPECT_EQ(player.ReadAll(media), EndAt(2 * kMb));
  }
}

TEST_F(RecoveryTest, ARedirectUrlLastsThroughTheCachesOwnRequests) {
  const origin::Resource media = Put("/media", 60 * kMb);
  server_.Handle("/moved", [count = std::make_shared<int>(0)](const origin::Request&) {
    return origin::Redirect("/media?" + std::to_string(++*count / 2));
  });
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url("/moved"));
  ASSERT_EQ(player.ReadSome(media, 1000), "");
  const char* const first = ZV_HttpBaseCacheGetRedirectURL(player.Get());
  ASSERT_NE(first, nullptr);
  for (const uint64_t position : {50 * kMb, 40 * kMb, 30 * kMb, 20 * kMb}) {
    ASSERT_EQ(player.Seek(static_cast<int64_t>(position)), 0);
    ASSERT_EQ(player.ReadSome(media, 1000), "");
    EXPECT_NE(ZV_HttpBaseCacheGetRedirectURL(player.Get()), nullptr);
    EXPECT_STREQ(first, Url("/media?0").c_str());
  }
}

// ---- Leaving the file cache ----

TEST_F(RecoveryTest, LeavingTheFileCacheLosesNoByteOfAWholeResource) {
  const origin::Resource media = Put("/media", 20 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  ZV_HttpBaseCacheSetNeedDownloadComplete(player.Get(), 0);
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, kMb), "");
  ZV_HttpBaseCacheCloseLocalCache(player.Get());
  EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
  EXPECT_EQ(player.Seek(5 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(20 * kMb));
}

TEST_F(RecoveryTest, TheFileCacheMayBeLeftWhileASeekHasClosedTheDownloader) {
  const origin::Resource media = Put("/media", 40 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 1000), "");
  Hold hold("finish");  // the last that closing the downloader logs
  ASSERT_EQ(player.Seek(30 * kMb), 0);
  ASSERT_TRUE(hold.AwaitReached());
  std::thread leaver([&] { ZV_HttpBaseCacheCloseLocalCache(player.Get()); });
  EXPECT_TRUE(player.WaitFor([](HttpBaseCache* cache) ZV_UNCHECKED { return cache->giveUpWanted != 0; }));
  hold.LetGo();
  leaver.join();
  EXPECT_EQ(player.ReadAll(media), EndAt(40 * kMb));
}

TEST_F(RecoveryTest, CloseWhileTheFileCacheIsBeingLeftCloses) {
  const origin::Resource media = Put("/media", 40 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 1000), "");
  Hold hold("ZV_HttpBaseOpen: Open HttpBase");
  std::thread leaver([&] { ZV_HttpBaseCacheCloseLocalCache(player.Get()); });
  EXPECT_TRUE(hold.AwaitReached());
  std::atomic<bool> closed{false};
  int32_t result = -1;
  std::thread closer([&] {
    result = ZV_HttpBaseCacheClose(player.Get());
    closed.store(true);
  });
  // It must not come through now: the downloader would be opened behind it.
  EXPECT_FALSE(WaitUntil([&] { return closed.load(); }, 50));
  hold.LetGo();
  leaver.join();
  closer.join();
  EXPECT_EQ(result, 0);
  EXPECT_NE(ZV_HttpBaseCacheGetOpenFlag(player.Get()), 0);
}

TEST_F(RecoveryTest, WhenTheDownloaderCannotBeOpenedAgainThePlayerHearsOfIt) {
  const origin::Resource media = Put("/media", 40 * kMb);
  CachePlayer player;
  player.UseFiles(Prefix());
  player.Open(Url());
  ASSERT_EQ(player.ReadSome(media, 1000), "");
  fault_platform::FailNth(fault_platform::Kind::kAllocation, 1, true);
  ZV_HttpBaseCacheCloseLocalCache(player.Get());
  fault_platform::FailNothing();
  EXPECT_TRUE(player.WaitForCode(kFailed));
  EXPECT_EQ(player.Seek(20 * kMb), 0);
  EXPECT_EQ(player.ReadAll(media), EndAt(40 * kMb));
}

}  // namespace
}  // namespace cache
