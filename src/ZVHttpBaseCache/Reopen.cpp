// The cache's own requests: closing the downloader and opening it where bytes are missing. On the CacheThread, which
// gives the lock up while the downloader closes: the message callback of the old request may be waiting for it.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

constexpr char kName[] = "ZV_HttpBaseCacheOpenHttpBaseInternal";
constexpr int32_t kFormerAnswerMs = 200;

// The next request ends where a following link holds bytes already.
int64_t NextHeldPosition(HttpBaseCache* cache, int64_t start) ZV_REQUIRES(cache->cacheCondition) {
  const CacheFileNode* node = cache->nextWriteNode->next;
  while (node != nullptr && (IsEmpty(node) || StartOf(node) <= start)) {
    node = node->next;
  }
  return node == nullptr ? -1 : StartOf(node);
}

// Where the write link begins and where the next request ends.
void ChooseRange(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  int64_t start = cache->currentReadPos;
  if (cache->isSetRange == 0) {
    start = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, cache->nextWriteNode);
  } else {
    cache->abortCurrRecving = 1;
  }
  cache->lastRangeEnd = NextHeldPosition(cache, start);
  cache->currentRecvPos = start;
  ZV_HttpBaseCacheFileSetStartPosInStream(cache->nextWriteNode->cacheFile, start);
}

int64_t LastByteOfRange(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return cache->lastRangeEnd < 0 ? -1 : cache->lastRangeEnd - 1;
}

// The answer to the request before would otherwise look like the answer to this one.
void AwaitFormerAnswer(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->isWaitForHttpNotify == 0 || cache->requestOutstanding == 0) {
    return;
  }
  LOG_TRACE_AS(kName, "%s former http response has not received so wait");
  const uint32_t generation = cache->generation;
  const int64_t start = ZV_ChronoGetTick();
  int64_t left = kFormerAnswerMs;
  cache->awaitingFormer = 1;
  while (left > 0 && cache->isWaitForHttpNotify != 0 && cache->abortCache == 0 && cache->generation == generation) {
    WaitOnFor(cache, static_cast<int32_t>(left));
    left = kFormerAnswerMs - (ZV_ChronoGetTick() - start);
  }
  cache->awaitingFormer = 0;
}

// Closes what is open. The lock is given up; whatever the old download still reports is dropped. Every other open waits
// until the reopening has ended.
void CloseDownloader(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  while (cache->reopening != kNotReopening) {
    WaitOn(cache);
  }
  cache->reopening = kClosing;
  cache->requestOutstanding = 0;
  LeaveLock(cache);
  if (ZV_HttpBaseGetOpenFlag(cache->httpBase) == 0) {
    SaveRespValues(cache);
    ZV_HttpBaseClose(cache->httpBase);
  }
  TakeLock(cache);
}

char* CopyPrivateUrl(HttpBaseCache* cache) {
  const MutexGuard guard(cache->mutex);
  return cache->privateUrl == nullptr ? nullptr : CopyText(cache->privateUrl);
}

// The lock is given up: opening takes locks that the downloader's threads hold when they report a code. Everything that
// the answer changes is set before.
bool OpenDownloader(HttpBaseCache* cache, int64_t start, int64_t end) ZV_REQUIRES(cache->cacheCondition) {
  // Without the file cache nobody would drop what lies before the player's byte.
  const int32_t complete = cache->isLocalCache.load() == 0 && start > 0 ? -1 : cache->needDownloadComplete.load();
  cache->skipBytes = complete == 0 ? start : 0;
  cache->requestOutstanding = 1;
  cache->connectionLost = 0;
  cache->reopening = kOpening;
  cache->requestGeneration = cache->generation;
  cache->requestStart = start;
  LeaveLock(cache);
  char* url = CopyPrivateUrl(cache);
  RestoreRespKeys(cache);
  ZV_HttpBaseSetRange(cache->httpBase, start, end);
  ZV_HttpBaseSetNeedDownloadComplete(cache->httpBase, complete);
  const bool open = ZV_HttpBaseOpen(cache->httpBase, url) == 0;
  ZV_Free(&url);
  TakeLock(cache);
  return open;
}

void EndReopening(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  cache->reopening = kNotReopening;
  ZV_ConditionSignal(cache->cacheCondition);
}

// The file cache is off: nobody looks at the links any more, and the player reads on while many files are deleted.
void DeleteFiles(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  HttpBaseCacheFile* prepared = cache->preparedFile;
  cache->preparedFile = nullptr;
  CacheFileNode* const head = cache->headNode;
  LeaveLock(cache);
  ZV_HttpBaseCacheFileReleaseCacheFile(&prepared);
  for (CacheFileNode* node = head; node != nullptr; node = node->next) {
    ZV_HttpBaseCacheFileReleaseCacheFile(&node->cacheFile);
  }
  TakeLock(cache);
}

// A seek came meanwhile: the downloader stays as it is until that has been answered.
void LeaveRequest(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  cache->connectionLost = 1;
  if (cache->requestOutstanding == 0) {
    cache->isWaitForHttpNotify = 0;
  }
  cache->abortCurrRecving = 0;
  cache->cacheThreadSignaled = 0;
}

}  // namespace

void StopTransfer(HttpBaseCache* cache) {
  if (cache->isWaitForHttpNotify != 0) {
    return;
  }
  cache->connectionLost = 1;
  CloseDownloader(cache);
  EndReopening(cache);
}

void ZV_HttpBaseCacheOpenHttpBaseInternal(HttpBaseCache* cache) {
  const uint32_t generation = cache->generation;
  LOG_TRACE("%s Enter startPosInStream=%lld isSetRange=%d lastRangeEnd=%lld", Wide(cache->currentReadPos),
            cache->isSetRange, Wide(cache->lastRangeEnd));
  ChooseRange(cache);
  cache->connectionLost = 1;
  LOG_TRACE("%s startPosInStream=%lld endPosInStream=%lld isWaitForHttpNotify=%d isSetRange=%d lastRangeEnd=%lld",
            Wide(cache->currentRecvPos), Wide(LastByteOfRange(cache)), cache->isWaitForHttpNotify, cache->isSetRange,
            Wide(cache->lastRangeEnd));
  AwaitFormerAnswer(cache);
  if (cache->generation != generation || cache->abortCache != 0) {
    LeaveRequest(cache);
    return;
  }
  CloseDownloader(cache);
  if (cache->generation != generation || cache->abortCache != 0) {
    EndReopening(cache);
    LeaveRequest(cache);
    return;
  }
  cache->isOpenInternal = 1;
  cache->isWaitForHttpNotify = 1;
  const bool open = OpenDownloader(cache, cache->currentRecvPos, LastByteOfRange(cache));
  EndReopening(cache);
  if (!open) {
    TakeFailure(cache, ZV_HTTP_CODE_FAILED);
  }
  LOG_TRACE("%s Exit");
}

void ZV_HttpBaseResumeMemoryCache(HttpBaseCache* cache) {
  LOG_TRACE("%s Enter currentReadPos=%lld", Wide(cache->currentReadPos));
  cache->abortCache = 1;
  CloseDownloader(cache);
  // The player has read on from the files until here.
  cache->isLocalCache.store(0);
  cache->isWaitForHttpNotify = 0;
  // Whether the downloader was open just now says nothing: a seek may have closed it.
  const bool mustOpen = cache->everOpened != 0 && cache->released == 0;
  if (mustOpen && !OpenDownloader(cache, cache->currentReadPos, -1)) {
    NoteMessage(cache, ZV_HTTP_CODE_FAILED);
  }
  EndReopening(cache);
  DeleteFiles(cache);
  cache->giveUpWanted = 0;
  ZV_ConditionSignal(cache->cacheCondition);
  LOG_TRACE("%s Exit");
}
