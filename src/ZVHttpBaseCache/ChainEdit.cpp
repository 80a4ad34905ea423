// Changes of the chain. All under the lock, on the CacheThread alone: it fills no link meanwhile, so any link may be
// moved, emptied or deleted. A link that is reused or new starts where its bytes will belong, so that the chain stays in
// order at every moment.
#include <algorithm>

#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// The link becomes the empty one that the player and the writer go on with at currentReadPos.
void ReuseForSeek(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  cache->currentReadNode = node;
  cache->nextWriteNode = node;
  ResetLink(cache, node);
  ZV_HttpBaseCacheFileSetStartPosInStream(node->cacheFile, cache->currentReadPos);
}

// The first link of a pair between whose files currentReadPos lies; null when there is none.
CacheFileNode* FindGap(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  CacheFileNode* node = cache->headNode;
  while (node->next != nullptr) {
    if (EndOf(node) <= cache->currentReadPos && cache->currentReadPos < StartOf(node->next)) {
      return node;
    }
    node = node->next;
  }
  return nullptr;
}

void DeleteLink(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  Unlink(cache, node);
  if (cache->lastNode == node) {
    cache->lastNode = nullptr;
  }
  ZV_HttpBaseCacheFileReleaseCacheFile(&node->cacheFile);
  ZV_Free(&node);
  cache->cacheFileNodeNum -= 1;
}

// The player's link, the writer's and the one being filled stay, and so does an empty end of the stream.
bool IsSuperfluous(HttpBaseCache* cache, const CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition) {
  return IsEmpty(node) && node != cache->currentReadNode && node != cache->nextWriteNode && node != cache->cycleNode &&
         node != cache->lastNode;
}

void SweepEmptyLinks(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  CacheFileNode* node = cache->headNode;
  while (node != nullptr) {
    CacheFileNode* const next = node->next;
    if (IsSuperfluous(cache, node)) {
      const char* const name = ZV_HttpBaseCacheFileGetFileName(node->cacheFile);
      if (node == cache->headNode) {
        LOG_TRACE_AS("ZV_HttpBaseCacheDeleteNode", "%s 1 delete file=%s", Printable(name));
      } else {
        LOG_TRACE_AS("ZV_HttpBaseCacheDeleteNode", "%s 2 delete file=%s", Printable(name));
      }
      DeleteLink(cache, node);
    }
    node = next;
  }
}

// The candidate of ZV_HttpBaseCacheReuseWriteNode, taken out of the chain; null when every link is needed.
CacheFileNode* TakeReusableLink(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  CacheFileNode* node = cache->headNode;
  if (node->next == nullptr) {
    return ZV_HttpBaseCacheFileIsReadFinish(node->cacheFile) != 0 ? node : nullptr;
  }
  if (cache->currentReadNode == node) {
    node = LastLink(cache);
    if (ZV_HttpBaseCacheIsContinuous(cache, cache->currentReadNode, node) != 0) {
      return nullptr;
    }
  }
  Unlink(cache, node);
  return node;
}

}  // namespace

CacheFileNode* NewLink(HttpBaseCache* cache) {
  const bool prepared = cache->preparedFile != nullptr && cache->preparedFile->fileSize >= cache->reservedBytes;
  CacheFileNode* const node = prepared ? static_cast<CacheFileNode*>(ZV_Malloc(sizeof(CacheFileNode))) : nullptr;
  if (node == nullptr) {
    return nullptr;
  }
  node->next = nullptr;
  node->cacheFile = cache->preparedFile;
  cache->preparedFile = nullptr;
  return node;
}

void Unlink(HttpBaseCache* cache, CacheFileNode* node) {
  CacheFileNode* const before = LinkBefore(cache, node);
  if (before == nullptr) {
    cache->headNode = node->next;
  } else {
    before->next = node->next;
  }
  node->next = nullptr;
}

void ResetLink(HttpBaseCache* cache, CacheFileNode* node) {
  if (ZV_HttpBaseCacheFileIsLast(node->cacheFile) != 0 || cache->lastNode == node) {
    cache->lastNode = nullptr;
  }
  ZV_HttpBaseCacheFileReset(node->cacheFile);
}

void InsertAt(HttpBaseCache* cache, CacheFileNode* node, int64_t position) {
  CacheFileNode* const last = LastLink(cache);
  if (last == nullptr || position < StartOf(cache->headNode)) {
    node->next = cache->headNode;
    cache->headNode = node;
    return;
  }
  CacheFileNode* before = last;
  if (position < EndOf(last)) {
    before = cache->headNode;
    while (before->next != last && before->next != nullptr && StartOf(before->next) <= position) {
      before = before->next;
    }
  }
  node->next = before->next;
  before->next = node;
}

void ZV_HttpBaseCacheInsertWriteNode(HttpBaseCache* cache, CacheFileNode* node) {
  CacheFileNode* before = cache->currentReadNode;
  for (int64_t end = EndOf(before); before->next != nullptr && end >= StartOf(before->next); before = before->next) {
    end = std::max(end, EndOf(before->next));
  }
  node->next = before->next;
  before->next = node;
}

int32_t ZV_HttpBaseCacheReuseWriteNode(HttpBaseCache* cache) {
  CacheFileNode* const node = TakeReusableLink(cache);
  if (node == nullptr) {
    return 0;
  }
  if (node != cache->currentReadNode) {
    ZV_HttpBaseCacheInsertWriteNode(cache, node);
  }
  cache->nextWriteNode = node;
  ResetLink(cache, node);
  const int64_t start = ZV_HttpBaseCacheGetContinuousEnd(cache, cache->currentReadNode, node);
  ZV_HttpBaseCacheFileSetStartPosInStream(node->cacheFile, start);
  ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  return 1;
}

CacheFileNode* ZV_HttpBaseCacheAddNewCacheFileNode(HttpBaseCache* cache) {
  CacheFileNode* const node = NewLink(cache);
  if (node == nullptr) {
    LOG_TRACE("%s make new cache file failed");
    if (cache->cacheFileNodeNum == 1) {
      ReuseForSeek(cache, cache->headNode);
    } else {
      ZV_HttpBaseCacheReuseNodeForSeek(cache);
    }
    return nullptr;
  }
  LOG_TRACE("%s make new cacheFile success %s currentReadPos=%lld",
            Printable(ZV_HttpBaseCacheFileGetFileName(node->cacheFile)), Wide(cache->currentReadPos));
  InsertAt(cache, node, cache->currentReadPos);
  ReuseForSeek(cache, node);
  return node;
}

void ZV_HttpBaseCacheReuseNodeForSeek(HttpBaseCache* cache) {
  CacheFileNode* const first = cache->headNode;
  CacheFileNode* const last = LastLink(cache);
  CacheFileNode* const before = LinkBefore(cache, last);
  CacheFileNode* const pred = before == nullptr ? first : before;
  if (cache->currentReadPos < StartOf(first)) {
    ZV_HttpBaseCacheReuseLastNode(cache, pred, last);
    if (last != first) {
      last->next = first;
      cache->headNode = last;
    }
    return;
  }
  if (cache->currentReadPos >= EndOf(last)) {
    ZV_HttpBaseCacheReuseFirstNode(cache, last, nullptr);
    return;
  }
  CacheFileNode* const a = FindGap(cache);
  if (a != nullptr && a != first) {
    ZV_HttpBaseCacheReuseFirstNode(cache, a, a->next);
    return;
  }
  CacheFileNode* const b = first->next;
  ZV_HttpBaseCacheReuseLastNode(cache, pred, last);
  if (a == nullptr) {
    // No gap holds the position, which an ordered chain never shows; the link still goes where it belongs.
    if (last != first) {
      InsertAt(cache, last, cache->currentReadPos);
    }
    return;
  }
  first->next = last;
  if (last != b) {
    last->next = b;
  }
}

void ZV_HttpBaseCacheReuseFirstNode(HttpBaseCache* cache, CacheFileNode* after, CacheFileNode* before) {
  CacheFileNode* const first = cache->headNode;
  if (first->next != nullptr) {
    cache->headNode = first->next;
    first->next = before;
    after->next = first;
  }
  ReuseForSeek(cache, first);
}

void ZV_HttpBaseCacheReuseLastNode(HttpBaseCache* cache, CacheFileNode* pred, CacheFileNode* last) {
  pred->next = nullptr;
  ReuseForSeek(cache, last);
}

void ZV_HttpBaseCacheDeleteNode(HttpBaseCache* cache, CacheFileNode* target) {
  LOG_TRACE("%s Enter cacheFileNodeNum=%d delete targetCacheFileNode=%p currentReadNode=%p nextWriteNode=%p",
            cache->cacheFileNodeNum, static_cast<void*>(target), static_cast<void*>(cache->currentReadNode),
            static_cast<void*>(cache->nextWriteNode));
  if (target == nullptr) {
    SweepEmptyLinks(cache);
  } else {
    const char* const name = ZV_HttpBaseCacheFileGetFileName(target->cacheFile);
    if (target == cache->headNode) {
      LOG_TRACE("%s 3 delete header file=%s", Printable(name));
    } else {
      LOG_TRACE("%s 4 delete header file=%s", Printable(name));
    }
    DeleteLink(cache, target);
  }
  LOG_TRACE("%s Exit cacheFileNodeNum=%d", cache->cacheFileNodeNum);
}

void FreeChain(HttpBaseCache* cache) {
  ZV_HttpBaseCacheFileReleaseCacheFile(&cache->preparedFile);
  while (cache->headNode != nullptr) {
    CacheFileNode* node = cache->headNode;
    cache->headNode = node->next;
    ZV_HttpBaseCacheFileReleaseCacheFile(&node->cacheFile);
    ZV_Free(&node);
  }
}
