// The options that every command which fetches something takes, and what they mean for a downloader.
#ifndef TOOLS_COMMON_OPTIONS_H
#define TOOLS_COMMON_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZVHttpBase.h"
#include "ZVHttpBaseCache.h"
#include "ZVHttpBaseSegCache.h"

constexpr int32_t kLeastConnections = 1;
constexpr int32_t kMostConnections = 5;
constexpr int32_t kLeastSegmentBytes = 204800;
constexpr int32_t kMostSegmentBytes = 716800;
constexpr int32_t kDefaultSegmentBytes = 512000;

// Where nothing is set the library's default holds.
struct CommonOptions {
  std::string url;
  int32_t connections = kLeastConnections;
  std::optional<int32_t> segmentBytes;
  std::vector<std::string> requestHeaders;  // whole lines
  std::optional<std::string> userAgent;
  std::optional<std::string> interfaceName;
  std::optional<int32_t> retries;  // -1: without end
  std::optional<int32_t> retryDelayMs;
  std::vector<std::string> headerKeys;  // response headers that the report shows
  std::optional<int32_t> logLevel;      // of LumLog
  bool stats = false;
  bool json = false;
  bool quiet = false;
};

void ApplyOptions(HttpBase* handle, const CommonOptions& options);
void ApplyOptions(HttpBaseCache* handle, const CommonOptions& options);
// Reaches what the handle fetches without its cache; the requests of its workers keep the library's defaults.
void ApplyOptions(HttpBaseSegCache* handle, const CommonOptions& options);

// The value of a response header that was asked for, nothing when none was seen.
std::optional<std::string> ResponseHeader(HttpBase* handle, const std::string& key);
std::optional<std::string> ResponseHeader(HttpBaseCache* handle, const std::string& key);

// While it lives, log lines of the level and above go to standard error.
class LogToStandardError {
 public:
  explicit LogToStandardError(std::optional<int32_t> level);
  ~LogToStandardError();
  LogToStandardError(const LogToStandardError&) = delete;
  LogToStandardError& operator=(const LogToStandardError&) = delete;
};

#endif
