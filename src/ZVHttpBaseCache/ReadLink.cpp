// Where the player reads next: after a seek, and when it has used up a file. On the player's threads, under the lock.
// Nothing slow happens here; what needs a file or a request is left to the CacheThread.
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

constexpr char kName[] = "ZV_HttpBaseCacheUpdateReadCacheFile";
constexpr int32_t kFilesBeforeRetry = 4;
constexpr int64_t kRestartPauseMs = 1000;

// The player is in cached data now: what is written elsewhere has no reader any more.
void AnswerSeekFromCache(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  cache->seekWanted = 0;
  if (ZV_HttpBaseCacheIsContinuous(cache, cache->currentReadNode, cache->nextWriteNode) == 0) {
    if (ZV_HttpBaseCacheFileIsWriteFinish(cache->nextWriteNode->cacheFile) == 0) {
      cache->abortCurrRecving = 1;
    }
    cache->nextWriteNode = cache->currentReadNode;
    cache->generation += 1;
    WakeCacheThread(cache);
  }
  cache->isSetRange = 0;
  NoteMessage(cache, ZV_HTTP_CODE_OK);
}

void TakeReadNode(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  cache->currentReadNode = node;
  ZV_HttpBaseCacheFileSetReadPosInStream(node->cacheFile, cache->currentReadPos);
  if (cache->isSetRange != 0) {
    AnswerSeekFromCache(cache);
  } else if (cache->isTransError != 0 && cache->retryCount >= kFilesBeforeRetry) {
    LOG_TRACE_AS(kName, "%s need to retry connecting for 5 cache files has been read finish!!!");
    cache->needReconnect = 1;
    cache->retryCount = 0;
    cache->httpResponseError = 0;
  }
  ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
}

void AskForSeek(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  cache->isTransError = 0;
  cache->needReconnect = 0;
  cache->currentCacheSize = 0;
  cache->isCacheFinish = 0;
  cache->lastReportedCacheSize = 0;
  cache->abortCurrRecving = 1;
  cache->seekWanted = 1;
  cache->restartWanted = 0;
  cache->generation += 1;
  WakeCacheThread(cache);
}

bool IsRestartDue(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->seekWanted != 0 || cache->restartWanted != 0) {
    return false;
  }
  const bool idle = cache->isTransError == 0 && cache->isWaitForHttpNotify == 0 && cache->cacheThreadSignaled == 0;
  if (!idle && cache->needReconnect == 0) {
    return false;
  }
  // A player that keeps reading after a failure must not make the cache ask a failing server without a pause.
  return cache->failureTick == 0 || ZV_ChronoGetTick() - cache->failureTick >= kRestartPauseMs;
}

}  // namespace

void ZV_HttpBaseCacheUpdateReadCacheFile(HttpBaseCache* cache) {
  LOG_TRACE(
      "%s Enter cacheFileNodeNum=%d currentReadPos=%lld currentRecvPos=%lld isSetRange=%d isTransError=%d retryCount=%d",
      cache->cacheFileNodeNum, Wide(cache->currentReadPos), Wide(cache->currentRecvPos), cache->isSetRange,
      cache->isTransError, cache->retryCount);
  CacheFileNode* const node = ZV_HttpBaseCacheFindReadNode(cache);
  if (node != nullptr) {
    TakeReadNode(cache, node);
    return;
  }
  cache->retryCount = 0;
  cache->httpResponseError = 0;
  if (cache->isSetRange != 0) {
    AskForSeek(cache);
  } else if (cache->isTransError != 0) {
    LOG_TRACE("%s need to retry connecting for no data to read!!!");
    cache->needReconnect = 1;
  }
}

void RestartIfIdle(HttpBaseCache* cache) {
  if (!IsRestartDue(cache)) {
    return;
  }
  cache->isCacheFinish = 0;
  cache->isTransError = 0;
  cache->restartWanted = 1;
  WakeCacheThread(cache);
}
