// Settings of a stream and questions about it: those of its downloader. Any thread; no lock is taken.
#include "ZVHttpBaseSegCacheStream/LogNames.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

extern "C" int32_t ZV_HttpBaseSegCacheStreamGetOpenFlag(HttpBaseSegCacheStream* stream) {
  return HasParams(__func__, stream != nullptr) ? ZV_HttpBaseGetOpenFlag(stream->httpBase) : -1;
}

extern "C" int32_t ZV_HttpBaseSegCacheStreamGetDownSpeed(HttpBaseSegCacheStream* stream) {
  return HasParams(__func__, stream != nullptr) ? ZV_HttpBaseGetDownSpeed(stream->httpBase) : -1;
}

extern "C" int64_t ZV_HttpBaseSegCacheStreamGetContentLength(HttpBaseSegCacheStream* stream) {
  return HasParams(__func__, stream != nullptr) ? ZV_HttpBaseGetContentLength(stream->httpBase) : -1;
}

extern "C" const char* ZV_HttpBaseSegCacheStreamGetRedirectURL(HttpBaseSegCacheStream* stream) {
  return HasParams(__func__, stream != nullptr) ? ZV_HttpBaseGetRedirectURL(stream->httpBase) : nullptr;
}

extern "C" void ZV_HttpBaseSegCacheStreamSetRange(HttpBaseSegCacheStream* stream, int64_t start, int64_t end) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseSetRange(stream->httpBase, start, end);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetNeedDownloadComplete(HttpBaseSegCacheStream* stream, int32_t flag) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseSetNeedDownloadComplete(stream->httpBase, flag);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetUserAgent(HttpBaseSegCacheStream* stream, const char* userAgent) {
  if (HasParams(__func__, stream != nullptr && userAgent != nullptr)) {
    ZV_HttpBaseSetUserAgent(stream->httpBase, userAgent);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamCleanUserAgent(HttpBaseSegCacheStream* stream) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseCleanUserAgent(stream->httpBase);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetDevice(HttpBaseSegCacheStream* stream, const char* device) {
  if (HasParams(__func__, stream != nullptr && device != nullptr)) {
    ZV_HttpBaseSetDevice(stream->httpBase, device);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamCleanDevice(HttpBaseSegCacheStream* stream) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseCleanDevice(stream->httpBase);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetReqHeader(HttpBaseSegCacheStream* stream, const char* headerLine) {
  if (HasParams(__func__, stream != nullptr && headerLine != nullptr)) {
    ZV_HttpBaseSetReqHeader(stream->httpBase, headerLine);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamCleanReqHeader(HttpBaseSegCacheStream* stream) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseCleanReqHeader(stream->httpBase);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetRespKey(HttpBaseSegCacheStream* stream, const char* key) {
  if (HasParams(__func__, stream != nullptr && key != nullptr)) {
    ZV_HttpBaseSetRespKey(stream->httpBase, key);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamCleanRespKey(HttpBaseSegCacheStream* stream) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseCleanRespKey(stream->httpBase);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamGetRespbyKey(HttpBaseSegCacheStream* stream, const char* key, char** value) {
  if (HasParams(__func__, stream != nullptr && key != nullptr && value != nullptr && *value != nullptr)) {
    ZV_HttpBaseGetRespbyKey(stream->httpBase, key, value);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetRetryTimes(HttpBaseSegCacheStream* stream, int32_t count) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseSetRetryTimes(stream->httpBase, count);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetRetryDelay(HttpBaseSegCacheStream* stream, int32_t ms) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseSetRetryDelay(stream->httpBase, ms);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetDownloadType(HttpBaseSegCacheStream* stream, int32_t type) {
  if (HasParams(__func__, stream != nullptr)) {
    ZV_HttpBaseSetDownloadType(stream->httpBase, type);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetNetMonitor(HttpBaseSegCacheStream* stream, intptr_t monitor) {
  if (HasParams(__func__, stream != nullptr && monitor != 0)) {
    ZV_HttpBaseSetNetMonitor(stream->httpBase, monitor);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetHttpConnNum(HttpBaseSegCacheStream* stream, int32_t count) {
  if (IsLegal(__func__, stream != nullptr)) {
    ZV_HttpBaseSetDownloadThreadNum(stream->httpBase, count);
  }
}

extern "C" void ZV_HttpBaseSegCacheStreamSetHttpConnRangeSize(HttpBaseSegCacheStream* stream, int32_t bytes) {
  if (IsLegal(__func__, stream != nullptr)) {
    ZV_HttpBaseSetDownloadSegLen(stream->httpBase, bytes);
  }
}
