// Making and releasing a handle, turning its local cache on and off, stopping and resuming it. The caller's threads.
#include <new>

#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

// No other thread knows the record yet.
void SetInitialValues(HttpBaseSegCache* cache, HttpBaseMsgCallback callback, void* userData) ZV_UNCHECKED {
  cache->msgCallback = callback;
  cache->userData = userData;
  cache->needDownloadComplete.store(-1);
  cache->maxThreadNum.store(1);
  cache->currReadIndex = -1;
  cache->endWriteIndex = -1;
  cache->givingUp = -1;
  std::fill(std::begin(cache->writeIndex), std::end(cache->writeIndex), -1);
}

void FreeRecord(HttpBaseSegCache* cache) {
  cache->~HttpBaseSegCache();
  ZV_Free(&cache);
}

void FreeParam(HttpBaseSegCache* cache) {
  if (cache->localCacheParam != nullptr) {
    ZV_Free(&cache->localCacheParam->cacheDir);
    ZV_Free(&cache->localCacheParam);
  }
}

bool CopyParam(HttpBaseSegCache* cache, const LocalCacheParam* param) {
  cache->localCacheParam = static_cast<LocalCacheParam*>(ZV_Calloc(sizeof(LocalCacheParam)));
  if (cache->localCacheParam == nullptr) {
    return false;
  }
  cache->localCacheParam->cacheTime = std::max(param->cacheTime, kLeastSegCacheSeconds);
  if (param->cacheDir == nullptr) {
    return true;  // no file can be made there; that is said where it is tried
  }
  cache->localCacheParam->cacheDir = CopyText(param->cacheDir);
  return cache->localCacheParam->cacheDir != nullptr;
}

void FreeList(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  ZV_HttpBaseSegCacheReleaseList(cache);
}

// What the local cache is made of, in reverse order. Nobody else uses it: the workers are joined, or were never made.
void FreeLocalCache(HttpBaseSegCache* cache) ZV_UNCHECKED {
  // All streams before any condition: what they still report may wake another worker.
  for (HttpBaseSegCacheStream*& stream : cache->streams) {
    if (stream != nullptr) {
      ZV_HttpBaseSegCacheStreamRelease(&stream);
    }
  }
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    FreeWorker(cache, worker);
  }
  if (cache->mutex != nullptr) {
    FreeList(cache);
  }
  ZV_Free(&cache->segmentList);
  ZV_MutexRelease(&cache->mutex);
  FreeParam(cache);
}

void CountInUse(HttpBaseSegCache* cache, int32_t worker, bool isInUse) {
  const SegGuard guard(cache);
  cache->threadInUse[worker] = isInUse ? 1 : 0;
  cache->usingThreadNum += isInUse ? 1 : -1;
}

bool StartWorker(HttpBaseSegCache* cache, int32_t worker) {
  const bool isUsed = worker < cache->maxThreadNum.load();
  if (isUsed) {
    CountInUse(cache, worker, true);
  }
  if (ZV_HttpBaseSegCacheThreadInit(cache, worker) == 0) {
    return true;
  }
  if (isUsed) {
    CountInUse(cache, worker, false);
  }
  return false;
}

// How many workers could be made.
int32_t StartWorkers(HttpBaseSegCache* cache) {
  constexpr char kName[] = "ZV_HttpBaseSegCacheSetLocalCache";
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    if (StartWorker(cache, worker)) {
      continue;
    }
    if (worker == 0) {
      LOG_ERROR_AS(kName, "%s the first thread init failed");
    } else {
      LOG_ERROR_AS(kName, "%s %d thread init failed", worker);
    }
    return worker;
  }
  return kWorkers;
}

bool MakeLocalCache(HttpBaseSegCache* cache, const LocalCacheParam* param, int32_t isVod) ZV_UNCHECKED {
  constexpr char kName[] = "ZV_HttpBaseSegCacheSetLocalCache";
  if (!CopyParam(cache, param)) {
    LOG_ERROR_AS(kName, "%s set localcache failed for no memory");
    return false;
  }
  LOG_TRACE_AS(kName, "%s isVod=%d cacheTime=%d cacheDir=%s", isVod, param->cacheTime, Printable(param->cacheDir));
  cache->segmentList = static_cast<HttpBaseSegCacheList*>(ZV_Calloc(sizeof(HttpBaseSegCacheList)));
  if (cache->segmentList == nullptr) {
    LOG_ERROR_AS(kName, "%s make segmentList failed for no memory");
    return false;
  }
  cache->mutex = ZV_MutexInit();
  if (cache->mutex == nullptr) {
    LOG_ERROR_AS(kName, "%s mutex init failed");
    return false;
  }
  cache->isVod = isVod != 0 ? 1 : 0;
  const int32_t made = StartWorkers(cache);
  if (made > 0) {
    LOG_TRACE_AS(kName, "%s %d threads has been initialized successfully", made);
  }
  const SegGuard guard(cache);  // one that has lost its memory meanwhile is replaced
  UseThreadsUpToMax(cache);
  return made > 0;
}

constexpr char kLeaveName[] = "ZV_HttpBaseSegCacheResumeMemoryCache";

void LogLeaving(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  LOG_TRACE_AS(kLeaveName, "%s Enter currReadIndex=%d isLocalCache=%d abortCacheThread=%d", cache->currReadIndex,
               cache->isLocalCache.load(), cache->abortCacheThread.load());
}

int32_t IsCachingStopped(HttpBaseSegCache* cache) {
  if (!IsLocal(cache)) {
    return 0;
  }
  const SegGuard guard(cache);
  return cache->isTsListFailed;
}

void LeaveLocalCache(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  // The worker that is giving up does so itself: nobody else may open the own stream before it has.
  if (cache->givingUp < 0) {
    cache->isLocalCache.store(0);
  }
  cache->currCacheTime = 0;
  StopWorkers(cache);
}

void DeleteFiles(HttpBaseSegCache* cache) {
  LOG_TRACE_AS(kLeaveName, "%s delete all the cache files");
  const SegGuard guard(cache);
  LoseAllFiles(cache);
  NoteState(cache, ZV_SEG_CACHE_STATE_BUFFERED, 0);
  LOG_TRACE_AS(kLeaveName, "%s Exit");
}

void SetCachingStopped(HttpBaseSegCache* cache, bool isStopped) {
  const SegGuard guard(cache);
  if (!isStopped) {
    LOG_TRACE_AS("ZV_HttpBaseSegCacheResumeCaching", "%s  currReadIndex=%d", cache->currReadIndex);
  }
  cache->isTsListFailed = isStopped ? 1 : 0;
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    const bool isBusy = cache->threadState[worker] != 0;
    if (isStopped ? isBusy : cache->threadInUse[worker] != 0 && !isBusy) {
      NoteWake(cache, worker);
    }
  }
}

}  // namespace

extern "C" HttpBaseSegCache* ZV_HttpBaseSegCacheInit(HttpBaseMsgCallback callback, void* userData) {
  void* const memory = ZV_Calloc(sizeof(HttpBaseSegCache));
  if (memory == nullptr) {
    LOG_ERROR("%s init failed for no memory");
    return nullptr;
  }
  HttpBaseSegCache* const cache = new (memory) HttpBaseSegCache();
  SetInitialValues(cache, callback, userData);
  cache->stream = ZV_HttpBaseSegCacheStreamInit(HttpBaseSegCache_Callback_Impl, cache, -1);
  if (cache->stream == nullptr) {
    LOG_ERROR("%s ZV_HttpBaseInit failed for no memory");
    FreeRecord(cache);
    return nullptr;
  }
  return cache;
}

extern "C" void ZV_HttpBaseSegCacheSetLocalCache(HttpBaseSegCache* cache, const LocalCacheParam* param, int32_t isVod) {
  if (!HasParams(__func__, cache != nullptr && param != nullptr)) {
    return;
  }
  if (cache->localCacheMade.load() != 0) {
    LOG_ERROR("%s refused: the local cache has been on");
    return;
  }
  if (!MakeLocalCache(cache, param, isVod)) {
    FreeLocalCache(cache);
    return;
  }
  cache->localCacheMade.store(1);
  cache->isLocalCache.store(1);
}

extern "C" void ZV_HttpBaseSegCacheCloseLocalCache(HttpBaseSegCache* cache) {
  if (!HasParams(__func__, cache != nullptr) || !MayStop(__func__, cache)) {
    return;
  }
  LOG_TRACE("%s Enter isLocalCache=%d", cache->isLocalCache.load());
  if (cache->localCacheMade.load() != 0) {
    LogLeaving(cache);
    LeaveLocalCache(cache);
    JoinWorkers(cache);
    DeleteFiles(cache);
  }
  LOG_TRACE("%s Exit");
}

extern "C" void ZV_HttpBaseSegCacheAbortCurrentCaching(HttpBaseSegCache* cache) {
  if (!HasParams(__func__, cache != nullptr)) {
    return;
  }
  LOG_TRACE("%s Enter isTsListFailed=%d", IsCachingStopped(cache));
  if (IsLocal(cache)) {
    SetCachingStopped(cache, true);
  }
  LOG_TRACE("%s Exit");
}

extern "C" void ZV_HttpBaseSegCacheResumeCaching(HttpBaseSegCache* cache) {
  if (!HasParams(__func__, cache != nullptr)) {
    return;
  }
  LOG_TRACE("%s Enter");
  if (IsLocal(cache)) {
    SetCachingStopped(cache, false);
  }
  LOG_TRACE("%s Exit");
}

extern "C" void ZV_HttpBaseSegCacheRelease(HttpBaseSegCache** handle) {
  if (!HasParams(__func__, handle != nullptr && *handle != nullptr) || !MayStop(__func__, *handle)) {
    return;
  }
  HttpBaseSegCache* const cache = *handle;
  LOG_TRACE("%s Enter");
  cache->released.store(1);
  if (cache->localCacheMade.load() != 0) {
    LeaveLocalCache(cache);
    LOG_TRACE("%s set abortCacheThread 1");
    JoinWorkers(cache);
    FreeLocalCache(cache);
  }
  ZV_HttpBaseSegCacheStreamRelease(&cache->stream);
  FreeRecord(cache);
  *handle = nullptr;
  LOG_TRACE("%s Exit");
}
