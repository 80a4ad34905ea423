// Settings and queries that the downloader answers. The player's threads; no lock of the cache is taken.
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

extern "C" void ZV_HttpBaseCacheSetCacheStateCallback(HttpBaseCache* cache, HttpBaseCacheStateCallback callback) {
  if (HasParams(__func__, cache != nullptr && callback != nullptr)) {
    cache->cacheStateCallback.store(callback);
  }
}

extern "C" void ZV_HttpBaseCacheSetNeedDownloadComplete(HttpBaseCache* cache, int32_t flag) {
  if (HasParams(__func__, cache != nullptr)) {
    LOG_TRACE("%s, needDownloadComplete is %d.", flag);
    cache->needDownloadComplete.store(flag);
  }
}

extern "C" int64_t ZV_HttpBaseCacheGetContentLength(HttpBaseCache* cache) {
  return HasParams(__func__, cache != nullptr) ? cache->contentLength.load() : -1;
}

extern "C" int32_t ZV_HttpBaseCacheGetOpenFlag(HttpBaseCache* cache) {
  return HasParams(__func__, cache != nullptr) ? ZV_HttpBaseGetOpenFlag(cache->httpBase) : -1;
}

extern "C" int32_t ZV_HttpBaseCacheGetDownSpeed(HttpBaseCache* cache) {
  return HasParams(__func__, cache != nullptr) ? ZV_HttpBaseGetDownSpeed(cache->httpBase) : -1;
}

extern "C" const char* ZV_HttpBaseCacheGetRedirectURL(HttpBaseCache* cache) {
  return HasParams(__func__, cache != nullptr) ? ZV_HttpBaseGetRedirectURL(cache->httpBase) : nullptr;
}

extern "C" void ZV_HttpBaseCacheSetUserAgent(HttpBaseCache* cache, const char* userAgent) {
  if (HasParams(__func__, cache != nullptr && userAgent != nullptr)) {
    ZV_HttpBaseSetUserAgent(cache->httpBase, userAgent);
  }
}

extern "C" void ZV_HttpBaseCacheCleanUserAgent(HttpBaseCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseCleanUserAgent(cache->httpBase);
  }
}

extern "C" void ZV_HttpBaseCacheSetDevice(HttpBaseCache* cache, const char* device) {
  if (HasParams(__func__, cache != nullptr && device != nullptr)) {
    ZV_HttpBaseSetDevice(cache->httpBase, device);
  }
}

extern "C" void ZV_HttpBaseCacheCleanDevice(HttpBaseCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseCleanDevice(cache->httpBase);
  }
}

extern "C" void ZV_HttpBaseCacheSetReqHeader(HttpBaseCache* cache, const char* headerLine) {
  if (HasParams(__func__, cache != nullptr && headerLine != nullptr)) {
    ZV_HttpBaseSetReqHeader(cache->httpBase, headerLine);
  }
}

extern "C" void ZV_HttpBaseCacheCleanReqHeader(HttpBaseCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseCleanReqHeader(cache->httpBase);
  }
}

extern "C" void ZV_HttpBaseCacheSetRetryTimes(HttpBaseCache* cache, int32_t count) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSetRetryTimes(cache->httpBase, count);
  }
}

extern "C" void ZV_HttpBaseCacheSetRetryDelay(HttpBaseCache* cache, int32_t ms) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSetRetryDelay(cache->httpBase, ms);
  }
}

extern "C" void ZV_HttpBaseCacheSetDownloadType(HttpBaseCache* cache, int32_t type) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSetDownloadType(cache->httpBase, type);
  }
}

extern "C" void ZV_HttpBaseCacheSetNetMonitor(HttpBaseCache* cache, intptr_t monitor) {
  if (HasParams(__func__, cache != nullptr && monitor != 0)) {
    ZV_HttpBaseSetNetMonitor(cache->httpBase, monitor);
  }
}

extern "C" void ZV_HttpBaseCacheSetHttpConnNum(HttpBaseCache* cache, const int32_t* count) {
  if (HasParams(__func__, cache != nullptr && count != nullptr)) {
    ZV_HttpBaseSetDownloadThreadNum(cache->httpBase, *count);
  }
}

extern "C" void ZV_HttpBaseCacheSetHttpConnRangeSize(HttpBaseCache* cache, const int32_t* bytes) {
  if (HasParams(__func__, cache != nullptr && bytes != nullptr)) {
    ZV_HttpBaseSetDownloadSegLen(cache->httpBase, *bytes);
  }
}
