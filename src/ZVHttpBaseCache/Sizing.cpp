// How much is kept ahead of the player, and what the player hears of it. All under the lock, on any thread.
#include <algorithm>
#include <cstdlib>

#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

constexpr int64_t kMsPerSecond = 1000;

int32_t ClampToSize(int64_t bytes) {
  return static_cast<int32_t>(std::clamp<int64_t>(bytes, 1, INT32_MAX));
}

int64_t PerSecond(int64_t bytes, int64_t ms) {
  constexpr int64_t kMost = INT64_MAX / kMsPerSecond;
  return bytes > kMost ? std::min(bytes / ms, kMost) * kMsPerSecond : bytes * kMsPerSecond / ms;
}

int64_t CacheTimeMs(const HttpBaseCache* cache) {
  return cache->localCacheParam->cacheTime * kMsPerSecond;
}

}  // namespace

bool IsLengthKnown(HttpBaseCache* cache) {
  return cache->contentLength.load() > 0 && cache->lengthIsPacked == 0;
}

void ZV_HttpBaseCacheUpdateCacheUnitSize(HttpBaseCache* cache) {
  LOG_TRACE("%s Enter");
  const int64_t cacheTimeMs = CacheTimeMs(cache);
  const int64_t length = cache->contentLength.load();
  const int32_t duration = cache->duration.load();
  if (IsLengthKnown(cache) && duration > 0) {
    cache->sizePerSecond = ClampToSize(PerSecond(length, duration));
    cache->targetCacheSize = ClampToSize(cacheTimeMs >= duration ? length : length / (duration / cacheTimeMs + 1));
  }
  LOG_TRACE("%s Exit cacheTime=%d duration=%d targetCacheSize=%d contentLength=%lld sizePerSecond=%d",
            ClampToInt32(cacheTimeMs), duration, cache->targetCacheSize, Wide(length), cache->sizePerSecond);
}

void ZV_HttpBaseCacheReportCacheState(HttpBaseCache* cache) {
  if (cache->currentCacheSize == 0) {
    NoteState(cache, 0);
    return;
  }
  if (std::abs(cache->currentCacheSize - cache->lastReportedCacheSize) <= cache->sizePerSecond) {
    return;
  }
  cache->lastReportedCacheSize = cache->currentCacheSize;
  NoteState(cache, ClampToInt32(cache->currentCacheSize / cache->sizePerSecond * kMsPerSecond));
}

int32_t BufferedMs(HttpBaseCache* cache) {
  if (cache->currentCacheSize >= cache->targetCacheSize) {
    return ClampToInt32(CacheTimeMs(cache));
  }
  return ClampToInt32(cache->currentCacheSize / cache->sizePerSecond * kMsPerSecond);
}
