#include "CacheReader.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr int32_t kCacheTimeSeconds = 40;
// For everything: more than the duration of the media, which makes a second of it a thousandth of the stream.
constexpr int32_t kLongCacheTimeSeconds = 1000000;
constexpr int32_t kMediaSeconds = 1000;
constexpr size_t kBlockBytes = 65536;
// Short against the millisecond that is to be seen, long enough to leave the core to the transfer.
constexpr auto kStep = std::chrono::microseconds(20);
// As long as the plain downloader's reader waits: asking more often takes the cores away from what is measured.
constexpr auto kFullStep = std::chrono::milliseconds(1);
constexpr auto kFullLimit = std::chrono::seconds(60);

}  // namespace

CacheReader::CacheReader(const CacheReaderOptions& options) : options_(options), block_(kBlockBytes, '\0') {
  handle_ = ZV_HttpBaseCacheInit(TakeCode, this);
  if (handle_ == nullptr) {
    throw std::runtime_error("a cache could not be made");
  }
  const bool isEverything = options_.ahead == Ahead::kEverything;
  const LocalCacheParam param = {isEverything ? kLongCacheTimeSeconds : kCacheTimeSeconds, folder_.Prefix().c_str()};
  ZV_HttpBaseCacheSetLocalCache(handle_, &param);
  if (options_.ahead != Ahead::kDefault) {
    const int32_t duration = isEverything ? kMediaSeconds * 1000 : options_.durationMs;
    ZV_HttpBaseCacheSetDuration(handle_, &duration);
  }
}

CacheReader::~CacheReader() {
  ZV_HttpBaseCacheRelease(&handle_);
}

void CacheReader::Open() {
  if (ZV_HttpBaseCacheOpen(handle_, options_.url.c_str()) != 0) {
    throw std::runtime_error("the cache refused to open " + options_.url);
  }
}

bool CacheReader::Seek(int64_t position) {
  const int32_t before = answersInside_;
  position_ = position;
  ZV_HttpBaseCacheClose(handle_);
  ZV_HttpBaseCacheSetRange(handle_, position, -1);
  Open();
  return answersInside_ != before;
}

bool CacheReader::Look(void* buffer, uint32_t size, uint32_t* count) {
  const int32_t more = ZV_HttpBaseCacheRead(handle_, buffer, size, count);
  position_ += *count;
  if (*count == 0) {
    Check();
  }
  return more == 1;
}

int64_t CacheReader::ReadOn(int64_t count) {
  int64_t total = 0;
  bool more = true;
  while (more && total < count) {
    uint32_t read = 0;
    more = Look(block_.data(), static_cast<uint32_t>(std::min<int64_t>(count - total, kBlockBytes)), &read);
    total += read;
    if (more && read == 0) {
      std::this_thread::sleep_for(kStep);
    }
  }
  return total;
}

void CacheReader::AwaitFirstByte() {
  if (ReadOn(1) != 1) {
    throw std::runtime_error("no byte came from " + options_.url);
  }
}

bool CacheReader::IsFull() const {
  int32_t ms = 0;
  ZV_HttpBaseCacheGetBufferingTime(handle_, &ms);
  if (options_.ahead != Ahead::kEverything) {
    return ms >= kCacheTimeSeconds * 1000;
  }
  const int64_t length = Length();
  return length > 0 && ms / 1000 >= (length - position_) / std::max<int64_t>(length / kMediaSeconds, 1);
}

void CacheReader::AwaitFull() const {
  AwaitThat(
      "the cache is full",
      [this] {
        Check();
        return IsFull();
      },
      kFullLimit, kFullStep);
}

int32_t CacheReader::TakeCode(void* self, int32_t code) {
  auto* const reader = static_cast<CacheReader*>(self);
  if (code != ZV_HTTP_CODE_OK) {
    reader->failureCode_ = code;
  } else if (std::this_thread::get_id() == reader->player_) {
    reader->answersInside_ += 1;
  }
  return 0;
}

void CacheReader::Check() const {
  const int32_t code = failureCode_;
  if (code != 0) {
    throw std::runtime_error("the cache failed with code " + std::to_string(code));
  }
}
