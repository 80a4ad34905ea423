// Settings and queries that mean one thing in direct mode and another with the local cache. Any thread.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace {

// Whether the range is kept for the next Open.
bool KeepRange(HttpBaseSegCache* cache, int64_t start, int64_t end) {
  if (cache->localCacheMade.load() == 0) {
    return false;
  }
  const SegGuard guard(cache);
  cache->hasRange = 1;
  cache->rangeStart = start;
  cache->rangeEnd = end;
  return true;
}

int32_t OpenFlagOfReadSegment(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  const HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  return segment == nullptr ? -1 : segment->openFlag;
}

int64_t LengthOfReadSegment(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  const HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  return segment == nullptr ? 0 : segment->contentLength;
}

// The streams whose next download a setting of connections is for.
template <typename Setting>
void ForDownloads(HttpBaseSegCache* cache, Setting setting) {
  if (!IsLocal(cache)) {
    setting(cache->stream);
    return;
  }
  for (HttpBaseSegCacheStream* stream : cache->streams) {
    if (stream != nullptr) {
      setting(stream);
    }
  }
}

}  // namespace

extern "C" void ZV_HttpBaseSegCacheSetCacheStateCallback(HttpBaseSegCache* cache,
                                                         HttpBaseSegCacheStateCallback callback) {
  if (HasParams(__func__, cache != nullptr && callback != nullptr)) {
    cache->cacheStateCallback.store(callback);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetNeedDownloadComplete(HttpBaseSegCache* cache, int32_t flag) {
  if (HasParams(__func__, cache != nullptr)) {
    LOG_TRACE("%s, needDownloadComplete is %d.", flag);
    cache->needDownloadComplete.store(flag);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetRange(HttpBaseSegCache* cache, int64_t start, int64_t end) {
  if (HasParams(__func__, cache != nullptr) && !KeepRange(cache, start, end)) {
    ZV_HttpBaseSegCacheStreamSetRange(cache->stream, start, end);
  }
}

extern "C" int32_t ZV_HttpBaseSegCacheGetOpenFlag(HttpBaseSegCache* cache) {
  if (!HasParams(__func__, cache != nullptr)) {
    return -1;
  }
  return IsLocal(cache) ? OpenFlagOfReadSegment(cache) : ZV_HttpBaseSegCacheStreamGetOpenFlag(cache->stream);
}

extern "C" int64_t ZV_HttpBaseSegCacheGetContentLength(HttpBaseSegCache* cache) {
  if (!HasParams(__func__, cache != nullptr)) {
    return -1;
  }
  return IsLocal(cache) ? LengthOfReadSegment(cache) : ZV_HttpBaseSegCacheStreamGetContentLength(cache->stream);
}

extern "C" void ZV_HttpBaseSegCacheSetHttpConnNum(HttpBaseSegCache* cache, int32_t count) {
  if (IsLegal(__func__, cache != nullptr)) {
    ForDownloads(cache,
                 [count](HttpBaseSegCacheStream* stream) { ZV_HttpBaseSegCacheStreamSetHttpConnNum(stream, count); });
  }
}

extern "C" void ZV_HttpBaseSegCacheSetHttpConnRangeSize(HttpBaseSegCache* cache, int32_t bytes) {
  if (IsLegal(__func__, cache != nullptr)) {
    ForDownloads(cache, [bytes](HttpBaseSegCacheStream* stream) {
      ZV_HttpBaseSegCacheStreamSetHttpConnRangeSize(stream, bytes);
    });
  }
}
