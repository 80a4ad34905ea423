// Finding segments by their URL: exactly over the whole list first, then without what follows the last "?". Every thread;
// the mutex is held.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

// How a segment is compared; false where it is not meant whatever its URL.
struct Wanted {
  const char* url;
  bool (*mayBe)(const HttpBaseSegCacheSegment& segment, const void* context);
  const void* context;
};

bool IsExact(const char* left, const char* right) {
  return strcmp(left, right) == 0;
}

// The number of the first listed segment that matches, or -1.
int32_t FindFirst(HttpBaseSegCache* cache, const Wanted& wanted, bool (*matches)(const char*, const char*))
    ZV_REQUIRES(cache->mutex) {
  const int32_t count = ListedCount(cache);
  for (int32_t n = 0; n < count; ++n) {
    const HttpBaseSegCacheSegment* const segment = SegmentAt(cache, PlaceOf(cache, n));
    if (matches(segment->url, wanted.url) && wanted.mayBe(*segment, wanted.context)) {
      return n;
    }
  }
  return -1;
}

bool HasStart(const HttpBaseSegCacheSegment& segment, const void* start) {
  return start == nullptr || segment.rangeStart == *static_cast<const int64_t*>(start);
}

// Lists of byte ranges share one URL: there the range says which segment it is.
bool HasRange(const HttpBaseSegCacheSegment& segment, const void* context) {
  const HttpBaseSegCacheSegment& other = *static_cast<const HttpBaseSegCacheSegment*>(context);
  if (other.isRange == 0) {
    return true;
  }
  return segment.isRange != 0 && segment.rangeStart == other.rangeStart && segment.rangeLen == other.rangeLen;
}

}  // namespace

bool IsSamePath(const char* left, const char* right) {
  const char* const leftQuery = strrchr(left, '?');
  const char* const rightQuery = strrchr(right, '?');
  return leftQuery != nullptr && rightQuery != nullptr && leftQuery - left == rightQuery - right &&
         memcmp(left, right, static_cast<size_t>(leftQuery - left)) == 0;
}

int32_t ZV_HttpBaseSegCacheGetIndexByUrl(HttpBaseSegCache* cache, const char* url) {
  const int64_t start = cache->rangeStart;
  const Wanted wanted = {url, HasStart, cache->hasRange != 0 ? &start : nullptr};
  int32_t n = FindFirst(cache, wanted, IsExact);
  if (n < 0) {
    n = FindFirst(cache, wanted, IsSamePath);
  }
  cache->hasRange = 0;
  cache->rangeStart = 0;
  const int32_t count = ListedCount(cache);
  const int32_t last = cache->segmentList == nullptr ? 0 : PlaceOf(cache, count);
  LOG_TRACE("%s target index=%d lastIndex=%d", n < 0 ? last : PlaceOf(cache, n), last);
  if (n < 0) {
    LOG_FAILURE("%s, error set to currentReadIndex %d", cache->currReadIndex);
    return -1;
  }
  return PlaceOf(cache, n);
}

int32_t ZV_HttpBaseSegCacheFindLiveSegment(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment& wanted) {
  const Wanted listed = {wanted.url, HasRange, &wanted};
  if (FindFirst(cache, listed, IsExact) >= 0) {
    return 1;
  }
  const int32_t n = FindFirst(cache, listed, IsSamePath);
  if (n < 0) {
    return 0;
  }
  HttpBaseSegCacheSegment* const segment = SegmentAt(cache, PlaceOf(cache, n));
  if (segment->state != kSegmentOpening && segment->state != kSegmentAnswered) {
    ZV_HttpBaseSegCacheReplaceUrl(segment, wanted.url);
  }
  return 1;
}
