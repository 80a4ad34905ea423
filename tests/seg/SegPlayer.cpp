#include "SegPlayer.h"

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace seg {
namespace {

constexpr size_t kShownLogBytes = 4000;

using Clock = std::chrono::steady_clock;

}  // namespace

SegPlayer::SegPlayer(int32_t workers) {
  handle_ = ZV_HttpBaseSegCacheInit(TakeCode, this);
  if (handle_ == nullptr) {
    throw std::runtime_error("no handle");
  }
  ZV_HttpBaseSegCacheSetCacheStateCallback(handle_, TakeState);
  ZV_HttpBaseSegCacheSetThreadNumber(handle_, workers);
  ZV_HttpBaseSegCacheSetRetryTimes(handle_, 0);
}

SegPlayer::~SegPlayer() {
  Release();
}

void SegPlayer::UseFiles(const std::string& prefix, Kind kind, int32_t cacheTime) {
  const LocalCacheParam param = {cacheTime, prefix.c_str()};
  ZV_HttpBaseSegCacheSetLocalCache(handle_, &param, kind == Kind::kOnDemand ? 1 : 0);
}

void SegPlayer::SetList(int32_t segmentNum) {
  const char listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES] = {};
  ZV_HttpBaseSegCacheSetList(handle_, listInfo, segmentNum, 0);
}

int32_t SegPlayer::Add(const std::string& url, const Segment& segment) {
  return ZV_HttpBaseSegCacheAddSegment(handle_, url.c_str(), segment.duration, segment.isRange ? 1 : 0,
                                       static_cast<int32_t>(segment.first), static_cast<int32_t>(segment.length),
                                       segment.seq);
}

void SegPlayer::Release() {
  if (handle_ != nullptr) {
    ZV_HttpBaseSegCacheRelease(&handle_);
    EXPECT_EQ(handle_, nullptr);
  }
}

int32_t SegPlayer::Open(const std::string& url) {
  return ZV_HttpBaseSegCacheOpen(handle_, url.c_str());
}

int32_t SegPlayer::Open(const std::string& url, const Segment& segment) {
  segment_ = segment;
  position_ = 0;
  if (segment.isRange) {
    ZV_HttpBaseSegCacheSetRange(handle_, static_cast<int64_t>(segment.first), -1);
  }
  return Open(url);
}

std::string SegPlayer::ReadOnce(int32_t size, int32_t* result, uint32_t* n) {
  std::vector<char> buffer(static_cast<size_t>(std::max(size, 1)));
  uint32_t count = 77;
  const int32_t outcome = ZV_HttpBaseSegCacheRead(handle_, buffer.data(), size, &count);
  std::string wrong;
  if (count > static_cast<uint32_t>(std::max(size, 0))) {
    wrong = "count " + std::to_string(count);
  } else if (position_ + count > segment_.length) {
    wrong = segment_.target + ": byte " + std::to_string(segment_.length) + " is behind the end";
  } else {
    const uint64_t from = segment_.first + position_;
    const size_t differs = origin::FindPatternMismatch(buffer.data(), from, count, segment_.seed);
    if (differs < count) {
      wrong = segment_.target + ": byte " + std::to_string(position_ + differs) + " is wrong";
    }
  }
  position_ += wrong.empty() ? count : 0;
  if (wrong.empty() && outcome == 0 && position_ != segment_.length) {
    wrong = segment_.target + ": end at " + std::to_string(position_) + " of " + std::to_string(segment_.length);
  }
  if (result != nullptr) {
    *result = outcome;
  }
  if (n != nullptr) {
    *n = count;
  }
  return wrong;
}

std::string SegPlayer::ReadAll(int32_t readSize, int ms) {
  const Clock::time_point start = Clock::now();
  int32_t result = 1;
  while (result == 1) {
    uint32_t n = 0;
    const std::string wrong = ReadOnce(readSize, &result, &n);
    if (!wrong.empty()) {
      return wrong;
    }
    if (result == 1 && n == 0) {
      if (Clock::now() - start > std::chrono::milliseconds(ms)) {
        return segment_.target + ": nothing more after " + std::to_string(position_);
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
  return result == 0 ? "" : "Read gave " + std::to_string(result);
}

std::string SegPlayer::ReadTo(uint64_t position, int32_t readSize, int ms) {
  const Clock::time_point start = Clock::now();
  while (position_ < position) {
    uint32_t n = 0;
    int32_t result = 1;
    const int32_t size =
        static_cast<int32_t>(std::min<uint64_t>(static_cast<uint64_t>(readSize), position - position_));
    const std::string wrong = ReadOnce(size, &result, &n);
    if (!wrong.empty() || (result != 1 && position_ < position)) {
      return wrong.empty() ? "Read gave " + std::to_string(result) : wrong;
    }
    if (n == 0) {
      if (Clock::now() - start > std::chrono::milliseconds(ms)) {
        return segment_.target + ": nothing more after " + std::to_string(position_);
      }
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
  return "";
}

std::string SegPlayer::Play(const std::string& url, const Segment& segment) {
  if (Open(url, segment) != 0) {
    return "Open failed";
  }
  return ReadAll();
}

std::string SegPlayer::Check() const {
  if (handle_->localCacheMade.load() == 0) {
    return "";
  }
  const SegGuard guard(handle_);
  const char* const wrong = ZVIner_CheckSegCache(handle_);
  return wrong == nullptr ? "" : std::string("invariant ") + wrong;
}

int64_t SegPlayer::Ask(const std::function<int64_t(HttpBaseSegCache*)>& question) const {
  const SegGuard guard(handle_);
  return question(handle_);
}

bool SegPlayer::WaitFor(const std::function<bool(HttpBaseSegCache*)>& isReached, int ms) const {
  return WaitUntil([&] { return Ask([&](HttpBaseSegCache* cache) { return isReached(cache) ? 1 : 0; }) == 1; }, ms);
}

int32_t SegPlayer::StateOf(int32_t index) const {
  const SegGuard guard(handle_);
  const HttpBaseSegCacheSegment* const segment = SegmentAt(handle_, index);
  return segment == nullptr ? -1 : segment->state;
}

bool SegPlayer::WaitForState(int32_t index, int32_t state, int ms) const {
  return WaitUntil([&] { return StateOf(index) == state; }, ms);
}

bool SegPlayer::WaitUntilResting(int ms) const {
  return WaitFor(
      [](HttpBaseSegCache* cache) ZV_UNCHECKED {
        return std::all_of(std::begin(cache->threadState), std::end(cache->threadState),
                           [](int32_t state) { return state == 0; });
      },
      ms);
}

std::vector<int32_t> SegPlayer::Codes() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return codes_;
}

int SegPlayer::Count(int32_t code) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(std::count(codes_.begin(), codes_.end(), code));
}

void SegPlayer::ForgetCodes() {
  const std::lock_guard<std::mutex> guard(mutex_);
  codes_.clear();
}

bool SegPlayer::WaitForCode(int32_t code, int count, int ms) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(ms),
                           [&] { return std::count(codes_.begin(), codes_.end(), code) >= count; });
}

bool SegPlayer::WaitForAnyCode(int ms) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(ms), [&] { return !codes_.empty(); });
}

std::vector<std::pair<int32_t, int32_t>> SegPlayer::States() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return states_;
}

int32_t SegPlayer::TakeCode(void* self, int32_t code) {
  SegPlayer* const player = static_cast<SegPlayer*>(self);
  if (player->onCode) {
    player->onCode(code);
  }
  const std::lock_guard<std::mutex> guard(player->mutex_);
  player->codes_.push_back(code);
  player->changed_.notify_all();
  return 0;
}

void SegPlayer::TakeState(void* self, int32_t type, int32_t value) {
  SegPlayer* const player = static_cast<SegPlayer*>(self);
  EXPECT_GE(value, 0);
  if (player->onState) {
    player->onState(type, value);
  }
  const std::lock_guard<std::mutex> guard(player->mutex_);
  player->states_.emplace_back(type, value);
}

SegTest::SegTest(int32_t lowestLevel, int seconds)
    : watchdog_(seconds, testing::UnitTest::GetInstance()->current_test_info()->name()), log_(lowestLevel) {
  fault_platform::SetTimeScale(kTimeScale);
}

SegTest::~SegTest() {
  fault_platform::Reset();
  EXPECT_EQ(FilesInFolder(), 0) << "cache files are left";
  if (HasFailure()) {
    const std::string text = log_.Text();
    const size_t from = text.size() > kShownLogBytes ? text.size() - kShownLogBytes : 0;
    printf("---- end of the log ----\n%s\n", text.c_str() + from);
  }
}

Segment SegTest::PutSegment(int number, uint64_t length, int32_t duration) {
  Segment segment;
  segment.target = "/s" + std::to_string(number);
  segment.length = length;
  segment.seed = static_cast<uint32_t>(number) + 1;
  segment.duration = duration;
  segment.seq = number;
  server_.Put(segment.target, origin::PatternResource(length, segment.seed));
  return segment;
}

std::vector<Segment> SegTest::PutSegments(int count, uint64_t length, int32_t duration) {
  std::vector<Segment> segments;
  for (int i = 0; i < count; ++i) {
    segments.push_back(PutSegment(i, length, duration));
  }
  return segments;
}

std::unique_ptr<SegPlayer> SegTest::NewPlayer(const std::vector<Segment>& segments, int32_t workers, Kind kind,
                                              int32_t cacheTime) {
  auto player = std::make_unique<SegPlayer>(workers);
  player->UseFiles(Prefix(), kind, cacheTime);
  player->SetList(static_cast<int32_t>(segments.size()));
  for (const Segment& segment : segments) {
    EXPECT_EQ(player->Add(Url(segment), segment), 0);
  }
  return player;
}

}  // namespace seg
