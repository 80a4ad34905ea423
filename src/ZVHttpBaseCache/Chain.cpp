// Questions about the chain. All under the lock, on any thread; a link without a file is treated as empty.
#include <algorithm>

#include "ZVHttpBaseCache/Cache.h"

namespace {

// Walks on from `from` while the next link follows without a gap, stopping before `to` and at the chain's end; gives the
// position where that run ends.
int64_t EndOfRun(const CacheFileNode* from, const CacheFileNode* to) {
  int64_t end = EndOf(from);
  for (const CacheFileNode* node = from->next; node != nullptr && node != to && end >= StartOf(node);
       node = node->next) {
    end = std::max(end, EndOf(node));
  }
  return end;
}

}  // namespace

int64_t StartOf(const CacheFileNode* node) {
  return node->cacheFile == nullptr ? 0 : node->cacheFile->startPosInStream;
}

int64_t EndOf(const CacheFileNode* node) {
  return node->cacheFile == nullptr ? 0 : node->cacheFile->startPosInStream + node->cacheFile->cacheSize;
}

bool IsEmpty(const CacheFileNode* node) {
  return node->cacheFile == nullptr || node->cacheFile->cacheSize == 0;
}

CacheFileNode* LastLink(HttpBaseCache* cache) {
  CacheFileNode* node = cache->headNode;
  while (node != nullptr && node->next != nullptr) {
    node = node->next;
  }
  return node;
}

CacheFileNode* LinkBefore(HttpBaseCache* cache, const CacheFileNode* node) {
  CacheFileNode* before = cache->headNode == node ? nullptr : cache->headNode;
  while (before != nullptr && before->next != node) {
    before = before->next;
  }
  return before;
}

int64_t ZV_HttpBaseCacheGetContinuousEnd(HttpBaseCache* cache, CacheFileNode* from, CacheFileNode* to) {
  if (from != to) {
    return EndOfRun(from, to);
  }
  return cache->cacheFileNodeNum == 1 && IsEmpty(from) ? cache->currentReadPos : EndOf(from);
}

int32_t ZV_HttpBaseCacheIsContinuous(HttpBaseCache*, CacheFileNode* a, CacheFileNode* b) {
  if (a == b) {
    return 1;
  }
  return StartOf(a) <= StartOf(b) && EndOfRun(a, b) >= StartOf(b) ? 1 : 0;
}

int64_t CountCacheSize(HttpBaseCache* cache) {
  const CacheFileNode* node = cache->currentReadNode;
  int64_t size = ZV_HttpBaseCacheFileGetUnreadSize(node->cacheFile);
  for (int64_t end = EndOf(node); node->next != nullptr && end >= StartOf(node->next); node = node->next) {
    end = std::max(end, EndOf(node->next));
    size += node->next->cacheFile == nullptr ? 0 : node->next->cacheFile->cacheSize;
  }
  return size;
}

void ZV_HttpBaseCacheUpdateCurrentCacheSize(HttpBaseCache* cache) {
  cache->currentCacheSize = CountCacheSize(cache);
}

int32_t ZV_HttpBaseCacheIsRestCached(HttpBaseCache* cache) {
  if (cache->lastNode == nullptr) {
    return 0;
  }
  if (cache->nextWriteNode == cache->lastNode) {
    return 1;
  }
  const int64_t end = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->nextWriteNode, cache->lastNode);
  return end >= StartOf(cache->lastNode) ? 1 : 0;
}

CacheFileNode* ZV_HttpBaseCacheFindReadNode(HttpBaseCache* cache) {
  for (CacheFileNode* node = cache->headNode; node != nullptr; node = node->next) {
    if (StartOf(node) <= cache->currentReadPos && cache->currentReadPos < EndOf(node)) {
      return node;
    }
  }
  return nullptr;
}
