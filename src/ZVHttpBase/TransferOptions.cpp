// Every option of a transfer, set on the service thread before each request. The player's settings are read under their
// mutex; what libcurl keeps by pointer (the header list) is copied for this transfer.
#define CURL_DISABLE_DEPRECATION
#include <cinttypes>
#include <cstdio>

#include "ZVHttpBase/Engine.h"

namespace {

constexpr char kDefaultUserAgent[] = "ZOVEX/1.0";
constexpr char kLocalServer[] = "http://127.0.0.1";
constexpr size_t kLocalServerLength = 16;
constexpr long kConnectTimeoutS = 8;
constexpr long kLowSpeedS = 20;
constexpr long kLowSpeedLocalS = 60;
constexpr long kMostRedirects = 30;
constexpr size_t kRangeTextBytes = 64;

void SetCallbacks(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  CURL* const curl = record->curl;
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, ZVIner_StreamCallback);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, record);
  curl_easy_setopt(curl, CURLOPT_HEADER, 0L);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, ZVIner_HeaderCallback);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, record);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_PROGRESSFUNCTION, ZVIner_ProgressCallback);
  curl_easy_setopt(curl, CURLOPT_PROGRESSDATA, record);
}

void SetBehaviour(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  CURL* const curl = record->curl;
  const bool local = ZV_Strnicmp(record->url, kLocalServer, kLocalServerLength) == 0;
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_VERBOSE, 0L);
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutS);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 0L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, local && !record->attemptsExhausted ? kLowSpeedLocalS : kLowSpeedS);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
}

// Beyond what a player can set: no endless redirects, nothing but HTTP, no route chosen by the environment, a buffer large
// enough for the speed of the line, and no waiting for a name that is looked up in vain.
void SetLimits(CURL* curl) {
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMostRedirects);
#if LIBCURL_VERSION_NUM >= 0x075500
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
#else
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, kReceiveBufferBytes);
#if LIBCURL_VERSION_NUM >= 0x075700
  curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);
#endif
}

CURLcode SetPlayerSettings(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  CURL* const curl = record->curl;
  bool ok = true;
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
  curl_slist_free_all(record->headers);
  const MutexGuard guard(config->mutex);
  const char* const agent = config->userAgent == nullptr ? kDefaultUserAgent : config->userAgent;
  record->headers = CopyHeaderList(config->reqHeaders, &ok);
  if (!ok || curl_easy_setopt(curl, CURLOPT_USERAGENT, agent) != CURLE_OK ||
      curl_easy_setopt(curl, CURLOPT_INTERFACE, config->device) != CURLE_OK) {
    return CURLE_OUT_OF_MEMORY;
  }
  return curl_easy_setopt(curl, CURLOPT_HTTPHEADER, record->headers);
}

}  // namespace

curl_slist* CopyHeaderList(const curl_slist* list, bool* ok) {
  curl_slist* copy = nullptr;
  for (; list != nullptr; list = list->next) {
    curl_slist* const longer = curl_slist_append(copy, list->data);
    if (longer == nullptr) {
      curl_slist_free_all(copy);
      *ok = false;
      return nullptr;
    }
    copy = longer;
  }
  *ok = true;
  return copy;
}

int32_t ZVIner_SetServiceThreadOpt(HttpBaseServiceThread* record) {
  SetCallbacks(record);
  SetBehaviour(record);
  SetLimits(record->curl);
  ZVIner_SetServiceThreadRangeOpt(record);
  if (curl_easy_setopt(record->curl, CURLOPT_ACCEPT_ENCODING, "gzip") != CURLE_OK ||
      SetPlayerSettings(record) != CURLE_OK || curl_easy_setopt(record->curl, CURLOPT_URL, record->url) != CURLE_OK) {
    return -1;
  }
  return 0;
}

void ZVIner_SetServiceThreadRangeOpt(HttpBaseServiceThread* record) {
  const long long start = record->rangeStart;
  const long long end = record->rangeEnd;
  const bool everything = (start < 0 && end < 0) || (end >= 0 && start > end);
  if (record->guard.kind == kTaskWhole || record->guard.withoutRange || everything) {
    curl_easy_setopt(record->curl, CURLOPT_RANGE, nullptr);
    return;
  }
  char text[kRangeTextBytes];
  if (start < 0) {
    snprintf(text, sizeof text, "-%lld", end);
  } else if (end < 0) {
    snprintf(text, sizeof text, "%lld-", start);
  } else {
    snprintf(text, sizeof text, "%lld-%lld", start, end);
  }
  LOG_TRACE("%s: buff is %s.", text);
  // A request that went out without its range brings everything, and the guard cuts it.
  curl_easy_setopt(record->curl, CURLOPT_RANGE, text);
}
