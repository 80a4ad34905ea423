// Seeded random sessions: reads, pauses and seeks over a long stream, with and without faults of the origin, ended at any
// instant. Every byte and, after every step, the invariants of the chain are checked.
//
// ZV_WALK_SECONDS is how long each walk takes at most (default: short), ZV_SEED repeats one.
#include <stdlib.h>

#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "CachePlayer.h"

namespace cache {
namespace {

constexpr int kSteps = 10000;
constexpr double kDefaultSeconds = 3;
constexpr int kStallMs = 20000;

double WalkSeconds() {
  const char* const text = getenv("ZV_WALK_SECONDS");
  return text == nullptr ? kDefaultSeconds : atof(text);
}

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  uint64_t Below(uint64_t end) { return std::uniform_int_distribution<uint64_t>(0, end - 1)(engine_); }
  bool Chance(int percent) { return Below(100) < static_cast<uint64_t>(percent); }

 private:
  std::mt19937_64 engine_;
};

struct Plan {
  uint64_t length = 300000000;
  int connections = 1;
  bool faults = false;
  int32_t reservedBytes = kReservedBytes;
  int seekPercent = 15;
  uint64_t mostRead = 1000000;
  int wantedLinks = 0;
  int stepsBeyond = 0;
  bool restarts = true;
};

class Walk {
 public:
  Walk(const Plan& plan, uint64_t seed, const origin::Resource& media, std::string url, std::string prefix)
      : plan_(plan), random_(seed), media_(media), url_(std::move(url)), prefix_(std::move(prefix)) {
    Begin();
  }

  // "" or what went wrong.
  std::string Step() {
    const uint64_t dice = random_.Below(100);
    const uint64_t seeks = static_cast<uint64_t>(plan_.seekPercent);
    std::string wrong;
    if (dice < seeks) {
      wrong = SeekSomewhere();
    } else if (dice < seeks + 4) {
      std::this_thread::sleep_for(std::chrono::microseconds(random_.Below(4000)));
    } else if (dice < seeks + 6) {
      AskSomething();
    } else if (dice < seeks + 7 && plan_.restarts && random_.Chance(30)) {
      Begin();
    } else {
      wrong = ReadSomething();
    }
    return wrong.empty() ? player_->Check() : wrong;
  }

  int MostLinks() const { return mostLinks_; }

 private:
  void Begin() {
    player_.reset();
    codesSeen_ = 0;
    player_ = std::make_unique<CachePlayer>(plan_.connections, plan_.faults ? 1 : 0);
    player_->Get()->reservedBytes = plan_.reservedBytes;
    player_->UseFiles(prefix_, 40);
    player_->Open(url_);
    const int32_t duration = static_cast<int32_t>(plan_.length / 250);  // 250 kB a second: 10 MB are kept ahead
    ZV_HttpBaseCacheSetDuration(player_->Get(), &duration);
  }

  uint64_t SomePosition() {
    const uint64_t near = 12000000;
    const uint64_t position = player_->Position();
    switch (random_.Below(10)) {
      case 0:
        return random_.Chance(50) ? 0 : plan_.length - 1 - random_.Below(3);
      case 1:
      case 2:
      case 3:
        return std::min(plan_.length - 1, position + random_.Below(near));
      case 4:
      case 5:
        return position - std::min(position, random_.Below(near));
      default:
        return random_.Below(plan_.length);
    }
  }

  std::string SeekSomewhere() {
    const int seeks = random_.Chance(20) ? 2 + static_cast<int>(random_.Below(3)) : 1;
    for (int i = 0; i < seeks; ++i) {
      if (random_.Chance(10)) {
        ZV_HttpBaseCacheClose(player_->Get());
      }
      if (player_->Seek(static_cast<int64_t>(SomePosition())) != 0) {
        return "a seek was refused";
      }
    }
    mostLinks_ = std::max(mostLinks_, static_cast<int>(player_->Ask([](HttpBaseCache* cache) ZV_UNCHECKED {
                            return int64_t{cache->cacheFileNodeNum};
                          })));
    return "";
  }

  void AskSomething() {
    int32_t time = 0;
    ZV_HttpBaseCacheGetBufferingTime(player_->Get(), &time);
    ZV_HttpBaseCacheGetDownSpeed(player_->Get());
    const int32_t duration = random_.Chance(50) ? 1200000 : 0;
    ZV_HttpBaseCacheSetDuration(player_->Get(), &duration);
  }

  // A failure has been reported since the last look.
  bool HasFailed() {
    const std::vector<int32_t> codes = player_->Codes();
    const bool failed = codes.size() > codesSeen_ && codes.back() != kOk;
    codesSeen_ = codes.size();
    return failed;
  }

  // Until something has come. A failure that was reported with nothing cached is answered as a player does: it seeks.
  std::string ReadSomething() {
    const uint32_t size =
        static_cast<uint32_t>(random_.Chance(20) ? 1 + random_.Below(20) : 1 + random_.Below(plan_.mostRead));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStallMs);
    for (;;) {
      int32_t result = 0;
      uint32_t n = 0;
      const std::string wrong = player_->ReadOnce(media_, size, &result, &n);
      if (!wrong.empty()) {
        return wrong;
      }
      if (result == 0) {
        return player_->Position() == plan_.length ? "" : "end at " + std::to_string(player_->Position());
      }
      if (n > 0 || player_->Position() == plan_.length) {
        return "";
      }
      if (std::chrono::steady_clock::now() > deadline) {
        return "no byte comes at " + std::to_string(player_->Position());
      }
      if (plan_.faults && HasFailed()) {
        player_->Seek(static_cast<int64_t>(player_->Position()));
      }
      SleepMicroseconds(300);
    }
  }

  const Plan plan_;
  Random random_;
  const origin::Resource media_;
  const std::string url_;
  const std::string prefix_;
  std::unique_ptr<CachePlayer> player_;
  int mostLinks_ = 0;
  size_t codesSeen_ = 0;
};

// One flaw in five answers.
origin::Answer SomeAnswer(Random* random) {
  if (!random->Chance(20)) {
    return {};
  }
  origin::Answer answer;
  switch (random->Below(8)) {
    case 0:
      return origin::CutAt(static_cast<int64_t>(random->Below(3000000)));
    case 1:
      return origin::ResetAt(static_cast<int64_t>(random->Below(300000)));
    case 2:
      return origin::Status(random->Chance(50) ? 503 : 404, "an error page, which is no media");
    case 3:
      answer.ignoreRange = true;
      return answer;
    case 4:
      answer.shift = 1 + static_cast<int64_t>(random->Below(1000));
      return answer;
    case 5:
      answer.delayMs = 1 + static_cast<int>(random->Below(20));
      return answer;
    case 6:
      answer.chunkBytes = 1 + random->Below(100000);
      return answer;
    default:
      answer.maxBytes = 1 + random->Below(2000000);
      return answer;
  }
}

class WalkTest : public CacheTest {
 protected:
  WalkTest() : CacheTest(LUM_LEVEL_NONE, 180 + static_cast<int>(WalkSeconds())) {}

  // Gives the greatest number of links that was seen.
  int Run(const Plan& plan, const std::string& name) {
    const uint64_t seed = Seed(name);
    const origin::Resource media = Put("/media", plan.length);
    if (plan.faults) {
      auto random = std::make_shared<Random>(seed + 1);
      server_.Handle("/media", [random](const origin::Request&) { return SomeAnswer(random.get()); });
    }
    Walk walk(plan, seed, media, Url(), Prefix());
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(WalkSeconds());
    int step = 0;
    int beyond = 0;  // steps since the chain was as long as it is to become
    const auto isDone = [&] { return beyond >= plan.stepsBeyond && std::chrono::steady_clock::now() >= end; };
    for (; step < kSteps && !isDone(); ++step) {
      beyond += walk.MostLinks() >= plan.wantedLinks ? 1 : 0;
      const std::string wrong = walk.Step();
      if (!wrong.empty()) {
        ADD_FAILURE() << name << ", step " << step << ", seed " << seed << ": " << wrong;
        break;
      }
    }
    printf("%s: %d steps, at most %d links\n", name.c_str(), step, walk.MostLinks());
    server_.ClearScript();
    return walk.MostLinks();
  }
};

TEST_F(WalkTest, OneConnection) {
  Run({}, "one connection");
}

TEST_F(WalkTest, ThreeConnections) {
  Plan plan;
  plan.connections = 3;
  Run(plan, "three connections");
}

TEST_F(WalkTest, OneConnectionToAnOriginWithFaults) {
  Plan plan;
  plan.faults = true;
  Run(plan, "one connection, faults");
}

TEST_F(WalkTest, ThreeConnectionsToAnOriginWithFaults) {
  Plan plan;
  plan.connections = 3;
  plan.faults = true;
  Run(plan, "three connections, faults");
}

// Little is kept ahead and files are small, so that islands are many: the chain reaches its 300 links and reuses them.
TEST_F(WalkTest, MoreIslandsThanLinks) {
  Plan plan;
  plan.length = 2000000000;
  plan.reservedBytes = 1000000;
  plan.seekPercent = 80;
  plan.mostRead = 3000;
  plan.wantedLinks = kMaxLinks;
  plan.stepsBeyond = 1000;
  plan.restarts = false;
  EXPECT_EQ(Run(plan, "many islands"), kMaxLinks);
}

}  // namespace
}  // namespace cache
