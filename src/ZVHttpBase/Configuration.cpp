// The settings of a handle and the questions about it, on the caller's threads. Setters store under the settings' mutex and
// copy what they are given; a change reaches a connection the next time its options are set.
#include <algorithm>

#include "ZVHttpBase/Engine.h"
#include "ZVHttpBase/Inner.h"

namespace {

constexpr int32_t kLeastThreads = 1;
constexpr int32_t kLeastSegLen = 204800;
constexpr int32_t kMostSegLen = 716800;
// How many earlier redirect URLs outlive the requests that a cache makes by itself: the caller may have one of them.
constexpr int32_t kKeptRedirectUrls = 64;

bool AddHeader(curl_slist** list, const char* line) {
  curl_slist* const longer = curl_slist_append(*list, line);
  if (longer == nullptr) {
    return false;  // the list stays as it was
  }
  *list = longer;
  return true;
}

curl_slist* DefaultHeaders() {
  curl_slist* list = nullptr;
  if (!AddHeader(&list, "Connection: keep-alive") || !AddHeader(&list, "DownLoadRate: 20000.0")) {
    curl_slist_free_all(list);
    return nullptr;
  }
  return list;
}

void FreeRespKeys(HttpBaseConfigParam* config) ZV_REQUIRES(config->mutex) {
  while (config->respKeyList != nullptr) {
    HttpBaseRespKey* node = config->respKeyList;
    config->respKeyList = node->next;
    ZV_Free(&node->key);
    ZV_Free(&node->value);
    ZV_Free(&node);
  }
}

HttpBaseRespKey* NewRespKey(const char* key) {
  HttpBaseRespKey* node = static_cast<HttpBaseRespKey*>(ZV_Calloc(sizeof(HttpBaseRespKey)));
  if (node == nullptr) {
    return nullptr;
  }
  node->key = CopyText(key);
  if (node->key == nullptr) {
    ZV_Free(&node);
  }
  return node;
}

// The newest stay; the caller may still have one of them.
void FreeRedirectUrls(HttpBaseConfigParam* config, int32_t kept) ZV_REQUIRES(config->mutex) {
  RedirectUrl** end = &config->redirectUrls;
  for (; *end != nullptr && kept > 0; --kept) {
    end = &(*end)->older;
  }
  while (*end != nullptr) {
    RedirectUrl* node = *end;
    *end = node->older;
    ZV_Free(&node->url);
    ZV_Free(&node);
  }
}

// The two wordings for a null handle or argument, under the exported function's own name.
bool HasParams(const char* name, bool given) {
  if (!given) {
    LOG_ERROR_AS(name, "%s: Invalid input params!");
  }
  return given;
}

bool HasParameter(const char* name, bool given) {
  if (!given) {
    LOG_ERROR_AS(name, "%s: Invalid input parameter!");
  }
  return given;
}

void SetDefaults(HttpBaseConfigParam* config) ZV_REQUIRES(config->mutex) {
  config->closeFlag.store(kUnset);
  config->releaseFlag.store(kUnset);
  config->okCodePending.store(kUnset);
  config->singleConnection.store(kUnset);
  config->needDownloadComplete = -1;
  config->rangeConfirmed.store(kUnset);
  config->redirectSeen.store(kUnset);
  config->contentRangeSeen.store(kUnset);
  config->retryTimes = kDefaultRetryTimes;
  config->retryDelay = kDefaultRetryDelayMs;
  config->retryExhausted.store(kUnset);
  config->downloadSegLen = kDefaultSegLen;
  config->fileContentLength.store(-1);
  config->rangeStart = -1;
  config->rangeEnd = -1;
  config->openFlag.store(kUnset);
}

}  // namespace

bool InitConfig(HttpBaseConfigParam* config, HttpBaseMsgCallback cb, void* cbUserData) {
  config->mutex = ZV_MutexInit();
  if (config->mutex == nullptr) {
    return false;
  }
  config->cb = cb;
  config->cbUserData = cbUserData;
  const MutexGuard guard(config->mutex);
  SetDefaults(config);
  config->reqHeaders = DefaultHeaders();
  return config->reqHeaders != nullptr;
}

void ReleaseConfig(HttpBaseConfigParam* config) {
  if (config->mutex == nullptr) {
    return;
  }
  {
    const MutexGuard guard(config->mutex);
    FreeRedirectUrls(config, 0);
    ZV_Free(&config->url);
    ZV_Free(&config->device);
    ZV_Free(&config->userAgent);
    FreeRespKeys(config);
    curl_slist_free_all(config->reqHeaders);
    config->reqHeaders = nullptr;
  }
  ZV_MutexRelease(&config->mutex);
}

void ResetDownloadSettings(HttpBaseConfigParam* config) {
  const MutexGuard guard(config->mutex);
  config->rangeStart = -1;
  config->rangeEnd = -1;
  config->needDownloadComplete = -1;
  config->rangeConfirmed.store(kUnset);
  config->contentRangeSeen.store(kUnset);
  config->fileContentLength.store(-1);
  config->releaseFlag.store(kUnset);
  FreeRespKeys(config);
}

void KeepRedirectUrl(HttpBaseConfigParam* config, const char* url) {
  const MutexGuard guard(config->mutex);
  if (config->redirectUrls != nullptr && strcmp(config->redirectUrls->url, url) == 0) {
    config->redirectUrl.store(config->redirectUrls->url);
    return;
  }
  RedirectUrl* node = static_cast<RedirectUrl*>(ZV_Calloc(sizeof(RedirectUrl)));
  if (node == nullptr) {
    return;
  }
  node->url = CopyText(url);
  if (node->url == nullptr) {
    ZV_Free(&node);
    return;
  }
  node->older = config->redirectUrls;
  config->redirectUrls = node;
  config->redirectUrl.store(node->url);
}

void ForgetRedirectUrls(HttpBaseConfigParam* config) {
  const MutexGuard guard(config->mutex);
  config->redirectUrl.store(nullptr);
  FreeRedirectUrls(config, config->strictRange != 0 ? kKeptRedirectUrls : 0);
}

int32_t CurrentDownSpeed(const HttpBaseConfigParam* config) {
  const int64_t elapsed = ZV_ChronoGetTick() - config->startTick.load();
  const int64_t bytes = config->downloadedBytes.load();
  if (elapsed <= 0 || bytes <= 0) {
    return 0;
  }
  const int64_t perSecond = bytes > INT64_MAX / 1000 ? bytes / elapsed * 1000 : bytes * 1000 / elapsed;
  return static_cast<int32_t>(std::min<int64_t>(perSecond, INT32_MAX));
}

extern "C" int32_t ZV_HttpBaseGetOpenFlag(HttpBase* hb) {
  return hb == nullptr ? -1 : hb->configParam.openFlag.load();
}

extern "C" int32_t ZV_HttpBaseGetDownSpeed(HttpBase* hb) {
  if (!HasParams(__func__, hb != nullptr) || hb->configParam.closeFlag.load() == kHappened) {
    return -1;
  }
  const bool ended = hb->configParam.downloadRunning.load() == 0;
  return ended ? hb->configParam.downSpeed.load() : CurrentDownSpeed(&hb->configParam);
}

extern "C" const char* ZV_HttpBaseGetRedirectURL(HttpBase* hb) {
  return HasParams(__func__, hb != nullptr) ? hb->configParam.redirectUrl.load() : nullptr;
}

extern "C" int64_t ZV_HttpBaseGetContentLength(HttpBase* hb) {
  if (!HasParams(__func__, hb != nullptr)) {
    return -1;
  }
  const int64_t length = hb->configParam.fileContentLength.load();
  LOG_ERROR("%s: content-length = %lld!", Wide(length));
  return length;
}

extern "C" void ZV_HttpBaseSetRange(HttpBase* hb, int64_t start, int64_t end) {
  if (!HasParams(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.rangeStart = start;
  hb->configParam.rangeEnd = end;
  LOG_TRACE("%s: range is set[%lld, %lld] ", Wide(start), Wide(end));
}

extern "C" void ZV_HttpBaseSetNeedDownloadComplete(HttpBase* hb, int32_t flag) {
  if (!HasParams(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.needDownloadComplete = flag;
  LOG_TRACE("%s: hb is %p, needDownloadComplete set to %d.", static_cast<void*>(hb), flag);
}

extern "C" void ZV_HttpBaseSetUserAgent(HttpBase* hb, const char* userAgent) {
  if (!HasParams(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  if (!ReplaceText(&hb->configParam.userAgent, userAgent)) {
    LOG_ERROR("%s: failed for no memory");
  }
}

extern "C" void ZV_HttpBaseCleanUserAgent(HttpBase* hb) {
  if (!HasParams(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  ZV_Free(&hb->configParam.userAgent);
}

extern "C" void ZV_HttpBaseSetDevice(HttpBase* hb, const char* device) {
  if (!HasParameter(__func__, hb != nullptr && device != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  ReplaceText(&hb->configParam.device, device);
}

extern "C" void ZV_HttpBaseCleanDevice(HttpBase* hb) {
  if (hb == nullptr) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  ZV_Free(&hb->configParam.device);
}

extern "C" void ZV_HttpBaseSetReqHeader(HttpBase* hb, const char* headerLine) {
  if (!HasParameter(__func__, hb != nullptr && headerLine != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  if (!AddHeader(&hb->configParam.reqHeaders, headerLine)) {
    LOG_ERROR("%s: failed for no memory");
  }
}

extern "C" void ZV_HttpBaseCleanReqHeader(HttpBase* hb) {
  if (hb == nullptr) {
    return;
  }
  curl_slist* const fresh = DefaultHeaders();
  const MutexGuard guard(hb->configParam.mutex);
  if (fresh == nullptr) {
    LOG_ERROR("%s: failed for no memory");
    return;
  }
  curl_slist_free_all(hb->configParam.reqHeaders);
  hb->configParam.reqHeaders = fresh;
}

extern "C" void ZV_HttpBaseSetRespKey(HttpBase* hb, const char* key) {
  if (!HasParameter(__func__, hb != nullptr && key != nullptr)) {
    return;
  }
  HttpBaseRespKey* const node = NewRespKey(key);
  if (node == nullptr) {
    LOG_ERROR("%s: failed for no memory");
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  HttpBaseRespKey** end = &hb->configParam.respKeyList;
  while (*end != nullptr) {
    end = &(*end)->next;
  }
  *end = node;
}

extern "C" void ZV_HttpBaseCleanRespKey(HttpBase* hb) {
  if (hb == nullptr) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  FreeRespKeys(&hb->configParam);
}

extern "C" void ZV_HttpBaseGetRespbyKey(HttpBase* hb, const char* key, char** value) {
  if (!HasParameter(__func__, hb != nullptr && key != nullptr && value != nullptr)) {
    return;
  }
  *value = nullptr;
  const MutexGuard guard(hb->configParam.mutex);
  const HttpBaseRespKey* node = hb->configParam.respKeyList;
  while (node != nullptr && strcmp(node->key, key) != 0) {
    node = node->next;
  }
  if (node == nullptr || node->value == nullptr) {
    return;
  }
  *value = CopyText(node->value);
  if (*value != nullptr) {
    LOG_TRACE("%s: get key [%s] resp [%s] ok", key, *value);
  }
}

extern "C" void ZV_HttpBaseSetRetryTimes(HttpBase* hb, int32_t count) {
  if (!HasParameter(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.retryTimes = count;
}

extern "C" void ZV_HttpBaseSetRetryDelay(HttpBase* hb, int32_t ms) {
  if (!HasParameter(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.retryDelay = ms;
}

extern "C" void ZV_HttpBaseSetDownloadType(HttpBase* hb, int32_t type) {
  if (!HasParameter(__func__, hb != nullptr && (type == 0 || type == 1))) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.downloadType = type;
}

extern "C" void ZV_HttpBaseSetNetMonitor(HttpBase* hb, intptr_t monitor) {
  if (!HasParams(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.netMonitor = monitor;
}

extern "C" int32_t ZV_HttpBaseSetDownloadThreadNum(HttpBase* hb, int32_t count) {
  if (!HasParams(__func__, hb != nullptr)) {
    return -1;
  }
  if (count < kLeastThreads) {
    LOG_FAILURE("%s: Invalid thread number, range should be [1 - %d], value[%d] will not change!", kServiceThreads,
                hb->threadNum.load());
    return -1;
  }
  const MutexGuard guard(hb->configParam.mutex);
  if (count > kServiceThreads) {
    LOG_ERROR("%s: Invalid thread number, range should be [1 - %d], maximum value[%d] of httpbase[%p] will be set!",
              kServiceThreads, kServiceThreads, static_cast<void*>(hb));
    hb->threadNum.store(kServiceThreads);
    return 0;
  }
  hb->threadNum.store(count);
  LOG_TRACE("%s: Httpbase[%p] download thread number is set[%d] ", static_cast<void*>(hb), count);
  return 0;
}

extern "C" int32_t ZV_HttpBaseSetDownloadSegLen(HttpBase* hb, int32_t length) {
  if (!HasParams(__func__, hb != nullptr)) {
    return -1;
  }
  const MutexGuard guard(hb->configParam.mutex);
  if (length < kLeastSegLen) {
    LOG_ERROR(
        "%s: Invalid segment length, range should be [%lld - %lld], minimum value[%lld] of httpbase[%p] will be set!",
        Wide(kLeastSegLen), Wide(kMostSegLen), Wide(kLeastSegLen), static_cast<void*>(hb));
  } else if (length > kMostSegLen) {
    LOG_ERROR(
        "%s: Invalid segment length, range should be [%lld - %lld], maximum value[%lld] of httpbase[%p] will be set!",
        Wide(kLeastSegLen), Wide(kMostSegLen), Wide(kMostSegLen), static_cast<void*>(hb));
  }
  hb->configParam.downloadSegLen = std::clamp(length, kLeastSegLen, kMostSegLen);
  LOG_TRACE("%s: Httpbase[%p] download segment length is set to %d bytes ", static_cast<void*>(hb), length);
  return 0;
}

extern "C" void ZV_HttpBaseSetMsgCallBack(HttpBase* hb, HttpBaseRetryCallback callback) {
  if (!HasParams(__func__, hb != nullptr)) {
    return;
  }
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.retryMsgCallBack = callback;
}

void ZVIner_SetStrictRange(HttpBase* hb, int32_t strict) {
  const MutexGuard guard(hb->configParam.mutex);
  hb->configParam.strictRange = strict;
}

int64_t ZVIner_TakeRangeStart(HttpBase* hb) {
  const MutexGuard guard(hb->configParam.mutex);
  const int64_t start = hb->configParam.rangeStart;
  hb->configParam.rangeStart = -1;
  hb->configParam.rangeEnd = -1;
  return start;
}

int32_t ZVIner_IsContentEncoded(HttpBase* hb) {
  return hb->configParam.contentEncoded.load();
}

int32_t ZVIner_HasEndedWell(HttpBase* hb) {
  const HttpBaseConfigParam* const config = &hb->configParam;
  return config->downloadRunning.load() == 0 && config->failed.load() == 0 ? 1 : 0;
}
