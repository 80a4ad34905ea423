// The list of segments: an array on demand, a ring of 2,000 slots live. The caller's threads; the mutex guards it.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

constexpr size_t kPointerBytes = sizeof(void*);

HttpBaseSegCacheSegment** NewArray(int32_t count) {
  if (count <= 0 || static_cast<size_t>(count) > SIZE_MAX / kPointerBytes) {
    return nullptr;
  }
  return static_cast<HttpBaseSegCacheSegment**>(ZV_Calloc(static_cast<size_t>(count) * kPointerBytes));
}

int32_t SlotsOf(const HttpBaseSegCache* cache, const HttpBaseSegCacheList* list) {
  if (list->segments == nullptr) {
    return 0;
  }
  return cache->isVod != 0 ? list->segmentNum : kLiveSlots;
}

int32_t AppendOnDemand(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment& wanted) ZV_REQUIRES(cache->mutex) {
  constexpr char kName[] = "ZV_HttpBaseSegCacheAddSegment";
  HttpBaseSegCacheList* const list = cache->segmentList;
  if (list->segmentNum >= list->maxNum) {
    LOG_LINE(LUM_LEVEL_FAILURE, list->segmentNum, "error add segment %d to list as maxNum %d", list->maxNum);
    return 1;
  }
  HttpBaseSegCacheSegment* const segment =
      ZV_HttpBaseSegCacheMakeNewSegment(wanted.url, wanted.duration, wanted.isRange,
                                        static_cast<int32_t>(wanted.rangeStart), wanted.rangeLen, wanted.seq);
  if (segment == nullptr) {
    LOG_ERROR_AS(kName, "%s make new segment failed");
    return 1;
  }
  list->segments[list->segmentNum++] = segment;
  return 0;
}

// What is left in a slot from an earlier lap of the ring. A worker that still downloads it frees it when it has dropped it.
void EmptySlot(HttpBaseSegCache* cache, HttpBaseSegCacheSegment** slot) ZV_REQUIRES(cache->mutex) {
  HttpBaseSegCacheSegment* const old = *slot;
  if (old != nullptr && old->threadIndex >= 0) {
    old->isDetached = 1;
    cache->abortSignal[old->threadIndex] = 1;
    cache->writeIndex[old->threadIndex] = -1;
    NoteWake(cache, old->threadIndex);
    *slot = nullptr;
    return;
  }
  if (old != nullptr) {
    LoseFile(cache, old);
  }
  FreeSegment(slot);
}

int32_t AppendLive(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment& wanted) ZV_REQUIRES(cache->mutex) {
  constexpr char kName[] = "ZV_HttpBaseSegCacheAddSegment";
  HttpBaseSegCacheList* const list = cache->segmentList;
  if (ZV_HttpBaseSegCacheFindLiveSegment(cache, wanted) != 0) {
    return 0;
  }
  const int32_t next = StepOn(cache, list->endIndex, 1);
  if (next == list->startIndex) {
    LOG_TRACE_AS(kName, "%s live cache list si full add segment failed");
    return 1;
  }
  HttpBaseSegCacheSegment** const slot = &list->segments[list->endIndex];
  HttpBaseSegCacheSegment* const segment =
      ZV_HttpBaseSegCacheMakeNewSegment(wanted.url, wanted.duration, wanted.isRange,
                                        static_cast<int32_t>(wanted.rangeStart), wanted.rangeLen, wanted.seq);
  if (segment == nullptr) {
    if (*slot == nullptr) {
      LOG_ERROR_AS(kName, "%s make new segment failed");
    } else {
      LOG_ERROR_AS(kName, "%s reuse segment failed");
    }
    return 1;
  }
  EmptySlot(cache, slot);
  *slot = segment;
  list->endIndex = next;
  return 0;
}

void UpdateOnDemand(HttpBaseSegCache* cache, const char* url, int32_t startSeq, int32_t seq) ZV_REQUIRES(cache->mutex) {
  const int32_t segmentNum = cache->segmentList->segmentNum;
  const int64_t index = static_cast<int64_t>(seq) - startSeq;
  if (index < 0 || index >= segmentNum) {
    LOG_ERROR_AS("ZV_HttpBaseSegCacheUpdateTsUrlBySeq", "%s vod illegal seq=%d startSeq=%d segmentNum=%d", seq,
                 startSeq, segmentNum);
    return;
  }
  ZV_HttpBaseSegCacheReplaceUrl(cache->segmentList->segments[index], url);
}

// False when no segment has that number.
bool UpdateLive(HttpBaseSegCache* cache, const char* url, int32_t seq) ZV_REQUIRES(cache->mutex) {
  const int32_t count = ListedCount(cache);
  for (int32_t n = 0; n < count; ++n) {
    HttpBaseSegCacheSegment* const segment = SegmentAt(cache, PlaceOf(cache, n));
    if (segment->seq == seq) {
      ZV_HttpBaseSegCacheReplaceUrl(segment, url);
      return true;
    }
  }
  return false;
}

bool UpdateUrl(HttpBaseSegCache* cache, const char* url, int32_t startSeq, int32_t seq) {
  const SegGuard guard(cache);
  if (!HasList(cache)) {
    LOG_ERROR_AS("ZV_HttpBaseSegCacheUpdateTsUrlBySeq", "%s there is no list yet");
    return true;
  }
  if (cache->isVod == 0) {
    return UpdateLive(cache, url, seq);
  }
  UpdateOnDemand(cache, url, startSeq, seq);
  return true;
}

}  // namespace

bool HasList(HttpBaseSegCache* cache) {
  return cache->segmentList != nullptr && cache->isListSet != 0;
}

HttpBaseSegCacheSegment* SegmentAt(HttpBaseSegCache* cache, int32_t index) {
  const HttpBaseSegCacheList* const list = cache->segmentList;
  if (list == nullptr || index < 0 || index >= SlotsOf(cache, list)) {
    return nullptr;
  }
  return list->segments[index];
}

HttpBaseSegCacheSegment* ReadSegment(HttpBaseSegCache* cache) {
  return SegmentAt(cache, cache->currReadIndex);
}

int32_t ListedCount(HttpBaseSegCache* cache) {
  const HttpBaseSegCacheList* const list = cache->segmentList;
  if (list == nullptr || list->segments == nullptr) {
    return 0;
  }
  return cache->isVod != 0 ? list->segmentNum : StepsBetween(cache, list->startIndex, list->endIndex);
}

int32_t PlaceOf(HttpBaseSegCache* cache, int32_t n) {
  return cache->isVod != 0 ? n : StepOn(cache, cache->segmentList->startIndex, n);
}

int32_t StepOn(const HttpBaseSegCache* cache, int32_t index, int32_t steps) {
  return cache->isVod != 0 ? index + steps : (index + steps) % kLiveSlots;
}

int32_t StepsBetween(const HttpBaseSegCache* cache, int32_t from, int32_t to) {
  return cache->isVod != 0 ? to - from : (to - from + kLiveSlots) % kLiveSlots;
}

void LoseAllFiles(HttpBaseSegCache* cache) {
  const int32_t slots = cache->segmentList == nullptr ? 0 : SlotsOf(cache, cache->segmentList);
  for (int32_t i = 0; i < slots; ++i) {
    HttpBaseSegCacheSegment* const segment = cache->segmentList->segments[i];
    // A worker that is not joined yet, by another call, gives up its segment itself.
    if (segment != nullptr && segment->cacheFile != nullptr && segment->threadIndex < 0) {
      LoseFile(cache, segment);
      segment->state = kSegmentWaiting;
      segment->httpResponse = 0;
    }
  }
}

void ZV_HttpBaseSegCacheReleaseList(HttpBaseSegCache* cache) {
  if (cache->segmentList == nullptr) {
    return;
  }
  const int32_t slots = SlotsOf(cache, cache->segmentList);
  for (int32_t i = 0; i < slots; ++i) {
    FreeSegment(&cache->segmentList->segments[i]);
  }
  ZV_Free(&cache->segmentList->segments);
  ZV_Free(&cache->segmentList);
}

extern "C" void ZV_HttpBaseSegCacheSetList(HttpBaseSegCache* cache, const void* listInfo, int32_t segmentNum,
                                           int32_t startSeq) {
  if (!HasParams(__func__, cache != nullptr && listInfo != nullptr)) {
    return;
  }
  if (cache->localCacheMade.load() == 0) {
    LOG_ERROR("%s the local cache is not on");
    return;
  }
  const SegGuard guard(cache);
  if (cache->isListSet != 0) {
    LOG_TRACE("%s seg list has been intialized!");
    return;
  }
  HttpBaseSegCacheList* const list = cache->segmentList;
  cache->isListSet = 1;
  list->maxNum = cache->isVod != 0 ? std::max(segmentNum, 0) : kLiveSlots;
  list->segments = NewArray(list->maxNum);
  if (list->segments == nullptr && list->maxNum > 0) {
    LOG_ERROR("%s segments failed for no memory");
    list->maxNum = 0;
    return;
  }
  memcpy(list->listInfo, listInfo, sizeof list->listInfo);
  list->startSeq = startSeq;
}

extern "C" int32_t ZV_HttpBaseSegCacheAddSegment(HttpBaseSegCache* cache, const char* url, int32_t duration,
                                                 int32_t isRange, int32_t rangeStart, int32_t rangeLen, int32_t seq) {
  if (!HasParams(__func__, cache != nullptr && url != nullptr)) {
    return 1;
  }
  if (cache->localCacheMade.load() == 0) {
    LOG_ERROR("%s the local cache is not on");
    return 1;
  }
  HttpBaseSegCacheSegment wanted = {};
  wanted.url = const_cast<char*>(url);
  wanted.duration = duration;
  wanted.isRange = isRange;
  wanted.rangeStart = rangeStart;
  wanted.rangeLen = rangeLen;
  wanted.seq = seq;
  const SegGuard guard(cache);
  if (!HasList(cache) || (cache->isVod == 0 && cache->segmentList->segments == nullptr)) {
    LOG_ERROR("%s there is no list yet");
    return 1;
  }
  return cache->isVod != 0 ? AppendOnDemand(cache, wanted) : AppendLive(cache, wanted);
}

extern "C" void ZV_HttpBaseSegCacheUpdateTsUrlBySeq(HttpBaseSegCache* cache, const char* url, int32_t startSeq,
                                                    int32_t seq) {
  if (!HasParams(__func__, cache != nullptr && url != nullptr)) {
    return;
  }
  if (cache->localCacheMade.load() == 0) {
    LOG_ERROR("%s the local cache is not on");
    return;
  }
  if (!UpdateUrl(cache, url, startSeq, seq)) {
    LOG_TRACE("%s live no same seq=%d failed to replace new url=%s", seq, url);
  }
}
