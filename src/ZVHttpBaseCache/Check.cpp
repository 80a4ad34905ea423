// The invariants of the record, executed. Under the lock, on any thread.
#include "ZVHttpBaseCache/Cache.h"

namespace {

bool IsFileSound(const HttpBaseCache* cache, const CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  const HttpBaseCacheFile* const file = node->cacheFile;
  const bool counts = file->unreadSize >= 0 && file->unreadSize <= file->cacheSize && file->readPos >= 0 &&
                      file->readPos <= file->cacheSize;
  const bool writes = node == cache->busyNode || file->writePos == file->cacheSize;
  return counts && writes && file->startPosInStream >= 0 && file->cacheSize <= file->fileSize;
}

// A link that is being filled, or waits to be.
bool MayBeUnfinished(const HttpBaseCache* cache, const CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  return IsEmpty(node) || node == cache->nextWriteNode || node == cache->cycleNode;
}

const char* CheckLink(const HttpBaseCache* cache, const CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  if (node->cacheFile == nullptr) {
    return "1: a link has no file";
  }
  if (!IsFileSound(cache, node)) {
    return "5: a file's counters contradict each other";
  }
  if ((node->cacheFile->isLast != 0) != (node == cache->lastNode)) {
    return "4: a file is marked last and is not, or the other way";
  }
  if (node->cacheFile->isWriteFinish == 0 && !MayBeUnfinished(cache, node)) {
    return "8: a link that nobody writes is not finished";
  }
  return nullptr;
}

const char* CheckOrder(const CacheFileNode* before, const CacheFileNode* holding, const CacheFileNode* node) {
  if (before != nullptr && StartOf(before) > StartOf(node)) {
    return "2: starts do not ascend";
  }
  if (holding != nullptr && !IsEmpty(node) && EndOf(holding) > StartOf(node)) {
    return "2: links overlap";
  }
  return nullptr;
}

const char* CheckLinks(const HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const CacheFileNode* before = nullptr;
  const CacheFileNode* holding = nullptr;
  for (const CacheFileNode* node = cache->headNode; node != nullptr; node = node->next) {
    const char* wrong = CheckLink(cache, node);
    wrong = wrong != nullptr ? wrong : CheckOrder(before, holding, node);
    if (wrong != nullptr) {
      return wrong;
    }
    before = node;
    holding = IsEmpty(node) ? holding : node;
  }
  return nullptr;
}

const char* CheckMembers(const HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  int32_t count = 0;
  bool reads = false;
  bool writes = false;
  bool last = cache->lastNode == nullptr;
  for (const CacheFileNode* node = cache->headNode; node != nullptr && count <= kMaxLinks; node = node->next) {
    ++count;
    reads = reads || node == cache->currentReadNode;
    writes = writes || node == cache->nextWriteNode;
    last = last || node == cache->lastNode;
  }
  if (count != cache->cacheFileNodeNum || count < 1 || count > kMaxLinks) {
    return "1: the number of links is wrong";
  }
  return reads && writes && last ? nullptr : "3: a link that is used is not in the chain";
}

const char* CheckPositions(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->currentCacheSize != (cache->seekWanted != 0 ? 0 : CountCacheSize(cache))) {
    return "6: currentCacheSize is not what is cached ahead";
  }
  const HttpBaseCacheFile* const file = cache->currentReadNode->cacheFile;
  if (cache->seekWanted == 0 && file->startPosInStream + file->readPos != cache->currentReadPos) {
    return "7: the read link is read elsewhere";
  }
  const bool filling = cache->cycleNode != nullptr && cache->busyNode == nullptr && cache->connectionLost == 0;
  if (filling && cache->cycleNode->cacheFile->isWriteFinish == 0 && EndOf(cache->cycleNode) != cache->currentRecvPos) {
    return "9: the link being filled does not end where the next byte belongs";
  }
  return nullptr;
}

}  // namespace

const char* ZVIner_CheckCache(HttpBaseCache* cache) {
  if (cache->isLocalCache.load() == 0) {
    return nullptr;
  }
  const char* wrong = CheckMembers(cache);
  wrong = wrong != nullptr ? wrong : CheckLinks(cache);
  return wrong != nullptr ? wrong : CheckPositions(cache);
}
