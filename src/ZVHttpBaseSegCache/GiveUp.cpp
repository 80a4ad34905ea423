// Leaving the local cache because a file can be neither made nor written. On the worker that found out.
//
// givingUp is set and the workers are told to end under the mutex; from then on Read gives nothing and Open waits. A Read
// that is copying is waited for, so that where the reader stands is final; then the handle's own stream is opened there,
// without a lock, and only then the mode changes.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

constexpr char kName[] = "ZV_HttpBaseSegCacheReopenReadSegment";

// How direct reading goes on.
struct Continuation {
  int32_t how;  // ContinuedOn
  char* url;    // owned
  int64_t start;
  int64_t end;
  bool failed;  // no memory
};

// Whether this worker is the one that leaves the local cache. Its own segment is dropped either way.
bool BeginGivingUp(HttpBaseSegCache* cache, int32_t worker) {
  const SegGuard guard(cache);
  const HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  PutBack(cache, worker, kSegmentWaiting);
  if (segment == nullptr) {
    LOG_LINE(LUM_LEVEL_ERROR, cache->currReadIndex,
             "ZV_HttpBaseSegCacheReopenReadSegment segment is null, currReadIndex %d");
    return false;
  }
  LOG_TRACE_AS(kName, "%s Enter thread %d abortCacheThread=%d current read segment=%s", worker,
               cache->abortCacheThread.load(), segment->url);
  if (IsEnding(cache)) {
    LOG_TRACE_AS(kName, "%s thread %d current read segment has been reopen so do nothing", worker);
    return false;
  }
  cache->givingUp = worker;
  StopWorkers(cache);
  return true;
}

// No Read copies, and no other worker has the read segment: it may just have completed it.
bool IsReadSegmentAtRest(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  return cache->isReading == 0 && ReadSegment(cache)->threadIndex < 0;
}

void AwaitRest(HttpBaseSegCache* cache, int32_t worker) {
  for (;;) {
    const uint32_t seen = cache->threadArgs[worker]->wakeUps.load();
    if (IsReadSegmentAtRest(cache)) {
      return;
    }
    SleepUntilWoken(cache, worker, seen);
  }
}

// The reader may have had every byte of a resource whose end is not known: then nothing is left to ask for.
bool MayBeOver(const HttpBaseSegCacheSegment* segment) {
  return segment->readerPos > 0 && RangeEndOf(segment) < 0 &&
         (segment->contentLength <= 0 || RangeStartOf(segment) + segment->readerPos >= segment->contentLength);
}

// A segment that the reader has closed, or that the server has refused, is not asked for again.
Continuation Decide(HttpBaseSegCache* cache, int32_t worker) {
  const SegGuard guard(cache);
  const HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  Continuation next = {kNotContinued, nullptr, -1, -1, false};
  if (segment->state == kSegmentCached && segment->readerPos >= ZV_HttpBaseCacheFileGetCacheSize(segment->cacheFile)) {
    next.how = kContinuedEnd;
    return next;
  }
  if (segment->openFlag != 0 || segment->state == kSegmentFailed || cache->released.load() != 0) {
    return next;
  }
  LOG_TRACE_AS(kName, "%s thread %d re-open segment=%s", worker, segment->url);
  next.start = RangeStartOf(segment) + segment->readerPos;
  next.end = RangeEndOf(segment);
  next.url = CopyText(segment->url);
  next.how = next.url == nullptr ? kContinuedFailed : MayBeOver(segment) ? kContinuedRest : kContinuedStream;
  next.failed = next.url == nullptr;
  return next;
}

// A range whose bytes have all been read leaves nothing to ask for.
void Continue(HttpBaseSegCache* cache, const Continuation& next) {
  HttpBaseSegCacheStream* const stream = cache->stream;
  if (ZV_HttpBaseSegCacheStreamGetOpenFlag(stream) == 0) {
    ZV_HttpBaseSegCacheStreamClose(stream);
  }
  cache->continued.store(next.how);
  if (next.how != kContinuedStream && next.how != kContinuedRest) {
    return;
  }
  if (next.end >= 0 && next.start > next.end) {
    cache->continued.store(kContinuedEnd);
    return;
  }
  ZVIner_SetStrictRange(stream->httpBase, 1);
  ZV_HttpBaseSegCacheStreamSetRange(stream, next.start, next.end);
  // A whole resource knows no range.
  const bool whole = next.start == 0 && next.end < 0;
  ZV_HttpBaseSegCacheStreamSetNeedDownloadComplete(stream, whole ? cache->needDownloadComplete.load() : -1);
  ZV_HttpBaseSegCacheStreamOpen(stream, next.url);
}

void EndGivingUp(HttpBaseSegCache* cache, const Continuation& next) {
  const SegGuard guard(cache);
  NoteWake(cache, cache->givingUp);  // an Open may wait on that worker's condition
  cache->isLocalCache.store(0);
  cache->givingUp = -1;
  cache->currCacheTime = 0;
  if (next.failed) {
    NoteMessage(cache, ZV_HTTP_CODE_FAILED);
  }
  NoteState(cache, ZV_SEG_CACHE_STATE_GIVEN_UP, 0);
  NoteState(cache, ZV_SEG_CACHE_STATE_BUFFERED, 0);
}

}  // namespace

void ZV_HttpBaseSegCacheReopenReadSegment(HttpBaseSegCache* cache, int32_t worker) {
  const bool isFirst = BeginGivingUp(cache, worker);
  ZV_HttpBaseSegCacheStreamClose(cache->streams[worker]);
  if (!isFirst) {
    return;
  }
  AwaitRest(cache, worker);
  Continuation next = Decide(cache, worker);
  Continue(cache, next);
  EndGivingUp(cache, next);
  ZV_Free(&next.url);
}
