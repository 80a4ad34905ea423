// A worker: takes the first waiting segment of the window, downloads it, takes the next; rests when there is nothing to do.
//
//   resting --woken--> looking --segment taken--> downloading (Download.cpp) --> looking
//   looking --nothing waiting, not in use--> resting
//   any --abortCacheThread--> end
//
// It reads its wake counter before it looks at the state and rests only while that stands.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

constexpr char kName[] = "SegCacheThread";

enum Turn { kTurnEnd, kTurnRest, kTurnRetry, kTurnWork };

// Marks the segment as the worker's, under the same hold of the mutex that found it: none is taken twice.
Turn TakeSegment(HttpBaseSegCache* cache, SegCacheThreadArg* arg, int32_t index) ZV_REQUIRES(cache->mutex) {
  HttpBaseSegCacheSegment* const segment = SegmentAt(cache, index);
  // UpdateTsUrlBySeq may replace the segment's own at any time.
  arg->url = CopyText(segment->url);
  if (arg->url == nullptr) {
    LOG_ERROR_AS(kName, "%s failed for no memory");
    return kTurnRetry;
  }
  segment->state = kSegmentOpening;
  segment->threadIndex = arg->index;
  segment->transferFailed = 0;
  segment->contentLength = 0;
  segment->byteRate = 0;
  cache->writeIndex[arg->index] = index;
  cache->working[arg->index] = segment;
  cache->abortSignal[arg->index] = 0;
  LOG_TRACE_AS(kName, "%s thread %d processing %s ", arg->index, arg->url);
  return kTurnWork;
}

// The first segment of all is fetched by one worker alone, whichever has it: the others are woken when it is complete.
bool MustLeaveFirst(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  return cache->firstSegmentCached == 0 &&
         std::any_of(std::begin(cache->working), std::end(cache->working),
                     [](const HttpBaseSegCacheSegment* segment) { return segment != nullptr; });
}

Turn LookForWork(SegCacheThreadArg* arg, HttpBaseSegCacheSegment** segment) {
  HttpBaseSegCache* const cache = arg->cache;
  const int32_t i = arg->index;
  const SegGuard guard(cache);
  if (IsEnding(cache)) {
    return kTurnEnd;
  }
  if (cache->threadInUse[i] == 0) {
    LOG_TRACE_AS(kName, "%s thread %d not in use", i);
    cache->threadState[i] = 0;
    return kTurnRest;
  }
  if (cache->maxThreadNum.load() < cache->usingThreadNum) {
    LOG_TRACE_AS(kName, "%s thread %d should not use as maxThreadNum %d is lower than usingThreadNum %d", i,
                 cache->maxThreadNum.load(), cache->usingThreadNum);
    LeaveUse(cache, i);
    LOG_TRACE_AS(kName, "%s thread %d not in use", i);
    return kTurnRest;
  }
  LOG_TRACE_AS(kName, "%s thread %d state=%d", i, cache->threadState[i]);
  const int32_t index = MustLeaveFirst(cache) ? -1 : ZV_HttpBaseCacheGetWriteIndex(cache, i);
  if (index < 0) {
    cache->threadState[i] = 0;
    LOG_TRACE_AS(kName, "%s thread %d wait for no ts to process", i);
    return kTurnRest;
  }
  cache->threadState[i] = 1;
  const Turn turn = TakeSegment(cache, arg, index);
  *segment = cache->working[i];
  return turn;
}

// False when the thread is to end.
bool TakeTurn(SegCacheThreadArg* arg, void* buffer) {
  const uint32_t seen = arg->wakeUps.load();
  HttpBaseSegCacheSegment* segment = nullptr;
  switch (LookForWork(arg, &segment)) {
    case kTurnEnd:
      LOG_TRACE_AS(kName, "%s thread %d abort cache for calling release", arg->index);
      return false;
    case kTurnRest:
      SleepUntilWoken(arg->cache, arg->index, seen);
      return true;
    case kTurnRetry:
      SleepUntilWokenFor(arg->cache, arg->index, seen, kRetryMemoryMs);
      return true;
    case kTurnWork:
      DownloadSegment(arg, segment, buffer);
      ZV_Free(&arg->url);
      return true;
  }
  return false;
}

// The thread ends before it has worked; another one takes its place if there is one.
void GiveWay(SegCacheThreadArg* arg) {
  HttpBaseSegCache* const cache = arg->cache;
  const SegGuard guard(cache);
  cache->threadIsLost[arg->index] = 1;
  if (cache->threadInUse[arg->index] != 0) {
    LeaveUse(cache, arg->index);
    UseThreadsUpToMax(cache);
  }
}

bool IsInSpan(HttpBaseSegCache* cache, int32_t index) ZV_REQUIRES(cache->mutex) {
  return cache->isVod != 0 || StepsBetween(cache, cache->segmentList->startIndex, index) < ListedCount(cache);
}

}  // namespace

void PutBack(HttpBaseSegCache* cache, int32_t worker, SegmentState state) {
  HttpBaseSegCacheSegment* segment = cache->working[worker];
  // A live segment that the reader has left behind meanwhile is of no use any more.
  const bool isKept = state == kSegmentCached && segment->isDetached == 0 && IsInSpan(cache, cache->writeIndex[worker]);
  cache->working[worker] = nullptr;
  cache->writeIndex[worker] = -1;
  cache->abortSignal[worker] = 0;
  segment->threadIndex = -1;
  segment->state = state == kSegmentCached && !isKept ? kSegmentWaiting : state;
  if (!isKept) {
    LoseFile(cache, segment);
  }
  if (segment->state == kSegmentWaiting) {
    segment->httpResponse = 0;
  }
  if (segment->isDetached != 0) {
    FreeSegment(&segment);
  }
  if (cache->givingUp >= 0) {
    NoteWake(cache, cache->givingUp);
  }
}

int32_t SegCacheThread(void* threadArg) {
  SegCacheThreadArg* const arg = static_cast<SegCacheThreadArg*>(threadArg);
  EnterSegCacheThread(arg->cache);
  void* buffer = ZV_Calloc(static_cast<size_t>(kWorkerBufferBytes));
  if (buffer == nullptr) {
    LOG_FAILURE("%s thread %d malloc failed", arg->index);
    GiveWay(arg);
    return 0;
  }
  LOG_TRACE("%s thread %d Enter", arg->index);
  while (TakeTurn(arg, buffer)) {
  }
  ZV_Free(&buffer);
  LOG_TRACE("%s thread %d Exit", arg->index);
  return 1;
}
