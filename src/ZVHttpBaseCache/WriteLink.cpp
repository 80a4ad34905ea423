// Where the CacheThread writes next, and whether the open request brings those bytes. On the CacheThread, under the lock;
// a file is made without it, and what was decided before that is decided again.
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

constexpr char kWriteName[] = "ZV_HttpBaseCacheUpdataWriteCacheFile";
constexpr char kReadName[] = "ZV_HttpBaseCacheUpdateReadCacheFile";

enum Choice { kChosen, kNoneFree, kNoLongerWanted };

// Everything from the player to the stream's end is there, or on its way into the write link.
bool IsNothingLeft(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const int64_t end = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, nullptr);
  return IsLengthKnown(cache) && end >= cache->contentLength.load();
}

bool MustRest(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return cache->abortCache != 0 || cache->abortCurrRecving != 0 || cache->isCacheFinish != 0 ||
         ZV_HttpBaseCacheIsRestCached(cache) != 0 || cache->httpResponseError != 0 || cache->seekWanted != 0 ||
         cache->giveUpWanted != 0 || IsNothingLeft(cache);
}

bool IsWriteNodeFree(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const CacheFileNode* const node = cache->nextWriteNode;
  return IsEmpty(node) && node != cache->lastNode;
}

// A write link that a failed request has left empty is the next one.
void MoveFreeWriteNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  CacheFileNode* const node = cache->nextWriteNode;
  int64_t start = cache->currentReadPos;
  if (node != cache->currentReadNode) {
    Unlink(cache, node);
    ZV_HttpBaseCacheInsertWriteNode(cache, node);
    start = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, node);
  }
  ResetLink(cache, node);
  ZV_HttpBaseCacheFileSetStartPosInStream(node->cacheFile, start);
}

Choice Reuse(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return ZV_HttpBaseCacheReuseWriteNode(cache) != 0 ? kChosen : kNoneFree;
}

Choice MakeWriteNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const uint32_t generation = cache->generation;
  PrepareFile(cache, cache->reservedBytes);
  if (cache->generation != generation || MustRest(cache)) {
    return kNoLongerWanted;
  }
  CacheFileNode* const node = NewLink(cache);
  if (node == nullptr) {
    LOG_TRACE_AS(kWriteName, "%s make new file failed should reuse first or last");
    return Reuse(cache);
  }
  LOG_TRACE_AS(kWriteName, "%s make new file success %s", Printable(ZV_HttpBaseCacheFileGetFileName(node->cacheFile)));
  ZV_HttpBaseCacheInsertWriteNode(cache, node);
  cache->cacheFileNodeNum += 1;
  cache->nextWriteNode = node;
  const int64_t start = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, node);
  ZV_HttpBaseCacheFileSetStartPosInStream(node->cacheFile, start);
  return kChosen;
}

// Where the player goes on, the open request does not.
bool MustSave(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, nullptr) != cache->currentRecvPos;
}

Choice ChooseWriteNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const uint32_t generation = cache->generation;
  if (MustSave(cache)) {
    SaveReceived(cache);
  }
  if (cache->generation != generation || MustRest(cache)) {
    return kNoLongerWanted;
  }
  if (IsWriteNodeFree(cache)) {
    MoveFreeWriteNode(cache);
    return kChosen;
  }
  if (cache->cacheFileNodeNum < kMaxLinks) {
    return MakeWriteNode(cache);
  }
  LOG_TRACE_AS(kWriteName, "%s write to max should reuse first or last");
  return Reuse(cache);
}

void LogNoneFree(bool full) {
  if (full) {
    LOG_TRACE_AS(kWriteName, "%s Exit for select write node failed 1");
  } else {
    LOG_TRACE_AS(kWriteName, "%s Exit for select write node failed 2");
  }
}

bool NeedsNewRequest(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const int64_t end = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, cache->nextWriteNode);
  return end != cache->currentRecvPos || cache->currentRecvPos == cache->lastRangeEnd || cache->needReconnect != 0 ||
         cache->connectionLost != 0;
}

void FillWriteNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (NeedsNewRequest(cache)) {
    LOG_TRACE_AS(kWriteName, "%s update write cache file node success and open http internal");
    cache->needReconnect = 0;
    ZV_HttpBaseCacheOpenHttpBaseInternal(cache);
    return;
  }
  LOG_TRACE_AS(kWriteName, "%s update write cache file node success continue to read from current connection");
  ZV_HttpBaseCacheFileSetStartPosInStream(cache->nextWriteNode->cacheFile, cache->currentRecvPos);
  cache->requestGeneration = cache->generation;
  if (cache->cacheThreadSignaled == 0) {
    cache->cacheThreadSignaled = 1;
    ZV_ConditionSignal(cache->cacheCondition);
  }
}

// False when another seek has been answered from the cache meanwhile, or the file cache is to be left.
bool IsSeekDue(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return cache->seekWanted != 0 && cache->abortCache == 0 && cache->giveUpWanted == 0;
}

// Puts an empty link where the seek leads, as read and write link.
void PlaceSeekNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (IsWriteNodeFree(cache)) {
    CacheFileNode* const node = cache->nextWriteNode;
    Unlink(cache, node);
    ResetLink(cache, node);
    ZV_HttpBaseCacheFileSetStartPosInStream(node->cacheFile, cache->currentReadPos);
    InsertAt(cache, node, cache->currentReadPos);
    cache->currentReadNode = node;
  } else if (cache->cacheFileNodeNum >= kMaxLinks) {
    ZV_HttpBaseCacheReuseNodeForSeek(cache);
  } else if (ZV_HttpBaseCacheAddNewCacheFileNode(cache) != nullptr) {
    cache->cacheFileNodeNum += 1;
  }
}

}  // namespace

bool HasRequest(HttpBaseCache* cache) {
  return cache->seekWanted != 0 || cache->restartWanted != 0 || cache->giveUpWanted != 0;
}

void ZV_HttpBaseCacheUpdataWriteCacheFile(HttpBaseCache* cache) {
  LOG_TRACE("%s Enter isCacheFinish=%d cacheThreadSignaled=%d abortCurrRecving=%d httpResponseError=%d",
            cache->isCacheFinish, cache->cacheThreadSignaled, cache->abortCurrRecving, cache->httpResponseError);
  if (MustRest(cache)) {
    cache->abortCurrRecving = 0;
    cache->cacheThreadSignaled = 0;
    return;
  }
  ZV_HttpBaseCacheDeleteNode(cache, nullptr);  // a link that a seek has left empty must not lie inside a run
  const bool full = cache->cacheFileNodeNum >= kMaxLinks;
  switch (ChooseWriteNode(cache)) {
    case kNoneFree:
      cache->cacheThreadSignaled = 0;
      LogNoneFree(full);
      return;
    case kNoLongerWanted:
      cache->abortCurrRecving = 0;
      cache->cacheThreadSignaled = 0;
      return;
    case kChosen:
      break;
  }
  FillWriteNode(cache);
  LOG_TRACE("%s Exit");
}

void AnswerSeek(HttpBaseCache* cache) {
  SaveReceived(cache);
  const bool saved = ZV_HttpBaseCacheFindReadNode(cache) != nullptr;  // then the request may go on
  if (!saved && IsSeekDue(cache) && !IsWriteNodeFree(cache) && cache->cacheFileNodeNum < kMaxLinks) {
    StopTransfer(cache);
    PrepareFile(cache, cache->reservedBytes);
  }
  if (!IsSeekDue(cache)) {
    return;
  }
  // What has been saved, or the block that was being written when the seek came, may hold its byte.
  if (ZV_HttpBaseCacheFindReadNode(cache) != nullptr) {
    ZV_HttpBaseCacheUpdateReadCacheFile(cache);
    cache->restartWanted = 1;  // little of what the player needs next is there
    return;
  }
  PlaceSeekNode(cache);
  cache->seekWanted = 0;
  ZV_HttpBaseCacheDeleteNode(cache, nullptr);
  ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  LOG_TRACE_AS(kReadName, "%s should open internal");
  ZV_HttpBaseCacheOpenHttpBaseInternal(cache);
}
