// The window: the read segment and those behind it that are fetched ahead. Every thread; the mutex is held.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

struct Walk {
  int32_t taken;     // segments of the window
  int64_t cachedMs;  // of those cached without a gap behind a cached read segment
};

// The read segment belongs to the window however long it is.
Walk WalkWindow(HttpBaseSegCache* cache, int32_t most) ZV_REQUIRES(cache->mutex) {
  const int64_t limitMs = static_cast<int64_t>(cache->localCacheParam->cacheTime) * 1000;
  Walk walk = {0, 0};
  int64_t totalMs = 0;
  bool unbroken = true;
  for (; walk.taken < most; ++walk.taken) {
    const HttpBaseSegCacheSegment* const segment = SegmentAt(cache, StepOn(cache, cache->currReadIndex, walk.taken));
    unbroken = unbroken && segment->state == kSegmentCached;
    walk.cachedMs += unbroken && walk.taken > 0 ? DurationOf(segment) : 0;
    totalMs += DurationOf(segment);
    if (walk.taken > 0 && totalMs > limitMs) {
      break;
    }
  }
  return walk;
}

// How many segments the window holds; a stale end, behind the reader or too far ahead, is no window.
int32_t WindowLength(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  if (cache->endWriteIndex < 0 || cache->currReadIndex < 0) {
    return 0;
  }
  const int32_t length = StepsBetween(cache, cache->currReadIndex, cache->endWriteIndex);
  // An Open of a cached segment may have left the window behind; the read segment is always in it.
  return length < 1 || length > kWindowSegments ? 1 : length;
}

// After a failure only the read segment may be taken, and not before it has been opened again if the failure was its own.
bool MayTake(HttpBaseSegCache* cache, int32_t index, const HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  return segment != nullptr && segment->state == kSegmentWaiting &&
         (cache->waitForRetry == 0 || (index == cache->currReadIndex && segment->transferFailed == 0));
}

int32_t FirstWaiting(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  if (cache->isTsListFailed != 0) {
    return -1;
  }
  const int32_t length = WindowLength(cache);
  for (int32_t n = 0; n < length; ++n) {
    const int32_t index = StepOn(cache, cache->currReadIndex, n);
    if (MayTake(cache, index, SegmentAt(cache, index))) {
      return index;
    }
  }
  return -1;
}

}  // namespace

void ZV_HttpBaseSegCacheUpdateCacheList(HttpBaseSegCache* cache) {
  if (cache->currReadIndex < 0) {
    return;
  }
  if (cache->isVod == 0) {
    const int32_t former = cache->segmentList->startIndex;
    cache->segmentList->startIndex = cache->currReadIndex;
    ZV_HttpBaseSegCacheReleaseReadSegments(cache, former, cache->currReadIndex);
  }
  const int32_t end = cache->isVod != 0 ? cache->segmentList->segmentNum : cache->segmentList->endIndex;
  const int32_t most = std::min(StepsBetween(cache, cache->currReadIndex, end), kWindowSegments);
  const Walk walk = WalkWindow(cache, most);
  cache->currCacheTime = ToInt32(walk.cachedMs);
  cache->endWriteIndex = StepOn(cache, cache->currReadIndex, walk.taken);
  LOG_TRACE("%s Enter endWriteIndex=%d currCacheTime=%d", cache->endWriteIndex, cache->currCacheTime);
  if (cache->isTsListFailed != 0) {
    LOG_TRACE("%s ts list is failed so not to signal any thread");
    return;
  }
  ZV_HttpBaseSegCacheNotifyAllThread(cache);
}

void ZV_HttpBaseSegCacheReleaseReadSegments(HttpBaseSegCache* cache, int32_t fromIndex, int32_t toIndex) {
  for (int32_t index = fromIndex; index != toIndex; index = StepOn(cache, index, 1)) {
    HttpBaseSegCacheSegment* const segment = SegmentAt(cache, index);
    if (segment != nullptr && segment->state == kSegmentCached) {
      LoseFile(cache, segment);
      segment->httpResponse = 0;
      segment->openFlag = 0;
      segment->state = kSegmentWaiting;
    }
  }
}

int32_t ZV_HttpBaseCacheGetWriteIndex(HttpBaseSegCache* cache, int32_t worker) {
  const int32_t index = FirstWaiting(cache);
  LOG_TRACE("%s thread %d get write index=%d isTsListFailed=%d waitForRetry=%d", worker, index, cache->isTsListFailed,
            cache->waitForRetry);
  return index;
}

void ZV_HttpBaseSegCacheReportCacheTime(HttpBaseSegCache* cache) {
  int64_t cachedMs = 0;
  const int32_t length = WindowLength(cache);
  for (int32_t n = 1; n < length; ++n) {
    const HttpBaseSegCacheSegment* const segment = SegmentAt(cache, StepOn(cache, cache->currReadIndex, n));
    if (segment == nullptr || segment->state != kSegmentCached) {
      break;
    }
    cachedMs += DurationOf(segment);
  }
  cache->currCacheTime = ToInt32(cachedMs);
  NoteState(cache, ZV_SEG_CACHE_STATE_BUFFERED, cache->currCacheTime);
}
