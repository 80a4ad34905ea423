// What the downloader reports. On the downloader's threads; the player is called after the lock is given back. Codes of a
// download that is being closed, and those that come once Release has begun, are dropped.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// Whether this code is for the file cache; otherwise it goes to the player as it is.
bool IsForFileCache(const HttpBaseCache* cache) {
  return cache->isLocalCache.load() != 0;
}

void PassOn(const HttpBaseCache* cache, int32_t code) {
  if (cache->msgCallback != nullptr) {
    cache->msgCallback(cache->userData, code);
  }
}

void LearnLength(HttpBaseCache* cache) {
  if (cache->contentLength.load() <= 0) {
    cache->contentLength.store(ZV_HttpBaseGetContentLength(cache->httpBase));
  }
}

void LearnLengthForFiles(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (IsLengthKnown(cache)) {
    return;
  }
  const int64_t length = ZV_HttpBaseGetContentLength(cache->httpBase);
  const int32_t packed = ZVIner_IsContentEncoded(cache->httpBase);
  if (cache->contentLength.load() <= 0 || (packed == 0 && length > 0)) {
    cache->contentLength.store(length);
    cache->lengthIsPacked = packed;
  }
  if (IsLengthKnown(cache) && cache->duration.load() > 0) {
    ZV_HttpBaseCacheUpdateCacheUnitSize(cache);
  }
}

// A resource of another length is another resource: its bytes do not fit between those that are cached.
bool IsAnotherResource(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const int64_t length = ZV_HttpBaseGetContentLength(cache->httpBase);
  return IsLengthKnown(cache) && ZVIner_IsContentEncoded(cache->httpBase) == 0 && length > 0 &&
         length != cache->contentLength.load();
}

// The answer to a request that is about to be replaced, or whose bytes nobody wants any more: only the player's own open
// still hears of it.
void TakeFormerAnswer(HttpBaseCache* cache, int32_t code) ZV_REQUIRES(cache->cacheCondition) {
  cache->isWaitForHttpNotify = 0;
  cache->connectionLost = 1;
  if (code == ZV_HTTP_CODE_OK) {
    LearnLengthForFiles(cache);
    if (cache->isOpenInternal == 0) {
      NoteMessage(cache, code);
    }
    cache->isOpenInternal = 0;
  }
  ZV_ConditionSignal(cache->cacheCondition);
}

// afterFailure: the downloader has tried again by itself, and what it reported before is overcome.
void TakeOk(HttpBaseCache* cache, bool afterFailure) ZV_REQUIRES(cache->cacheCondition) {
  LearnLengthForFiles(cache);
  if (IsAnotherResource(cache)) {
    TakeFailure(cache, ZV_HTTP_CODE_FAILED);
    return;
  }
  cache->cacheThreadSignaled = 1;
  cache->isWaitForHttpNotify = 0;
  cache->abortCurrRecving = 0;
  if (afterFailure) {
    cache->connectionLost = 0;
    cache->httpResponseError = 0;
    cache->isTransError = 0;
  }
  if (cache->isSetRange != 0) {
    cache->isSetRange = 0;
    NoteMessage(cache, ZV_HTTP_CODE_OK);
  } else if (cache->isOpenInternal == 0) {
    NoteMessage(cache, ZV_HTTP_CODE_OK);
  } else {
    cache->isOpenInternal = 0;
  }
  ZV_ConditionSignal(cache->cacheCondition);
}

void TakeCode(HttpBaseCache* cache, int32_t code) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->reopening == kClosing || cache->released != 0) {
    return;
  }
  const bool afterFailure = cache->requestOutstanding == 0;
  const bool abandoned = cache->requestGeneration != cache->generation;
  cache->requestOutstanding = 0;
  if (cache->seekWanted != 0 || cache->awaitingFormer != 0 || abandoned) {
    TakeFormerAnswer(cache, code);
  } else if (code == ZV_HTTP_CODE_OK) {
    TakeOk(cache, afterFailure);
  } else if (IsAnswerOfEnd(cache, code)) {
    TakeEnd(cache);
  } else {
    TakeFailure(cache, code);
  }
}

}  // namespace

void TakeFailure(HttpBaseCache* cache, int32_t code) {
  const bool transfer = code == ZV_HTTP_CODE_FAILED || code == ZV_HTTP_CODE_UNREACHABLE;
  LOG_TRACE_AS("HttpBaseCache_Callback_Impl", "%s http response error currentCacheSize=%d",
               ClampToInt32(cache->currentCacheSize));
  if (transfer) {
    cache->isTransError = 1;
  }
  cache->isWaitForHttpNotify = 0;
  cache->requestOutstanding = 0;
  cache->abortCurrRecving = 1;
  cache->connectionLost = 1;
  cache->isSetRange = 0;
  if (cache->currentCacheSize == 0) {
    cache->failureTick = ZV_ChronoGetTick();
    NoteMessage(cache, code);
  } else if (cache->httpResponseError == 0 || !transfer) {
    cache->httpResponseError = code;  // a status says more than the failed transfer that follows from it
  }
  WakeCacheThread(cache);
}

int32_t HttpBaseCache_Callback_Impl(void* userData, int32_t code) {
  HttpBaseCache* const cache = static_cast<HttpBaseCache*>(userData);
  if (code == ZV_HTTP_CODE_REDIRECTED) {
    return 0;
  }
  if (IsForFileCache(cache)) {
    const CacheGuard guard(cache);
    if (cache->isLocalCache.load() != 0) {
      TakeCode(cache, code);
      return 0;
    }
    if (cache->reopening == kClosing || cache->released != 0) {
      return 0;
    }
  }
  if (code == ZV_HTTP_CODE_OK) {
    LearnLength(cache);
  }
  PassOn(cache, code);
  return 0;
}
