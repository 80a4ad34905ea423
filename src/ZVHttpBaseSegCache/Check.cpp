// The invariants of Records.h, executed. The mutex is held.
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

bool IsWorkersState(const HttpBaseSegCacheSegment* segment) {
  return segment->state == kSegmentOpening || segment->state == kSegmentAnswered;
}

const char* CheckSegment(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  const int32_t worker = segment->threadIndex;
  if (IsWorkersState(segment) != (worker >= 0)) {
    return "2: state and worker of a segment";
  }
  if (worker >= 0 && (cache->working[worker] != segment || cache->threadState[worker] == 0)) {
    return "2: a segment's worker has another one";
  }
  if (segment->state == kSegmentCached && segment->cacheFile == nullptr) {
    return "3: cached without a file";
  }
  if ((segment->state == kSegmentWaiting || segment->state == kSegmentFailed) && segment->cacheFile != nullptr) {
    return "3: a file without need";
  }
  return nullptr;
}

// Files and segments that hold one are few: the window's and those left behind the reader.
const char* CheckFile(HttpBaseSegCache* cache, int32_t n) ZV_REQUIRES(cache->mutex) {
  const HttpBaseSegCacheSegment* const segment = SegmentAt(cache, PlaceOf(cache, n));
  for (int32_t other = 0; segment->cacheFile != nullptr && other < n; ++other) {
    if (SegmentAt(cache, PlaceOf(cache, other))->cacheFile == segment->cacheFile) {
      return "3: a file shared by two";
    }
  }
  return nullptr;
}

const char* CheckList(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  const HttpBaseSegCacheList* const list = cache->segmentList;
  if (cache->isVod != 0 ? list->segmentNum < 0 || list->segmentNum > list->maxNum
                        : list->startIndex < 0 || list->startIndex >= kLiveSlots || list->endIndex < 0 ||
                              list->endIndex >= kLiveSlots) {
    return "1: bounds of the list";
  }
  const int32_t count = ListedCount(cache);
  for (int32_t n = 0; n < count; ++n) {
    const HttpBaseSegCacheSegment* const segment = SegmentAt(cache, PlaceOf(cache, n));
    if (segment == nullptr) {
      return "1: a hole in the list";
    }
    const char* wrong = CheckSegment(cache, segment);
    wrong = wrong == nullptr ? CheckFile(cache, n) : wrong;
    if (wrong != nullptr) {
      return wrong;
    }
  }
  if (cache->currReadIndex != -1 && ReadSegment(cache) == nullptr) {
    return "4: the read segment";
  }
  return nullptr;
}

const char* CheckWorkers(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  int32_t used = 0;
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    const HttpBaseSegCacheSegment* const segment = cache->working[worker];
    used += cache->threadInUse[worker];
    const bool isListed = segment != nullptr && segment->isDetached == 0;
    if (isListed != (cache->writeIndex[worker] >= 0)) {
      return "6: writeIndex without a listed segment, or the other way round";
    }
    if (isListed && SegmentAt(cache, cache->writeIndex[worker]) != segment) {
      return "6: writeIndex is not the segment's place";
    }
    if (segment != nullptr && segment->threadIndex != worker) {
      return "2: a worker's segment has another worker";
    }
  }
  return used == cache->usingThreadNum ? nullptr : "5: workers in use";
}

}  // namespace

const char* ZVIner_CheckSegCache(HttpBaseSegCache* cache) {
  if (!HasList(cache)) {
    return nullptr;
  }
  if (const char* const wrong = CheckList(cache)) {
    return wrong;
  }
  if (const char* const wrong = CheckWorkers(cache)) {
    return wrong;
  }
  const bool isClean = cache->waitForRetry != 0 || (cache->lastError == 0 && cache->retryCount == 0);
  return cache->currCacheTime >= 0 && isClean ? nullptr : "7: cached time, errors";
}
