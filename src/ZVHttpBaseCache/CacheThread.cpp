// The CacheThread: waits for work, carries out what the player's calls ask for, fills the write link, chooses the next.
//
//   waiting for a signal --200, request--> [request: seek | restart | give up] --re-open--> waiting for a response
//   waiting for a response --200--> receiving (ReceiveCycle) --file full, same connection--> receiving
//   receiving --ended, dropped, failed, enough--> waiting for a signal
//
// It holds the lock whenever it does not wait or work on files and the downloader. It is the only thread that does either.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// False when the thread is to end.
bool AwaitWork(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  while (cache->abortCache == 0 && cache->cacheThreadSignaled == 0 && !HasRequest(cache)) {
    LOG_TRACE_AS("CacheThread", "%s wait for signal");
    cache->isResting = 1;
    WaitOn(cache);
  }
  LOG_TRACE_AS("CacheThread", "%s has been signaled");
  return cache->abortCache == 0;
}

// True when there was something to carry out.
bool AnswerRequest(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->giveUpWanted != 0) {
    ZV_HttpBaseResumeMemoryCache(cache);
    return true;
  }
  if (cache->seekWanted != 0) {
    cache->abortCurrRecving = 0;
    AnswerSeek(cache);
    return true;
  }
  if (cache->restartWanted != 0) {
    cache->abortCurrRecving = 0;  // nothing is being received
    ZV_HttpBaseCacheUpdataWriteCacheFile(cache);
    cache->restartWanted = 0;  // only now, or a player that keeps asking would overtake it for ever
    return true;
  }
  return false;
}

// False when something else has come first.
bool AwaitResponse(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->isWaitForHttpNotify != 0) {
    LOG_TRACE_AS("CacheThread",
                 "%s current http connection has been close by open internal, wait for new http response");
  }
  while (cache->isWaitForHttpNotify != 0 && cache->abortCache == 0 && !HasRequest(cache)) {
    WaitOn(cache);
  }
  return cache->abortCache == 0 && !HasRequest(cache);
}

bool HasBuffer(HttpBaseCache* cache) {
  if (cache->recvBuffer == nullptr) {
    cache->recvBuffer = ZV_Calloc(static_cast<size_t>(kReceiveBytes));
  }
  return cache->recvBuffer != nullptr;
}

void RunCycle(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (!AwaitWork(cache) || AnswerRequest(cache) || !AwaitResponse(cache)) {
    return;
  }
  if (!HasBuffer(cache)) {
    LOG_ERROR_AS("CacheThread", "%s recv data failed");
    ZV_HttpBaseResumeMemoryCache(cache);
    return;
  }
  if (!ReceiveCycle(cache)) {
    ZV_HttpBaseResumeMemoryCache(cache);
    return;
  }
  ZV_HttpBaseCacheUpdataWriteCacheFile(cache);
}

CacheFileNode* MakeFirstLink(HttpBaseCache* cache) {
  CacheFileNode* node = static_cast<CacheFileNode*>(ZV_Malloc(sizeof(CacheFileNode)));
  if (node == nullptr) {
    return nullptr;
  }
  node->next = nullptr;
  node->cacheFile = ZV_HttpBaseCacheFileInitCacheFile(cache->localCacheParam->cacheDir, cache->reservedBytes);
  if (node->cacheFile == nullptr) {
    ZV_Free(&node);
  }
  return node;
}

void UseFirstLink(HttpBaseCache* cache, CacheFileNode* node) {
  const CacheGuard guard(cache);
  cache->headNode = node;
  cache->nextWriteNode = node;
  cache->currentReadNode = node;
  cache->cacheFileNodeNum = node == nullptr ? 0 : 1;
}

}  // namespace

int32_t CacheThread(void* argument) {
  HttpBaseCache* const cache = static_cast<HttpBaseCache*>(argument);
  EnterCacheThread(cache);
  LOG_TRACE("%s Enter");
  HasBuffer(cache);
  TakeLock(cache);
  while (cache->abortCache == 0) {
    RunCycle(cache);
  }
  LOG_TRACE("%s abort cache for calling release");
  LeaveLock(cache);
  ZV_Free(&cache->recvBuffer);
  LOG_TRACE("%s Exit");
  return 0;
}

int32_t ZV_HttpBaseCacheStartCache(HttpBaseCache* cache) {
  LOG_TRACE("%s Enter");
  if (cache == nullptr) {
    LOG_ERROR("%s input params NULL, reutrn");
    return 0;
  }
  CacheFileNode* node = MakeFirstLink(cache);
  if (node == nullptr) {
    return 0;
  }
  ScopeGuard undo([&node] {
    ZV_HttpBaseCacheFileReleaseCacheFile(&node->cacheFile);
    ZV_Free(&node);
  });
  cache->cacheCondition = ZV_ConditionInit();
  if (cache->cacheCondition == nullptr) {
    LOG_ERROR("%s cacheCondition init failed");
    return 0;
  }
  UseFirstLink(cache, node);
  cache->cacheThread = ZV_ThreadInit(CacheThread, cache);
  if (cache->cacheThread == nullptr) {
    LOG_ERROR("%s cacheThread init failed");
    UseFirstLink(cache, nullptr);
    ZV_ConditionRelease(&cache->cacheCondition);
    return 0;
  }
  undo.Dismiss();
  LOG_TRACE("%s add first cacheFile=%s", Printable(ZV_HttpBaseCacheFileGetFileName(node->cacheFile)));
  LOG_TRACE("%s Exit");
  return 1;
}
