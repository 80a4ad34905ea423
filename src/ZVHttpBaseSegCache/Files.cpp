// Cache files: where a new download gets one, and how a segment loses its own. Every thread.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

// Only a complete segment gives its file away, and not while somebody reads it or is about to.
bool MayGiveFile(HttpBaseSegCache* cache, int32_t index, const HttpBaseSegCacheSegment* segment)
    ZV_REQUIRES(cache->mutex) {
  return segment->state == kSegmentCached && segment->threadIndex < 0 && index != cache->currReadIndex &&
         segment->cacheFile != nullptr && segment->cacheFile != cache->readingFile;
}

// The first place in [begin, end) whose segment may give its file away, or -1.
int32_t FindGiver(HttpBaseSegCache* cache, int32_t begin, int32_t end) ZV_REQUIRES(cache->mutex) {
  for (int32_t index = begin; index < end; ++index) {
    if (MayGiveFile(cache, index, SegmentAt(cache, index))) {
      return index;
    }
  }
  return -1;
}

HttpBaseCacheFile* GiveFile(HttpBaseSegCache* cache, int32_t index) ZV_REQUIRES(cache->mutex) {
  HttpBaseSegCacheSegment* const segment = SegmentAt(cache, index);
  HttpBaseCacheFile* const file = segment->cacheFile;
  segment->cacheFile = nullptr;
  segment->httpResponse = 0;
  segment->openFlag = 0;
  segment->state = kSegmentWaiting;
  return file;
}

// On demand a file moves on from a segment behind the reader, or beyond the window, so that no more of them exist than the
// window needs. Null: none is to be had.
HttpBaseCacheFile* ReuseFile(HttpBaseSegCache* cache) {
  constexpr char kName[] = "ZV_HttpBaseSegCacheCreateCacheFile";
  const SegGuard guard(cache);
  int32_t index = FindGiver(cache, 0, cache->currReadIndex);
  HttpBaseCacheFile* file = nullptr;
  if (index >= 0) {
    file = GiveFile(cache, index);
    LOG_TRACE_AS(kName, "%s 1 reuse %d cachefile=%s", index, file->cacheFileName);
    return file;
  }
  index = FindGiver(cache, std::max(cache->endWriteIndex, cache->currReadIndex + 1), ListedCount(cache));
  if (index >= 0) {
    file = GiveFile(cache, index);
    LOG_TRACE_AS(kName, "%s 2 reuse %d cachefile=%s", index, file->cacheFileName);
    return file;
  }
  LOG_TRACE_AS(kName, "%s no cache file to reuse so create new");
  return nullptr;
}

}  // namespace

HttpBaseCacheFile* ZV_HttpBaseSegCacheCreateCacheFile(HttpBaseSegCache* cache) {
  HttpBaseCacheFile* const used = cache->isVod != 0 ? ReuseFile(cache) : nullptr;
  if (used != nullptr) {
    ZV_HttpBaseCacheFileReset(used);
    return used;
  }
  return ZV_HttpBaseCacheFileInitCacheFile(cache->localCacheParam->cacheDir, 0);
}

void LoseFile(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment) {
  HttpBaseCacheFile* const file = segment->cacheFile;
  segment->cacheFile = nullptr;
  if (file == nullptr) {
    return;
  }
  if (file == cache->readingFile) {
    cache->readingFileIsLost = 1;
    return;
  }
  NoteLostFile(cache, file);
}
