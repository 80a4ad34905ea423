// Opening, reading, seeking, and what the player asks about the cache. The player's threads.
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// The player's copy lives until Close; the cache's own outlives it, for the requests that it makes by itself.
bool KeepUrl(HttpBaseCache* cache, const char* url) {
  const MutexGuard guard(cache->mutex);
  char* copy = CopyText(url);
  if (copy == nullptr || !ReplaceText(&cache->url, url)) {
    ZV_Free(&copy);
    return false;
  }
  ZV_Free(&cache->privateUrl);
  cache->privateUrl = copy;
  return true;
}

void Seek(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  cache->everOpened = 1;
  cache->hasSeekTarget = 0;
  cache->currentReadPos = cache->seekTarget;
  cache->isSetRange = 1;
  if (cache->isTransError != 0) {
    cache->retryCount = 0;
  }
  ZV_HttpBaseCacheUpdateReadCacheFile(cache);
}

int32_t OpenDirectly(HttpBaseCache* cache, const char* url) {
  ZV_HttpBaseSetNeedDownloadComplete(cache->httpBase, cache->needDownloadComplete.load());
  return ZV_HttpBaseOpen(cache->httpBase, url);
}

// Opens the whole stream for the file cache, without the lock: opening takes locks that the downloader's threads hold when
// they report a code. What is open already stays as it is, even while a seek has closed the downloader for a moment.
int32_t OpenStream(HttpBaseCache* cache, const char* url) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->everOpened != 0) {
    LOG_ERROR_AS("ZV_HttpBaseCacheOpen", "%s refused: the stream is open and no seek is wanted");
    return -1;
  }
  cache->everOpened = 1;
  cache->requestOutstanding = 1;
  cache->requestGeneration = cache->generation;
  cache->isOpenInternal = 0;
  cache->connectionLost = 0;
  cache->currentRecvPos = 0;
  cache->lastRangeEnd = -1;
  cache->skipBytes = 0;
  cache->reopening = kOpening;
  LeaveLock(cache);
  const int32_t result = OpenDirectly(cache, url);
  TakeLock(cache);
  cache->reopening = kNotReopening;
  ZV_ConditionSignal(cache->cacheCondition);
  if (result != 0) {
    cache->everOpened = 0;
    cache->requestOutstanding = 0;
    cache->connectionLost = 1;
  }
  return result;
}

struct SeekTarget {
  bool wanted;
  int64_t start;
  int64_t end;
};

enum OpenRoute { kRouteSeek, kRouteStream, kRouteDirect };

OpenRoute OpenWithFileCache(HttpBaseCache* cache, const char* url, int32_t* result, SeekTarget* target) {
  const CacheGuard guard(cache);
  while (cache->reopening != kNotReopening) {
    WaitOn(cache);
  }
  if (cache->isLocalCache.load() == 0) {
    *target = {cache->hasSeekTarget != 0, cache->seekTarget, cache->seekEnd};
    cache->hasSeekTarget = 0;
    return kRouteDirect;
  }
  if (cache->hasSeekTarget != 0) {
    Seek(cache);
    return kRouteSeek;
  }
  *result = OpenStream(cache, url);
  return kRouteStream;
}

// The file cache may have been left without the player knowing: a seek is the same two calls as before.
int32_t OpenAfterGiveUp(HttpBaseCache* cache, const char* url, const SeekTarget& target) {
  if (target.wanted) {
    if (ZV_HttpBaseGetOpenFlag(cache->httpBase) == 0) {
      SaveRespValues(cache);
      ZV_HttpBaseClose(cache->httpBase);
      RestoreRespKeys(cache);
    }
    ZV_HttpBaseSetRange(cache->httpBase, target.start, target.end);
  }
  if (target.wanted && target.start > 0) {
    // A whole resource would begin at its first byte, and nobody drops what lies before the player's any more.
    ZV_HttpBaseSetNeedDownloadComplete(cache->httpBase, -1);
    return ZV_HttpBaseOpen(cache->httpBase, url);
  }
  return OpenDirectly(cache, url);
}

// Waits until the file cache has been left, if that is under way: the downloader is closed and opened meanwhile. False
// while the file cache is on.
bool HasLeftFileCache(HttpBaseCache* cache) {
  if (cache->fileCacheMade.load() == 0) {
    return true;
  }
  const CacheGuard guard(cache);
  while (cache->abortCache != 0 && cache->reopening != kNotReopening) {
    WaitOn(cache);
  }
  return cache->isLocalCache.load() == 0;
}

// A file that is being written cannot be read at the same time; its writer lets those who wait for it go first.
void AwaitReadFile(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  while (cache->busyNode != nullptr && cache->busyNode == cache->currentReadNode && cache->seekWanted == 0 &&
         ZV_HttpBaseCacheFileGetUnreadSize(cache->currentReadNode->cacheFile) > 0) {
    cache->fileWaiters += 1;
    WaitOn(cache);
    cache->fileWaiters -= 1;
    ZV_ConditionSignal(cache->cacheCondition);
  }
}

// The disk does not give back what was written: those bytes are fetched again, from the player's link on.
void ForgetLostBytes(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  CutAtReadPos(cache->currentReadNode->cacheFile);
  if (cache->lastNode == cache->currentReadNode) {
    cache->lastNode = nullptr;
  }
  cache->nextWriteNode = cache->currentReadNode;
  cache->generation += 1;
  ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  WakeCacheThread(cache);
}

void TakeFromFile(HttpBaseCache* cache, void* buffer, uint32_t size, uint32_t* readSize)
    ZV_REQUIRES(cache->cacheCondition) {
  HttpBaseCacheFile* const file = cache->currentReadNode->cacheFile;
  ZV_HttpBaseCacheFileReadDataFromCacheFile(file, buffer, size, readSize);
  cache->currentReadPos += *readSize;
  cache->currentCacheSize -= *readSize;
  if (*readSize == 0 && file->unreadSize > 0) {
    ForgetLostBytes(cache);
  }
  ZV_HttpBaseCacheReportCacheState(cache);
}

bool IsAtEnd(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return ZV_HttpBaseCacheFileIsLast(cache->currentReadNode->cacheFile) != 0 ||
         (IsLengthKnown(cache) && cache->currentReadPos >= cache->contentLength.load());
}

// The read file is used up. 0 at the end of the stream, else 1.
int32_t LeaveReadFile(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (IsAtEnd(cache)) {
    LOG_TRACE_AS("ZV_HttpBaseCacheRead", "%s read all data finish");
    cache->lastReportedCacheSize = 0;
    ZV_HttpBaseCacheReportCacheState(cache);
    return 0;
  }
  LOG_TRACE_AS("ZV_HttpBaseCacheRead", "%s select next cache file to read");
  if (cache->isTransError != 0) {
    cache->retryCount += 1;
  }
  ZV_HttpBaseCacheUpdateReadCacheFile(cache);
  RestartIfIdle(cache);
  return 1;
}

void ReportKeptFailure(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  LOG_TRACE_AS("ZV_HttpBaseCacheRead", "%s report the pre-http reponse error");
  cache->lastReportedCacheSize = 0;
  NoteMessage(cache, cache->httpResponseError);
}

int32_t ReadFromFiles(HttpBaseCache* cache, void* buffer, uint32_t size, uint32_t* readSize)
    ZV_REQUIRES(cache->cacheCondition) {
  if (cache->seekWanted != 0) {
    ZV_HttpBaseCacheReportCacheState(cache);
    return 1;
  }
  if (cache->currentCacheSize == 0 && cache->httpResponseError != 0) {
    ReportKeptFailure(cache);
  } else {
    TakeFromFile(cache, buffer, size, readSize);
  }
  return ZV_HttpBaseCacheFileIsReadFinish(cache->currentReadNode->cacheFile) != 0 ? LeaveReadFile(cache) : 1;
}

}  // namespace

extern "C" int32_t ZV_HttpBaseCacheOpen(HttpBaseCache* cache, const char* url) {
  if (!HasParams(__func__, cache != nullptr && url != nullptr) || !MayStop(__func__, cache)) {
    return -1;
  }
  if (!KeepUrl(cache, url)) {
    LOG_ERROR("%s failed for no memory");
    return -1;
  }
  if (cache->fileCacheMade.load() == 0) {
    return OpenDirectly(cache, url);
  }
  int32_t result = 0;
  SeekTarget target = {};
  switch (OpenWithFileCache(cache, url, &result, &target)) {
    case kRouteDirect:
      return OpenAfterGiveUp(cache, url, target);
    case kRouteSeek:
      LOG_TRACE("%s Exit for setRange");
      return 0;
    case kRouteStream:
      break;
  }
  return result;
}

extern "C" int32_t ZV_HttpBaseCacheClose(HttpBaseCache* cache) {
  LOG_TRACE("%s Enter");
  if (!HasParams(__func__, cache != nullptr) || !MayStop(__func__, cache)) {
    return -1;
  }
  {
    const MutexGuard guard(cache->mutex);
    ZV_Free(&cache->url);
  }
  cache->needDownloadComplete.store(-1);
  if (!HasLeftFileCache(cache)) {
    return 0;
  }
  cache->contentLength.store(-1);
  cache->duration.store(-1);
  FreeRespKeys(cache);
  LOG_TRACE("%s Exit");
  return ZV_HttpBaseClose(cache->httpBase);
}

extern "C" void ZV_HttpBaseCacheSetRange(HttpBaseCache* cache, int64_t start, int64_t end) {
  if (!HasParams(__func__, cache != nullptr)) {
    return;
  }
  LOG_TRACE("%s rangeStart=%lld, rangeEnd=%lld", Wide(start), Wide(end));
  if (cache->fileCacheMade.load() == 0) {
    ZV_HttpBaseSetRange(cache->httpBase, start, end);
    return;
  }
  const CacheGuard guard(cache);
  cache->hasSeekTarget = 1;
  const bool inFiles = cache->isLocalCache.load() != 0;
  cache->seekTarget = inFiles && start < 0 ? 0 : start;
  cache->seekEnd = inFiles ? -1 : end;
}

extern "C" int32_t ZV_HttpBaseCacheRead(HttpBaseCache* cache, void* buffer, uint32_t size, uint32_t* readSize) {
  if (!HasParams(__func__, cache != nullptr && buffer != nullptr && readSize != nullptr)) {
    return -1;
  }
  *readSize = 0;
  if (cache->fileCacheMade.load() != 0) {
    const CacheGuard guard(cache);
    AwaitReadFile(cache);
    if (cache->isLocalCache.load() != 0) {
      return size == 0 ? 1 : ReadFromFiles(cache, buffer, size, readSize);
    }
    if (cache->reopening != kNotReopening) {
      return 1;  // the file cache is being left: the downloader is still closed, which is no end
    }
  }
  return ZV_HttpBaseRead(cache->httpBase, buffer, size, readSize);
}

extern "C" void ZV_HttpBaseCacheSetDuration(HttpBaseCache* cache, const int32_t* duration) {
  if (!HasParams(__func__, cache != nullptr && duration != nullptr) || cache->isLocalCache.load() == 0) {
    return;
  }
  const CacheGuard guard(cache);
  cache->duration.store(*duration);
  LOG_TRACE("%s duration=%d", *duration);
  if (*duration != 0) {
    ZV_HttpBaseCacheUpdateCacheUnitSize(cache);
  }
}

extern "C" void ZV_HttpBaseCacheGetBufferingTime(HttpBaseCache* cache, int32_t* time) {
  if (!HasParams(__func__, cache != nullptr && time != nullptr)) {
    return;
  }
  *time = 0;
  if (cache->isLocalCache.load() == 0) {
    return;
  }
  const CacheGuard guard(cache);
  if (cache->isLocalCache.load() != 0) {
    *time = BufferedMs(cache);
  }
}
