// What the downloaders report: on their threads, which hold no lock of the cache. The player is called, and the workers are
// woken, after the mutex is given back.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

constexpr char kName[] = "HttpBaseSegCache_Callback_Impl";
constexpr int32_t kFirstClientError = 400;
constexpr int32_t kLastClientError = 499;
constexpr int32_t kNothingThere = 416;

bool IsAnswer(int32_t code) {
  return code == ZV_HTTP_CODE_OK || (code >= kFirstClientError && code <= kLastClientError);
}

// A redirect that was followed: another code comes. A 302 that leads nowhere is the last one.
bool IsFollowed(HttpBaseSegCacheStream* stream, int32_t code) {
  return code == ZV_HTTP_CODE_REDIRECTED && ZV_HttpBaseSegCacheStreamGetRedirectURL(stream) != nullptr;
}

bool IsReadSegment(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  return segment == ReadSegment(cache);
}

// The own stream's: the player hears it at once. A stream that goes on with a segment and fails delivers the body of an
// error, or an end that is none: neither is the segment.
void TakeOwnCode(HttpBaseSegCache* cache, int32_t code) {
  const int32_t how = cache->continued.load();
  const bool isContinued = how == kContinuedStream || how == kContinuedRest;
  if (isContinued && code != ZV_HTTP_CODE_OK && !IsFollowed(cache->stream, code)) {
    const bool isEnd = how == kContinuedRest && code == kNothingThere;
    int32_t expected = how;  // an Open or Close may have ended it meanwhile
    cache->continued.compare_exchange_strong(expected, isEnd ? kContinuedEnd : kContinuedFailed);
    if (isEnd) {
      return;
    }
  }
  CallPlayer(cache, code);
}

void LearnLength(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment, int32_t worker) ZV_REQUIRES(cache->mutex) {
  const int64_t length = ZV_HttpBaseSegCacheStreamGetContentLength(cache->streams[worker]);
  segment->contentLength = static_cast<int32_t>(static_cast<uint32_t>(length & UINT32_MAX));
  if (segment->duration > 0) {
    segment->byteRate = ToInt32(static_cast<int64_t>(segment->contentLength) * 1000 / segment->duration);
  }
}

void TakeAnswer(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment, int32_t worker, int32_t code)
    ZV_REQUIRES(cache->mutex) {
  if (code == ZV_HTTP_CODE_OK) {
    LearnLength(cache, segment, worker);
  }
  // An error status after the 200 does not replace it: the transfer breaks off, and its failure comes next.
  if (segment->httpResponse == 0) {
    segment->httpResponse = code;
    ZV_HttpBaseSegCacheSignalThread(cache, segment, worker);
  }
  if (IsReadSegment(cache, segment)) {
    LOG_TRACE_AS(kName, "%s thread %d should notify outer", worker);
    LOG_TRACE_AS(kName, "%s thread %d notify outer", worker);
    NoteMessage(cache, code);
  }
}

void TakeWorkersCode(HttpBaseSegCache* cache, int32_t code, int32_t worker) ZV_REQUIRES(cache->mutex) {
  HttpBaseSegCacheSegment* const segment = cache->working[worker];
  if (segment == nullptr) {
    LOG_LINE(LUM_LEVEL_FAILURE, code, "recv respCode %d, wirteIndex=%d, segment is null", cache->writeIndex[worker]);
    return;
  }
  if (cache->isTsListFailed != 0) {
    LOG_TRACE_AS(
        kName,
        "%s ts list has been failed while recving http response so signal SegCacheThread thread %d without any other process",
        worker);
    ZV_HttpBaseSegCacheSignalThread(cache, segment, worker);
  } else if (cache->abortSignal[worker] != 0) {
    ZV_HttpBaseSegCacheSignalThread(cache, segment, worker);
  } else if (IsFollowed(cache->streams[worker], code)) {
    if (IsReadSegment(cache, segment)) {
      NoteMessage(cache, code);
    }
  } else if (IsAnswer(code)) {
    TakeAnswer(cache, segment, worker, code);
  } else {
    TakeTransferFailure(cache, worker, code == ZV_HTTP_CODE_REDIRECTED ? ZV_HTTP_CODE_FAILED : code);
  }
}

}  // namespace

void ZV_HttpBaseSegCacheSignalThread(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment, int32_t worker) {
  if (segment->state == kSegmentOpening) {
    segment->state = kSegmentAnswered;
  }
  NoteWake(cache, worker);
}

void TakeTransferFailure(HttpBaseSegCache* cache, int32_t worker, int32_t code) {
  HttpBaseSegCacheSegment* const segment = cache->working[worker];
  cache->waitForRetry = 1;
  segment->transferFailed = 1;
  if (IsReadSegment(cache, segment)) {
    LOG_TRACE_AS(kName, "%s thread %d notify outer the error!", worker);
    NoteMessage(cache, code);
    return;
  }
  if (cache->lastError == 0) {
    cache->lastError = code;
  }
  ZV_HttpBaseSegCacheSignalThread(cache, segment, worker);
}

int32_t HttpBaseSegCache_Callback_Impl(void* userData, int32_t code, int32_t index) {
  HttpBaseSegCache* const cache = static_cast<HttpBaseSegCache*>(userData);
  if (index < 0) {
    TakeOwnCode(cache, code);
    return 0;
  }
  if (!IsLocal(cache) || IsEnding(cache)) {
    return 0;
  }
  const SegGuard guard(cache);
  if (IsLocal(cache) && !IsEnding(cache)) {
    TakeWorkersCode(cache, code, index);
  }
  return 0;
}
