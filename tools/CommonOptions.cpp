#include "CommonOptions.h"

#include <cstdio>
#include <cstring>

#include "LumLog.h"
#include "Text.h"
#include "ZVBase.h"

namespace {

const char* LevelWord(int32_t level) {
  switch (level) {
    case LUM_LEVEL_TRACE:
      return "trace";
    case LUM_LEVEL_ERROR:
      return "error";
    case LUM_LEVEL_FAILURE:
      return "failure";
    default:
      return "log";
  }
}

const char* FileName(const char* path) {
  if (path == nullptr) {
    return "";
  }
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// Runs on the library's threads; the stream's own lock keeps lines whole.
void PrintLogLine(void*, int32_t level, const char*, const char* sourcePath, int32_t line, const char* text) {
  std::fprintf(stderr, "%-7s %s:%d %s\n", LevelWord(level), FileName(sourcePath), static_cast<int>(line),
               Printable(text == nullptr ? "" : text).c_str());
}

// The settings that a downloader and a cache have in common.
template <typename Handle>
struct Setters {
  void (*addHeader)(Handle*, const char*);
  void (*setUserAgent)(Handle*, const char*);
  void (*setDevice)(Handle*, const char*);
  void (*setRetryTimes)(Handle*, int32_t);
  void (*setRetryDelay)(Handle*, int32_t);
  void (*addResponseKey)(Handle*, const char*);
};

const Setters<HttpBase> kDownloader = {ZV_HttpBaseSetReqHeader,  ZV_HttpBaseSetUserAgent,  ZV_HttpBaseSetDevice,
                                       ZV_HttpBaseSetRetryTimes, ZV_HttpBaseSetRetryDelay, ZV_HttpBaseSetRespKey};
const Setters<HttpBaseCache> kCache = {ZV_HttpBaseCacheSetReqHeader,  ZV_HttpBaseCacheSetUserAgent,
                                       ZV_HttpBaseCacheSetDevice,     ZV_HttpBaseCacheSetRetryTimes,
                                       ZV_HttpBaseCacheSetRetryDelay, ZV_HttpBaseCacheSetRespKey};
const Setters<HttpBaseSegCache> kSegmentCache = {ZV_HttpBaseSegCacheSetReqHeader,  ZV_HttpBaseSegCacheSetUserAgent,
                                                 ZV_HttpBaseSegCacheSetDevice,     ZV_HttpBaseSegCacheSetRetryTimes,
                                                 ZV_HttpBaseSegCacheSetRetryDelay, ZV_HttpBaseSegCacheSetRespKey};

template <typename Handle>
void ApplyRequestOptions(Handle* handle, const CommonOptions& options, const Setters<Handle>& setters) {
  for (const std::string& line : options.requestHeaders) {
    setters.addHeader(handle, line.c_str());
  }
  if (options.userAgent) {
    setters.setUserAgent(handle, options.userAgent->c_str());
  }
  if (options.interfaceName) {
    setters.setDevice(handle, options.interfaceName->c_str());
  }
  if (options.retries) {
    setters.setRetryTimes(handle, *options.retries);
  }
  if (options.retryDelayMs) {
    setters.setRetryDelay(handle, *options.retryDelayMs);
  }
  for (const std::string& key : options.headerKeys) {
    setters.addResponseKey(handle, key.c_str());
  }
}

// Takes over a text that the library has handed out.
std::optional<std::string> TakeText(char* value) {
  if (value == nullptr) {
    return std::nullopt;
  }
  std::string text = value;
  ZV_Free(&value);
  return text;
}

}  // namespace

void ApplyOptions(HttpBase* handle, const CommonOptions& options) {
  ZV_HttpBaseSetDownloadThreadNum(handle, options.connections);
  if (options.segmentBytes) {
    ZV_HttpBaseSetDownloadSegLen(handle, *options.segmentBytes);
  }
  ApplyRequestOptions(handle, options, kDownloader);
}

void ApplyOptions(HttpBaseCache* handle, const CommonOptions& options) {
  ZV_HttpBaseCacheSetHttpConnNum(handle, &options.connections);
  if (options.segmentBytes) {
    ZV_HttpBaseCacheSetHttpConnRangeSize(handle, &*options.segmentBytes);
  }
  ApplyRequestOptions(handle, options, kCache);
}

void ApplyOptions(HttpBaseSegCache* handle, const CommonOptions& options) {
  ApplyRequestOptions(handle, options, kSegmentCache);
}

std::optional<std::string> ResponseHeader(HttpBase* handle, const std::string& key) {
  char* value = nullptr;
  ZV_HttpBaseGetRespbyKey(handle, key.c_str(), &value);
  return TakeText(value);
}

std::optional<std::string> ResponseHeader(HttpBaseCache* handle, const std::string& key) {
  char none = 0;
  char* value = &none;  // must point somewhere, and is replaced
  ZV_HttpBaseCacheGetRespbyKey(handle, key.c_str(), &value);
  return value == &none ? std::nullopt : TakeText(value);
}

LogToStandardError::LogToStandardError(std::optional<int32_t> level) {
  if (level) {
    LumLogSetLevel(*level);
    LumLogSetCallback(PrintLogLine, nullptr);
  }
}

LogToStandardError::~LogToStandardError() {
  LumLogSetCallback(nullptr, nullptr);
}
