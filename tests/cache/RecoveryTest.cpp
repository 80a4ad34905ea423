// What comes after something went wrong, or while the file cache is being left: nothing of it may stick to the handle.
#include <atomic>
#include <thread>

#include "CachePlayer.h"

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

}  // namespace
}  // namespace cache
