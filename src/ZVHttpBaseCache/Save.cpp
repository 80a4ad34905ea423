// What a replaced request leaves behind. A transfer that rests on a full cache has its buffer full, several MiB; those
// would be thrown away with it, and sent again when the player comes back. On the CacheThread. The file is written before
// its link is in the chain, so no reader waits for it.
#include <algorithm>

#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

constexpr char kName[] = "CacheThread";
// More than a downloader's buffer holds at first: a fast transfer that goes on meanwhile must not be followed for ever.
constexpr int32_t kMostSavedBytes = 4194304;

// The downloader has had time to fill its buffer with the bytes from currentRecvPos on, and there is a link to be had.
// Of a transfer that was being stored until now little is there, or it is so fast that sending it again is the smaller
// harm.
bool MaySave(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  return cache->isResting != 0 && cache->everOpened != 0 && cache->connectionLost == 0 &&
         cache->isWaitForHttpNotify == 0 && cache->requestOutstanding == 0 && cache->skipBytes == 0 &&
         cache->abortCache == 0 && cache->recvBuffer != nullptr && cache->cacheFileNodeNum < kMaxLinks;
}

// A block of what is there; how much of it the request asked for.
uint32_t TakeBlock(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  uint32_t count = 0;
  LeaveLock(cache);
  ReadBlock(cache, &count);
  TakeLock(cache);
  const int64_t wanted = cache->lastRangeEnd < 0 ? count : cache->lastRangeEnd - cache->currentRecvPos;
  return static_cast<uint32_t>(std::min<int64_t>(count, wanted));
}

bool StoreBlock(HttpBaseCache* cache, HttpBaseCacheFile* file, uint32_t count) ZV_REQUIRES(cache->cacheCondition) {
  LeaveLock(cache);
  const bool stored = PutBytes(file, cache->recvBuffer, count) == 0;
  TakeLock(cache);
  if (stored) {
    CountBytes(file, count);
    cache->currentRecvPos += count;
  }
  return stored;
}

// The player has not gone elsewhere again, and the files are still wanted.
bool IsWorthMore(HttpBaseCache* cache, uint32_t generation) ZV_REQUIRES(cache->cacheCondition) {
  return cache->generation == generation && cache->giveUpWanted == 0;
}

// The first block has been taken. False when a block was taken and is not in the file.
bool Store(HttpBaseCache* cache, HttpBaseCacheFile* file, uint32_t count) ZV_REQUIRES(cache->cacheCondition) {
  const int32_t most = std::min(kMostSavedBytes, file->fileSize) - kReceiveBytes;
  const uint32_t generation = cache->generation;
  while (count > 0) {
    if (cache->connectionLost != 0 || cache->abortCache != 0 || !StoreBlock(cache, file, count)) {
      return false;
    }
    count = file->cacheSize <= most && IsWorthMore(cache, generation) ? TakeBlock(cache) : 0;
  }
  return true;
}

// False when nothing was stored, or there is no memory for the link.
bool LinkSaved(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  HttpBaseCacheFile* const file = cache->preparedFile;
  CacheFileNode* const node = file->cacheSize == 0 ? nullptr : NewLink(cache);
  if (node == nullptr) {
    ZV_HttpBaseCacheFileReset(file);
    return false;
  }
  ZV_HttpBaseCacheFileSetWriteFinish(file);
  InsertAt(cache, node, file->startPosInStream);
  cache->cacheFileNodeNum += 1;
  LOG_TRACE_AS(kName, "%s saved what was received cacheFile=%s cacheSize=%d startPosInStream=%lld",
               Printable(file->cacheFileName), file->cacheSize, Wide(file->startPosInStream));
  return true;
}

}  // namespace

void SaveReceived(HttpBaseCache* cache) {
  if (!MaySave(cache)) {
    return;
  }
  const uint32_t count = TakeBlock(cache);
  if (count < kLargeBytes || !PrepareFile(cache, cache->reservedBytes)) {
    cache->connectionLost = count > 0 ? 1 : cache->connectionLost;
    return;
  }
  HttpBaseCacheFile* const file = cache->preparedFile;
  ZV_HttpBaseCacheFileSetStartPosInStream(file, cache->currentRecvPos);
  const bool complete = Store(cache, file, count);
  if (!LinkSaved(cache) || !complete) {
    cache->connectionLost = 1;
  }
  if (cache->seekWanted == 0) {
    ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  }
}
