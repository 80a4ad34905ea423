#include "CachePlayer.h"

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <string_view>
#include <thread>

namespace cache {
namespace {

constexpr int kReadMs = 30000;
constexpr size_t kShownLogBytes = 3000;

using Clock = std::chrono::steady_clock;

bool IsOver(Clock::time_point start) {
  return Clock::now() - start > std::chrono::milliseconds(kReadMs);
}

// Where wrong bytes belong: for messages.
std::string Belongs(const origin::Resource& expected, const char* from, const char* to) {
  constexpr size_t kBlock = 1000000;
  const std::string_view wanted(from, std::min<size_t>(32, static_cast<size_t>(to - from)));
  std::string there(kBlock + wanted.size(), '\0');
  for (uint64_t position = 0; wanted.size() > 8 && position < expected.length; position += kBlock) {
    const size_t n = std::min<uint64_t>(there.size(), expected.length - position);
    expected.read(position, there.data(), n);
    const size_t found = std::string_view(there).substr(0, n).find(wanted);
    if (found != std::string_view::npos) {
      return ", it belongs to " + std::to_string(position + found);
    }
  }
  return ", it belongs nowhere";
}

// "" when the bytes are those of the resource, else what differs.
std::string Compare(const origin::Resource& expected, uint64_t position, const char* bytes, size_t n) {
  if (position + n > expected.length) {
    return "byte " + std::to_string(expected.length) + " is behind the end";
  }
  std::vector<char> right(n);
  expected.read(position, right.data(), n);
  const auto differs = std::mismatch(right.begin(), right.end(), bytes);
  if (differs.first == right.end()) {
    return "";
  }
  const uint64_t at = position + static_cast<uint64_t>(differs.first - right.begin());
  return "byte " + std::to_string(at) + " is wrong" + Belongs(expected, differs.second, bytes + n);
}

}  // namespace

std::string EndAt(uint64_t position) {
  return "end at " + std::to_string(position);
}

CachePlayer::CachePlayer(int32_t connections, int32_t retries) {
  handle_ = ZV_HttpBaseCacheInit(TakeCode, this);
  if (handle_ == nullptr) {
    throw std::runtime_error("no handle");
  }
  ZV_HttpBaseCacheSetHttpConnNum(handle_, &connections);
  ZV_HttpBaseCacheSetRetryTimes(handle_, retries);
  ZV_HttpBaseCacheSetRetryDelay(handle_, 0);
  ZV_HttpBaseCacheSetCacheStateCallback(handle_, TakeState);
}

CachePlayer::~CachePlayer() {
  Release();
}

void CachePlayer::UseFiles(const std::string& prefix, int32_t cacheTime) {
  const LocalCacheParam param = {cacheTime, prefix.c_str()};
  ZV_HttpBaseCacheSetLocalCache(handle_, &param);
}

int32_t CachePlayer::Open(const std::string& url) {
  url_ = url;
  return ZV_HttpBaseCacheOpen(handle_, url.c_str());
}

void CachePlayer::SetRange(int64_t position) {
  ZV_HttpBaseCacheSetRange(handle_, position, -1);
  position_ = static_cast<uint64_t>(std::max<int64_t>(position, 0));
}

int32_t CachePlayer::Seek(int64_t position) {
  SetRange(position);
  return ZV_HttpBaseCacheOpen(handle_, url_.c_str());
}

void CachePlayer::Release() {
  if (handle_ != nullptr) {
    ZV_HttpBaseCacheRelease(&handle_);
    EXPECT_EQ(handle_, nullptr);
  }
}

std::string CachePlayer::ReadAll(const origin::Resource& expected, uint32_t readSize) {
  return Read(expected, std::numeric_limits<uint64_t>::max(), readSize);
}

std::string CachePlayer::ReadSome(const origin::Resource& expected, uint64_t count, uint32_t readSize) {
  return Read(expected, std::min(position_ + count, expected.length), readSize);
}

std::string CachePlayer::ReadOnce(const origin::Resource& expected, uint32_t size, int32_t* result, uint32_t* n) {
  std::vector<char> buffer(size);
  uint32_t count = 77;
  const int32_t outcome = ZV_HttpBaseCacheRead(handle_, buffer.data(), size, &count);
  std::string wrong =
      count > size ? "count " + std::to_string(count) : Compare(expected, position_, buffer.data(), count);
  wrong += wrong.empty() ? Check() : "";
  position_ += count;
  if (result != nullptr) {
    *result = outcome;
  }
  if (n != nullptr) {
    *n = count;
  }
  return wrong;
}

std::string CachePlayer::Read(const origin::Resource& expected, uint64_t end, uint32_t readSize) {
  const Clock::time_point start = Clock::now();
  while (position_ < end) {
    int32_t result = 0;
    uint32_t n = 0;
    const uint32_t size = static_cast<uint32_t>(std::min<uint64_t>(readSize, end - position_));
    const std::string wrong = ReadOnce(expected, size, &result, &n);
    if (!wrong.empty()) {
      return wrong;
    }
    if (result != 1) {
      return result == 0 && position_ == end ? "" : EndAt(position_);
    }
    if (n == 0) {
      if (IsOver(start)) {
        return "nothing more after " + std::to_string(position_);
      }
      SleepMicroseconds(200);
    }
  }
  return "";
}

std::string CachePlayer::Check() const {
  if (handle_->fileCacheMade.load() == 0) {
    return "";
  }
  const CacheGuard guard(handle_);
  const char* const wrong = ZVIner_CheckCache(handle_);
  return wrong == nullptr ? "" : std::string("invariant ") + wrong;
}

int64_t CachePlayer::Ask(const std::function<int64_t(HttpBaseCache*)>& question) const {
  const CacheGuard guard(handle_);
  return question(handle_);
}

bool CachePlayer::WaitFor(const std::function<bool(HttpBaseCache*)>& isReached, int ms) const {
  return WaitUntil([&] { return Ask([&](HttpBaseCache* cache) { return isReached(cache) ? 1 : 0; }) == 1; }, ms);
}

bool CachePlayer::WaitUntilResting(int ms) const {
  return WaitFor(
      [](HttpBaseCache* cache) ZV_UNCHECKED {
        return cache->cacheThreadSignaled == 0 && !HasRequest(cache) && cache->requestOutstanding == 0 &&
               cache->cycleNode == nullptr && cache->reopening == 0;
      },
      ms);
}

std::vector<int32_t> CachePlayer::Codes() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return codes_;
}

int CachePlayer::Count(int32_t code) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(std::count(codes_.begin(), codes_.end(), code));
}

bool CachePlayer::WaitForCode(int32_t code, int count, int ms) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(ms),
                           [&] { return std::count(codes_.begin(), codes_.end(), code) >= count; });
}

std::vector<int32_t> CachePlayer::States() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return states_;
}

int32_t CachePlayer::TakeCode(void* self, int32_t code) {
  CachePlayer* const player = static_cast<CachePlayer*>(self);
  if (player->onCode) {
    player->onCode(code);
  }
  const std::lock_guard<std::mutex> guard(player->mutex_);
  player->codes_.push_back(code);
  player->changed_.notify_all();
  return 0;
}

void CachePlayer::TakeState(void* self, int32_t state, int32_t value) {
  CachePlayer* const player = static_cast<CachePlayer*>(self);
  EXPECT_EQ(state, ZV_CACHE_STATE_BUFFERED);
  if (player->onState) {
    player->onState(value);
  }
  const std::lock_guard<std::mutex> guard(player->mutex_);
  if (player->states_.empty() || player->states_.back() != value) {
    player->states_.push_back(value);
  }
}

CacheTest::CacheTest(int32_t lowestLevel, int seconds)
    : watchdog_(seconds, testing::UnitTest::GetInstance()->current_test_info()->name()), log_(lowestLevel) {
  fault_platform::SetTimeScale(kTimeScale);
}

CacheTest::~CacheTest() {
  fault_platform::Reset();
  EXPECT_EQ(FilesInFolder(), 0) << "cache files are left";
  if (HasFailure()) {
    const std::string text = log_.Text();
    const size_t from = text.size() > kShownLogBytes ? text.size() - kShownLogBytes : 0;
    printf("---- end of the log ----\n%s\n", text.c_str() + from);
  }
}

origin::Resource CacheTest::Put(const std::string& target, uint64_t length, uint32_t seed) {
  const origin::Resource resource = origin::PatternResource(length, seed);
  server_.Put(target, resource);
  return resource;
}

std::vector<std::string> CacheTest::RangesOf(const std::string& target) const {
  std::vector<std::string> ranges;
  for (const origin::Request& request : server_.LogOf(target)) {
    ranges.push_back(request.range.substr(request.range.find('=') + 1));
  }
  return ranges;
}

}  // namespace cache
