// Where the stream ends, when nobody has told its length. Under the lock, on any thread.
#include "ZVHttpBaseCache/Cache.h"

namespace {

constexpr int32_t kNothingThere = 416;

}  // namespace

CacheFileNode* LinkEndingAt(HttpBaseCache* cache, int64_t position) {
  for (CacheFileNode* node = cache->headNode; node != nullptr; node = node->next) {
    if (!IsEmpty(node) && EndOf(node) == position) {
      return node;
    }
  }
  return nullptr;
}

void MarkLast(HttpBaseCache* cache, CacheFileNode* node) {
  if (cache->lastNode != nullptr && cache->lastNode != node) {
    cache->lastNode->cacheFile->isLast = 0;
  }
  cache->lastNode = node;
  ZV_HttpBaseCacheFileSetLast(node->cacheFile);
}

void LearnEnd(HttpBaseCache* cache) {
  cache->contentLength.store(cache->currentRecvPos);
  cache->lengthIsPacked = 0;
  ZV_HttpBaseCacheUpdateCacheUnitSize(cache);
}

bool IsAnswerOfEnd(HttpBaseCache* cache, int32_t code) {
  const bool asksForRest = cache->isOpenInternal != 0 && cache->isSetRange == 0 && cache->lastRangeEnd < 0;
  // The positions of a packed body are not those of its request.
  return code == kNothingThere && asksForRest && !IsLengthKnown(cache) && cache->lengthIsPacked == 0 &&
         cache->currentRecvPos == cache->requestStart && LinkEndingAt(cache, cache->requestStart) != nullptr;
}

void TakeEnd(HttpBaseCache* cache) {
  LearnEnd(cache);
  CacheFileNode* const node = LinkEndingAt(cache, cache->currentRecvPos);
  MarkLast(cache, node);
  ZV_HttpBaseCacheFileSetWriteFinish(node->cacheFile);
  cache->isWaitForHttpNotify = 0;
  cache->isOpenInternal = 0;
  cache->connectionLost = 1;
  ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  ZV_HttpBaseCacheReportCacheState(cache);
  WakeCacheThread(cache);
}
