// Settings and queries that the handle's own stream answers, in both modes. Any thread; no lock is taken.
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"

extern "C" int32_t ZV_HttpBaseSegCacheGetDownSpeed(HttpBaseSegCache* cache) {
  return HasParams(__func__, cache != nullptr) ? ZV_HttpBaseSegCacheStreamGetDownSpeed(cache->stream) : -1;
}

extern "C" const char* ZV_HttpBaseSegCacheGetRedirectURL(HttpBaseSegCache* cache) {
  return HasParams(__func__, cache != nullptr) ? ZV_HttpBaseSegCacheStreamGetRedirectURL(cache->stream) : nullptr;
}

extern "C" void ZV_HttpBaseSegCacheSetUserAgent(HttpBaseSegCache* cache, const char* userAgent) {
  if (HasParams(__func__, cache != nullptr && userAgent != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetUserAgent(cache->stream, userAgent);
  }
}

extern "C" void ZV_HttpBaseSegCacheCleanUserAgent(HttpBaseSegCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamCleanUserAgent(cache->stream);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetDevice(HttpBaseSegCache* cache, const char* device) {
  if (HasParams(__func__, cache != nullptr && device != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetDevice(cache->stream, device);
  }
}

extern "C" void ZV_HttpBaseSegCacheCleanDevice(HttpBaseSegCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamCleanDevice(cache->stream);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetReqHeader(HttpBaseSegCache* cache, const char* headerLine) {
  if (HasParams(__func__, cache != nullptr && headerLine != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetReqHeader(cache->stream, headerLine);
  }
}

extern "C" void ZV_HttpBaseSegCacheCleanReqHeader(HttpBaseSegCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamCleanReqHeader(cache->stream);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetRespKey(HttpBaseSegCache* cache, const char* key) {
  if (HasParams(__func__, cache != nullptr && key != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetRespKey(cache->stream, key);
  }
}

extern "C" void ZV_HttpBaseSegCacheCleanRespKey(HttpBaseSegCache* cache) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamCleanRespKey(cache->stream);
  }
}

extern "C" void ZV_HttpBaseSegCacheGetRespbyKey(HttpBaseSegCache* cache, const char* key, char** value) {
  if (HasParams(__func__, cache != nullptr && key != nullptr && value != nullptr && *value != nullptr)) {
    ZV_HttpBaseSegCacheStreamGetRespbyKey(cache->stream, key, value);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetRetryTimes(HttpBaseSegCache* cache, int32_t count) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetRetryTimes(cache->stream, count);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetRetryDelay(HttpBaseSegCache* cache, int32_t ms) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetRetryDelay(cache->stream, ms);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetDownloadType(HttpBaseSegCache* cache, int32_t type) {
  if (HasParams(__func__, cache != nullptr)) {
    ZV_HttpBaseSegCacheStreamSetDownloadType(cache->stream, type);
  }
}

extern "C" void ZV_HttpBaseSegCacheSetNetMonitor(HttpBaseSegCache* cache, intptr_t monitor) {
  if (HasParams(__func__, cache != nullptr && monitor != 0)) {
    ZV_HttpBaseSegCacheStreamSetNetMonitor(cache->stream, monitor);
  }
}
