#include "SegmentReader.h"

#include <stdexcept>

namespace {

constexpr int32_t kCacheTimeSeconds = 40;
constexpr int32_t kBlockBytes = 65536;
// Short against the millisecond that is to be seen, long enough to leave the core to the transfer.
constexpr auto kStep = std::chrono::microseconds(20);

}  // namespace

SegmentReader::SegmentReader(const SegmentReaderOptions& options) : options_(options), block_(kBlockBytes, '\0') {
  handle_ = ZV_HttpBaseSegCacheInit(TakeCode, this);
  if (handle_ == nullptr) {
    throw std::runtime_error("a segment cache could not be made");
  }
  ZV_HttpBaseSegCacheSetCacheStateCallback(handle_, TakeState);
  ZV_HttpBaseSegCacheSetThreadNumber(handle_, options_.workers);
  const LocalCacheParam param = {kCacheTimeSeconds, folder_.Prefix().c_str()};
  ZV_HttpBaseSegCacheSetLocalCache(handle_, &param, 1);
  const char listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES] = {};
  ZV_HttpBaseSegCacheSetList(handle_, listInfo, static_cast<int32_t>(options_.urls.size()), 0);
  int32_t seq = 0;
  for (const std::string& url : options_.urls) {
    ZV_HttpBaseSegCacheAddSegment(handle_, url.c_str(), options_.segmentMs, 0, 0, 0, seq++);
  }
}

SegmentReader::~SegmentReader() {
  Release();
}

void SegmentReader::Release() {
  if (handle_ != nullptr) {
    ZV_HttpBaseSegCacheRelease(&handle_);
  }
}

bool SegmentReader::Open(size_t index) {
  const int32_t before = answersInside_;
  ZV_HttpBaseSegCacheClose(handle_);
  ZV_HttpBaseSegCacheOpen(handle_, options_.urls.at(index).c_str());
  return answersInside_ != before;
}

bool SegmentReader::Look(void* buffer, int32_t size, uint32_t* count) {
  const int32_t more = ZV_HttpBaseSegCacheRead(handle_, buffer, size, count);
  if (*count == 0) {
    Check();
  }
  return more == 1;
}

int64_t SegmentReader::ReadAll() {
  int64_t total = 0;
  bool more = true;
  while (more) {
    uint32_t count = 0;
    more = Look(block_.data(), kBlockBytes, &count);
    total += count;
    if (more && count == 0) {
      std::this_thread::sleep_for(kStep);
    }
  }
  return total;
}

void SegmentReader::AwaitFirstByte() {
  uint32_t count = 0;
  while (Look(block_.data(), 1, &count) && count == 0) {
    std::this_thread::sleep_for(kStep);
  }
  if (count == 0) {
    throw std::runtime_error("no byte of a segment came");
  }
}

void SegmentReader::AwaitCached(size_t count) const {
  const auto wanted = static_cast<int32_t>(count) * options_.segmentMs;
  AwaitThat("the segments are cached", [this, wanted] {
    Check();
    return cachedMs_ >= wanted;
  });
}

int32_t SegmentReader::TakeCode(void* self, int32_t code) {
  auto* const reader = static_cast<SegmentReader*>(self);
  if (code != ZV_HTTP_CODE_OK) {
    reader->failureCode_ = code;
  } else if (std::this_thread::get_id() == reader->player_) {
    reader->answersInside_ += 1;
  }
  return 0;
}

void SegmentReader::TakeState(void* self, int32_t state, int32_t value) {
  auto* const reader = static_cast<SegmentReader*>(self);
  if (state == ZV_SEG_CACHE_STATE_BUFFERED) {
    reader->cachedMs_ = value;
  } else {
    reader->failureCode_ = ZV_HTTP_CODE_FAILED;
  }
}

void SegmentReader::Check() const {
  const int32_t code = failureCode_;
  if (code != 0) {
    throw std::runtime_error("a segment failed with code " + std::to_string(code));
  }
}
