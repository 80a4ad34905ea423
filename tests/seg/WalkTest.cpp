// Seeded random sessions on demand and live: opens forwards, backwards and far, partial reads, faults of the origin, and the
// steering calls from a second thread. Every byte is checked, and after every step the invariants of the list.
//
// ZV_WALK_OPENS is how many segments each walk opens (default: few), ZV_WALK_SECONDS how long it takes at most, ZV_SEED
// repeats one.
#include <stdlib.h>

#include <chrono>
#include <map>
#include <random>
#include <thread>

#include "SegPlayer.h"

namespace seg {
namespace {

constexpr int kDefaultOpens = 150;
constexpr double kDefaultSeconds = 4;
constexpr int kStallMs = 60000;
constexpr uint64_t kMostBytes = 120000;
constexpr int kPlaylist = 400;
constexpr int kSteerUs = 3000;
constexpr int kMostSteerUs = 500000;

using Clock = std::chrono::steady_clock;

double FromEnvironment(const char* name, double otherwise) {
  const char* const text = getenv(name);
  return text == nullptr ? otherwise : atof(text);
}

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  int Below(int end) { return static_cast<int>(engine_() % static_cast<uint64_t>(end)); }
  bool Chance(int percent) { return Below(100) < percent; }

 private:
  std::mt19937_64 engine_;
};

struct Plan {
  const char* name;
  Kind kind;
  int workers;
  bool faults;
  bool ranges;  // segments are byte ranges of one resource
};

class Walk {
 public:
  Walk(const Plan& plan, uint64_t seed, origin::Server* server, std::string prefix)
      : plan_(plan), random_(seed), server_(server), prefix_(std::move(prefix)), steerer_([this, seed] {
          Steer(seed);
        }) {
    Begin();
  }
  ~Walk() {
    isOver_ = true;
    steerer_.join();
  }

  // One segment opened, and read as far as the walk likes. "" or what went wrong.
  std::string Step() {
    if (random_.Chance(2)) {
      Begin();
    }
    Choose();
    listed_ = at_;
    std::string wrong = Play();
    if (wrong.empty()) {
      wrong = Check();
    }
    return wrong.empty() ? "" : wrong + " (segment " + std::to_string(at_) + ")";
  }

  int Completed() const { return completed_; }

 private:
  Segment SegmentOf(int number) const {
    Segment segment;
    std::mt19937 dice(static_cast<uint32_t>(number));
    segment.length = number % 17 == 0 ? number % 2 : 1 + dice() % kMostBytes;
    segment.seed = plan_.ranges ? 7 : static_cast<uint32_t>(number) + 1;
    segment.target = plan_.ranges ? "/all" : "/w" + std::to_string(number);
    segment.isRange = plan_.ranges;
    segment.first = plan_.ranges ? static_cast<uint64_t>(number % 1000) * kMostBytes : 0;
    segment.length = plan_.ranges ? std::max<uint64_t>(segment.length, 1) : segment.length;
    segment.duration = 500 + static_cast<int32_t>(dice() % 4000);
    segment.seq = number;
    return segment;
  }

  std::string UrlOf(const Segment& segment) const { return server_->Url(segment.target); }

  void Append() {
    const Segment segment = SegmentOf(end_++);
    if (!plan_.ranges) {
      server_->Put(segment.target, origin::PatternResource(segment.length, segment.seed));
    }
    EXPECT_EQ(player_->Add(UrlOf(segment), segment), 0);
  }

  // A new handle. The thread that steers waits meanwhile.
  void Begin() {
    const std::lock_guard<std::mutex> guard(handleMutex_);
    player_.reset();
    player_ = std::make_unique<SegPlayer>(plan_.workers);
    player_->UseFiles(prefix_, plan_.kind, 40);
    player_->SetList(kPlaylist);
    // A live list goes on where it was; on demand it is the same again.
    begin_ = plan_.kind == Kind::kLive ? end_ : 0;
    end_ = begin_;
    at_ = begin_;
    listed_ = begin_;
    const int count = plan_.kind == Kind::kLive ? 20 : kPlaylist;
    for (int i = 0; i < count; ++i) {
      Append();
    }
  }

  // Mostly the next one; sometimes the same, one nearby, one far away.
  void Choose() {
    const int dice = random_.Below(100);
    if (dice < 60) {
      at_ += 1;
    } else if (dice < 75) {
      at_ += random_.Below(12) - (plan_.kind == Kind::kLive ? 0 : 6);
    } else if (dice < 90) {
      at_ = plan_.kind == Kind::kLive ? at_ + random_.Below(60) : begin_ + random_.Below(kPlaylist);
    }
    if (plan_.kind == Kind::kOnDemand) {
      at_ = std::clamp(at_, begin_, end_ - 1);
      return;
    }
    const int wanted = at_ + 5 + random_.Below(40);
    while (end_ <= at_ || (end_ < wanted && random_.Chance(80))) {
      Append();
    }
  }

  // Opens the segment and reads it, all or a part. Failures are answered as a player would.
  std::string Play() {
    const Segment segment = SegmentOf(at_);
    const uint64_t until = random_.Chance(70) ? segment.length + 1 : static_cast<uint64_t>(random_.Below(kMostBytes));
    const Clock::time_point start = Clock::now();
    for (;;) {
      player_->ForgetCodes();
      if (player_->Open(UrlOf(segment), segment) != 0) {
        return "Open failed";
      }
      std::string wrong;
      const End end = Read(until, start, &wrong);
      if (end == kWrong) {
        return wrong;
      }
      if (end == kRead) {
        if (random_.Chance(50)) {
          ZV_HttpBaseSegCacheClose(player_->Get());
        }
        return "";
      }
      if (end == kRefused) {
        Begin();  // a server's error ahead: nothing else leads out
        return "";
      }
    }
  }

  enum End { kRead, kFailedNow, kRefused, kWrong };

  End Read(uint64_t until, Clock::time_point start, std::string* wrong) {
    int32_t result = 1;
    while (result == 1 && player_->Position() < until) {
      uint32_t n = 0;
      *wrong = player_->ReadOnce(1 + random_.Below(40000), &result, &n);
      if (!wrong->empty() || result < 0) {
        *wrong = wrong->empty() ? "Read gave -1" : *wrong;
        return kWrong;
      }
      delivered_ += n;
      if (result == 1 && n == 0) {
        const End end = JudgeCodes();
        if (end != kRead) {
          return end;
        }
        if (Clock::now() - start > std::chrono::milliseconds(kStallMs)) {
          *wrong = "nothing more after " + std::to_string(player_->Position());
          return kWrong;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    }
    completed_ += result == 0 ? 1 : 0;
    return kRead;
  }

  // What a player does when nothing comes: that depends on what it was told.
  End JudgeCodes() const {
    for (const int32_t code : player_->Codes()) {
      if (code == kFailed || code == kUnreachable) {
        return kFailedNow;
      }
      if (code != kOk && code != ZV_HTTP_CODE_REDIRECTED) {
        return kRefused;
      }
    }
    return kRead;
  }

  std::string Check() const { return player_->Check(); }

  // The second thread: every call that may come from anywhere. It slows down while the reader gets nowhere: on a slow
  // machine it would otherwise drop every download before its end.
  void Steer(uint64_t seed) {
    Random dice(seed + 1);
    int mostUs = kSteerUs;
    for (uint64_t seen = 0; !isOver_.load(); seen = delivered_.load()) {
      mostUs = delivered_.load() == seen ? std::min(2 * mostUs, kMostSteerUs) : kSteerUs;
      {
        const std::lock_guard<std::mutex> guard(handleMutex_);
        if (player_ != nullptr) {
          SteerOnce(&dice);
        }
      }
      std::this_thread::sleep_for(std::chrono::microseconds(dice.Below(mostUs)));
    }
  }

  void SteerOnce(Random* dice) {
    HttpBaseSegCache* const handle = player_->Get();
    switch (dice->Below(8)) {
      case 0:
        ZV_HttpBaseSegCacheAbortCurrentCaching(handle);
        isStopped_ = true;
        break;
      case 1:
        ZV_HttpBaseSegCacheSetThreadNumber(handle, 1 + dice->Below(5));
        break;
      case 2: {
        // The same resource under another name.
        const Segment segment = SegmentOf(begin_ + dice->Below(kPlaylist));
        if (plan_.kind == Kind::kOnDemand && !plan_.ranges) {
          ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle, UrlOf(segment).c_str(), 0, segment.seq);
        }
        break;
      }
      case 3: {
        const Segment listed = SegmentOf(listed_);
        const int32_t result = player_->Add(UrlOf(listed), listed);
        EXPECT_EQ(result, plan_.kind == Kind::kLive ? 0 : 1);
        break;
      }
      case 4:
        EXPECT_EQ(Check(), "");
        break;
      default:
        break;
    }
    if (isStopped_ && dice->Chance(70)) {
      ZV_HttpBaseSegCacheResumeCaching(handle);
      isStopped_ = false;
    }
  }

  const Plan plan_;
  Random random_;
  origin::Server* const server_;
  const std::string prefix_;
  std::mutex handleMutex_;
  std::unique_ptr<SegPlayer> player_;  // changed under handleMutex_
  int begin_ = 0;                      // changed under handleMutex_
  int end_ = 0;
  int at_ = 0;
  std::atomic<int> listed_{0};          // one that is surely listed
  std::atomic<uint64_t> delivered_{0};  // bytes
  int completed_ = 0;
  bool isStopped_ = false;
  std::atomic<bool> isOver_{false};
  std::thread steerer_;
};

class WalkTest : public SegTest {
 protected:
  WalkTest() : SegTest(LUM_LEVEL_NONE, 60 + 3 * static_cast<int>(FromEnvironment("ZV_WALK_SECONDS", kDefaultSeconds))) {
    server_.Put("/all", origin::PatternResource(1001 * kMostBytes, 7));
  }

  // A request in thirteen goes wrong, mostly in a way that passes.
  void MisbehaveAtRandom(uint64_t seed) {
    server_.Handle([random = std::make_shared<Random>(seed)](const origin::Request& request) {
      if (!random->Chance(8)) {
        return origin::Answer{};
      }
      origin::Answer answer;
      switch (random->Below(9)) {
        case 0:
          return origin::CutAt(random->Below(static_cast<int>(kMostBytes)));
        case 1:
          return origin::ResetAt(random->Below(1000) - 1);
        case 2:
          return origin::Status(410);
        case 3:
          return random->Chance(10) ? origin::Status(503, "no media") : origin::Answer{};
        case 4:
          return random->Chance(20) ? origin::Status(404, "no media") : origin::Answer{};
        case 5:
          answer.bytesPerSecond = 500000;
          return answer;
        case 6:
          answer.ignoreRange = true;
          return answer;
        case 7:
          answer.chunkBytes = 5000;
          return answer;
        default:
          return origin::Redirect(request.target + "?moved");
      }
    });
  }

  void Run(const Plan& plan) {
    const uint64_t seed = Seed(plan.name);
    SCOPED_TRACE(std::string(plan.name) + ", seed " + std::to_string(seed));
    fault_platform::SetTimeScale(5 * kTimeScale);
    if (plan.faults) {
      MisbehaveAtRandom(seed + 2);
    }
    Walk walk(plan, seed, &server_, Prefix());
    const Clock::time_point start = Clock::now();
    const int opens = static_cast<int>(FromEnvironment("ZV_WALK_OPENS", kDefaultOpens));
    const std::chrono::duration<double> most(FromEnvironment("ZV_WALK_SECONDS", kDefaultSeconds));
    int done = 0;
    while (done < opens && Clock::now() - start < most) {
      ASSERT_EQ(walk.Step(), "") << "open " << done;
      ++done;
    }
    printf("%s: %d opens, %d read to their end, %d requests\n", plan.name, done, walk.Completed(),
           server_.RequestCount());
  }
};

TEST_F(WalkTest, OnDemand) {
  Run({"on demand", Kind::kOnDemand, 3, false, false});
}

TEST_F(WalkTest, OnDemandWithFaults) {
  Run({"on demand with faults", Kind::kOnDemand, 2, true, false});
}

TEST_F(WalkTest, ByteRangesWithFaults) {
  Run({"byte ranges with faults", Kind::kOnDemand, 5, true, true});
}

TEST_F(WalkTest, Live) {
  Run({"live", Kind::kLive, 5, false, false});
}

TEST_F(WalkTest, LiveWithFaults) {
  Run({"live with faults", Kind::kLive, 4, true, false});
}

}  // namespace
}  // namespace seg
