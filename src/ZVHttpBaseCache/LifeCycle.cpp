// Making and releasing a handle, turning its file cache on and off. The player's threads.
#include <new>

#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// No other thread knows the record yet.
void SetInitialValues(HttpBaseCache* cache, HttpBaseMsgCallback callback, void* userData) ZV_UNCHECKED {
  cache->msgCallback = callback;
  cache->userData = userData;
  cache->needDownloadComplete.store(-1);
  cache->contentLength.store(-1);
  cache->lastRangeEnd = -1;
  cache->duration.store(-1);
  cache->targetCacheSize = kDefaultTargetBytes;
  cache->sizePerSecond = kDefaultBytesPerSecond;
  cache->isWaitForHttpNotify = 1;
  cache->reservedBytes = kReservedBytes;
}

void FreeRecord(HttpBaseCache* cache) {
  ZV_MutexRelease(&cache->mutex);
  cache->~HttpBaseCache();
  ZV_Free(&cache);
}

void FreeParam(HttpBaseCache* cache) {
  if (cache->localCacheParam != nullptr) {
    ZV_Free(&cache->localCacheParam->cacheDir);
    ZV_Free(&cache->localCacheParam);
  }
}

bool CopyParam(HttpBaseCache* cache, const LocalCacheParam* param) {
  cache->localCacheParam = static_cast<LocalCacheParam*>(ZV_Calloc(sizeof(LocalCacheParam)));
  if (cache->localCacheParam == nullptr) {
    return false;
  }
  cache->localCacheParam->cacheTime =
      param->cacheTime < kLeastCacheTimeSeconds ? kLeastCacheTimeSeconds : param->cacheTime;
  if (param->cacheDir == nullptr) {
    return true;  // no file can be made there; that is said where it is tried
  }
  cache->localCacheParam->cacheDir = CopyText(param->cacheDir);
  if (cache->localCacheParam->cacheDir == nullptr) {
    FreeParam(cache);
    return false;
  }
  return true;
}

// The thread ends at its next look at the flags.
void StopCacheThread(HttpBaseCache* cache) {
  if (cache->cacheCondition == nullptr) {
    return;
  }
  {
    const CacheGuard guard(cache);
    cache->released = 1;
    cache->abortCache = 1;
    cache->isLeaving.store(1);
    cache->isWaitForHttpNotify = 0;
    cache->generation += 1;
    WakeCacheThread(cache);
  }
  ZV_ThreadJoin(cache->cacheThread);
  ZV_ThreadRelease(&cache->cacheThread);
}

// Once the downloader is gone nobody uses the chain or its lock.
void FreeFileCache(HttpBaseCache* cache) ZV_UNCHECKED {
  FreeChain(cache);
  FreeParam(cache);
  ZV_ConditionRelease(&cache->cacheCondition);
}

void FreeTexts(HttpBaseCache* cache) {
  FreeRespKeys(cache);
  const MutexGuard guard(cache->mutex);
  ZV_Free(&cache->url);
  ZV_Free(&cache->privateUrl);
}

int32_t IsWaitingForAnswer(HttpBaseCache* cache) {
  if (cache->cacheCondition == nullptr) {
    return 1;  // as Init has set it: without the file cache nobody else does
  }
  const CacheGuard guard(cache);
  return cache->isWaitForHttpNotify;
}

// A range that was set before counts: the first Open seeks to its start.
void TakeFirstRange(HttpBaseCache* cache) {
  const int64_t start = ZVIner_TakeRangeStart(cache->httpBase);
  const CacheGuard guard(cache);
  cache->hasSeekTarget = start > 0 ? 1 : 0;
  cache->seekTarget = start;
  cache->seekEnd = -1;
}

// The first link waits for the stream's first bytes: once those have gone to the player it would wait for ever.
bool MayStartFileCache(const HttpBaseCache* cache) {
  return cache->fileCacheMade.load() == 0 && ZV_HttpBaseGetOpenFlag(cache->httpBase) != 0;
}

}  // namespace

extern "C" HttpBaseCache* ZV_HttpBaseCacheInit(HttpBaseMsgCallback callback, void* userData) {
  void* const memory = ZV_Calloc(sizeof(HttpBaseCache));
  if (memory == nullptr) {
    LOG_ERROR("%s init failed for no memory");
    return nullptr;
  }
  HttpBaseCache* const cache = new (memory) HttpBaseCache();
  ScopeGuard undo([cache] { FreeRecord(cache); });
  cache->mutex = ZV_MutexInit();
  if (cache->mutex == nullptr) {
    LOG_ERROR("%s init failed for no memory");
    return nullptr;
  }
  SetInitialValues(cache, callback, userData);
  cache->httpBase = ZV_HttpBaseInit(HttpBaseCache_Callback_Impl, cache);
  if (cache->httpBase == nullptr) {
    LOG_ERROR("%s ZV_HttpBaseInit failed for no memory");
    return nullptr;
  }
  undo.Dismiss();
  return cache;
}

extern "C" void ZV_HttpBaseCacheSetLocalCache(HttpBaseCache* cache, const LocalCacheParam* param) {
  if (!HasParams(__func__, cache != nullptr && param != nullptr)) {
    return;
  }
  if (!MayStartFileCache(cache)) {
    LOG_ERROR("%s refused: the file cache has been on, or the stream is open");
    return;
  }
  LOG_TRACE("%s cacheTime=%d cacheDir=%s", param->cacheTime, Printable(param->cacheDir));
  if (!CopyParam(cache, param)) {
    LOG_ERROR("%s set localcache failed for no memory");
    return;
  }
  if (ZV_HttpBaseCacheStartCache(cache) == 0) {
    LOG_ERROR("%s start CacheThread failed, still cache in memory");
    FreeParam(cache);
    return;
  }
  TakeFirstRange(cache);
  ZVIner_SetStrictRange(cache->httpBase, 1);
  cache->fileCacheMade.store(1);
  cache->isLocalCache.store(1);
}

extern "C" void ZV_HttpBaseCacheCloseLocalCache(HttpBaseCache* cache) {
  if (!HasParams(__func__, cache != nullptr) || !MayStop(__func__, cache)) {
    return;
  }
  LOG_TRACE("%s Enter");
  if (cache->isLocalCache.load() != 0) {
    const CacheGuard guard(cache);
    if (cache->isLocalCache.load() != 0) {
      cache->giveUpWanted = 1;
      cache->isLeaving.store(1);
      cache->generation += 1;
      WakeCacheThread(cache);
    }
    while (cache->giveUpWanted != 0 || cache->reopening != kNotReopening) {
      WaitOn(cache);
    }
  }
  LOG_TRACE("%s Exit");
}

extern "C" void ZV_HttpBaseCacheRelease(HttpBaseCache** handle) {
  if (handle == nullptr || *handle == nullptr) {
    LOG_ERROR("%s input params NULL, reutrn");
    return;
  }
  HttpBaseCache* const cache = *handle;
  if (!MayStop(__func__, cache)) {
    return;
  }
  LOG_TRACE("%s Enter isWaitForHttpNotify=%d isLocalCache=%d", IsWaitingForAnswer(cache), cache->isLocalCache.load());
  StopCacheThread(cache);
  ZV_HttpBaseRelease(&cache->httpBase);
  FreeFileCache(cache);
  FreeTexts(cache);
  FreeRecord(cache);
  *handle = nullptr;
  LOG_TRACE("%s Exit");
}
