// The file of the next link. On the CacheThread, without the lock, since the room of a file takes a while to reserve.
#include <algorithm>

#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// Written while the downloader's buffer takes what arrives: that must not be full before.
constexpr int32_t kStepBytes = 2097152;

// What the present file has no room for would need another one.
bool NeedsNextFile(HttpBaseCache* cache, const HttpBaseCacheFile* present) ZV_REQUIRES(cache->cacheCondition) {
  const bool ends =
      IsLengthKnown(cache) && cache->contentLength.load() <= present->startPosInStream + present->fileSize;
  return !ends && present->cacheSize > 0 && cache->cacheFileNodeNum < kMaxLinks && cache->seekWanted == 0;
}

}  // namespace

bool PrepareFile(HttpBaseCache* cache, int32_t room) {
  HttpBaseCacheFile* file = cache->preparedFile;
  if (file != nullptr && file->fileSize >= room) {
    return true;
  }
  const char* const cacheDir = cache->localCacheParam->cacheDir;
  LeaveLock(cache);
  file = file == nullptr ? MakeEmptyCacheFile(cacheDir) : file;
  if (file != nullptr && !ReserveRoom(file, room, &cache->isLeaving)) {
    ZV_HttpBaseCacheFileReleaseCacheFile(&file);
  }
  TakeLock(cache);
  cache->preparedFile = file;
  return file != nullptr;
}

bool PrepareAhead(HttpBaseCache* cache, const HttpBaseCacheFile* present) {
  if (!NeedsNextFile(cache, present)) {
    return true;
  }
  const int32_t steps = (present->cacheSize + kStepBytes - 1) / kStepBytes;
  return PrepareFile(cache, std::min(steps * kStepBytes, cache->reservedBytes));
}
