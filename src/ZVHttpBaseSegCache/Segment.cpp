// One segment: its making, its URL, its range. Range, duration and seq never change; the rest is guarded by the mutex.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

HttpBaseSegCacheSegment* ZV_HttpBaseSegCacheMakeNewSegment(const char* url, int32_t duration, int32_t isRange,
                                                           int32_t rangeStart, int32_t rangeLen, int32_t seq) {
  HttpBaseSegCacheSegment* segment = static_cast<HttpBaseSegCacheSegment*>(ZV_Calloc(sizeof(HttpBaseSegCacheSegment)));
  if (segment == nullptr) {
    LOG_ERROR("%s failed for no memory");
    return nullptr;
  }
  if (ZV_HttpBaseSegCacheInitSegment(segment, url, duration, isRange, rangeStart, rangeLen, seq) == 0) {
    LOG_ERROR("%s failed for no memory 2");
    ZV_Free(&segment);
  }
  return segment;
}

int32_t ZV_HttpBaseSegCacheInitSegment(HttpBaseSegCacheSegment* segment, const char* url, int32_t duration,
                                       int32_t isRange, int32_t rangeStart, int32_t rangeLen, int32_t seq) {
  *segment = {};
  segment->url = CopyText(url);
  segment->duration = duration;
  segment->isRange = isRange;
  segment->rangeStart = rangeStart;
  segment->rangeLen = rangeLen;
  segment->seq = seq;
  segment->threadIndex = -1;
  return segment->url == nullptr ? 0 : 1;
}

void ZV_HttpBaseSegCacheReplaceUrl(HttpBaseSegCacheSegment* segment, const char* url) {
  char* copy = CopyText(url);
  if (copy == nullptr) {
    LOG_ERROR("%s failed for no memory");
    return;
  }
  ZV_Free(&segment->url);
  segment->url = copy;
}

void FreeSegment(HttpBaseSegCacheSegment** segment) {
  if (*segment == nullptr) {
    return;
  }
  ZV_HttpBaseCacheFileReleaseCacheFile(&(*segment)->cacheFile);
  ZV_Free(&(*segment)->url);
  ZV_Free(segment);
}

int32_t DurationOf(const HttpBaseSegCacheSegment* segment) {
  return std::max(segment->duration, 0);
}

int64_t RangeStartOf(const HttpBaseSegCacheSegment* segment) {
  return segment->isRange == 0 ? 0 : std::max<int64_t>(segment->rangeStart, 0);
}

int64_t RangeEndOf(const HttpBaseSegCacheSegment* segment) {
  return segment->isRange == 0 || segment->rangeLen <= 0 ? -1 : RangeStartOf(segment) + segment->rangeLen - 1;
}
