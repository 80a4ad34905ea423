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

}  // namespace

void ApplyOptions(HttpBase* handle, const CommonOptions& options) {
  ZV_HttpBaseSetDownloadThreadNum(handle, options.connections);
  if (options.segmentBytes) {
    ZV_HttpBaseSetDownloadSegLen(handle, *options.segmentBytes);
  }
  for (const std::string& line : options.requestHeaders) {
    ZV_HttpBaseSetReqHeader(handle, line.c_str());
  }
  if (options.userAgent) {
    ZV_HttpBaseSetUserAgent(handle, options.userAgent->c_str());
  }
  if (options.interfaceName) {
    ZV_HttpBaseSetDevice(handle, options.interfaceName->c_str());
  }
  if (options.retries) {
    ZV_HttpBaseSetRetryTimes(handle, *options.retries);
  }
  if (options.retryDelayMs) {
    ZV_HttpBaseSetRetryDelay(handle, *options.retryDelayMs);
  }
  for (const std::string& key : options.headerKeys) {
    ZV_HttpBaseSetRespKey(handle, key.c_str());
  }
}

std::optional<std::string> ResponseHeader(HttpBase* handle, const std::string& key) {
  char* value = nullptr;
  ZV_HttpBaseGetRespbyKey(handle, key.c_str(), &value);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::string text = value;
  ZV_Free(&value);
  return text;
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
