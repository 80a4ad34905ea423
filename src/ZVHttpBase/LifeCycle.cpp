// Init, Open, Read, Close, Release: the caller's threads. apiMutex serialises Open, Close and Release; Read takes only the
// ring buffer's mutex.
#include <mutex>
#include <new>

#include "ZVHttpBase/Engine.h"
#include "ZVHttpBase/Inner.h"

namespace {

// Which handle the running thread belongs to. Calls that would wait for that very thread are refused.
thread_local const HttpBase* engineOfThisThread = nullptr;

// libcurl's own initialisation may not be safe from several threads at once.
std::mutex globalInitMutex;

bool InitLibcurl() {
  const std::lock_guard<std::mutex> guard(globalInitMutex);
  return curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK;
}

void CleanUpLibcurl() {
  const std::lock_guard<std::mutex> guard(globalInitMutex);
  curl_global_cleanup();
}

void PrepareRecord(HttpBase* hb, int32_t index) ZV_UNCHECKED {
  HttpBaseServiceThread* const record = &hb->serviceThread[index];
  record->index = index;
  record->ringBuffer = &hb->ringBuffer;
  record->configParam = &hb->configParam;
  record->engine = hb;
  record->rangeStart = -1;
  record->rangeEnd = -1;
  record->threadBusy.store(-1);
  record->notPaused.store(kUnset);
  record->performResult.store(kPerformNever);
  record->alive.store(kLifeDead);
}

// A record whose condition or thread cannot be made stays dead: the others do its work.
void StartServiceThreads(HttpBase* hb) {
  for (int32_t i = 0; i < kServiceThreads; ++i) {
    PrepareRecord(hb, i);
  }
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    record.cond = ZV_ConditionInit();
    if (record.cond == nullptr) {
      return;
    }
    record.alive.store(kLifeStarting);
    record.thread = ZV_ThreadInit(ZVIner_ServiceThreadFunc, &record);
    if (record.thread == nullptr) {
      record.alive.store(kLifeDead);
      continue;
    }
    ++hb->createdThreadNum;
  }
}

bool StartMonitor(HttpBase* hb) {
  hb->monitorBusy.store(-1);
  hb->monitorCond = ZV_ConditionInit();
  if (hb->monitorCond == nullptr) {
    return false;
  }
  hb->monitorThread = ZV_ThreadInit(ZVIner_MonitorThreadFunc, hb);
  return hb->monitorThread != nullptr;
}

void FreeServiceThread(HttpBaseServiceThread* record) ZV_UNCHECKED {
  if (record->thread != nullptr) {
    ZV_ThreadJoin(record->thread);
  }
  ZV_ThreadRelease(&record->thread);
  if (record->curl != nullptr) {
    curl_easy_cleanup(record->curl);
    record->curl = nullptr;
  }
  if (CURLM* const multi = record->multi.exchange(nullptr)) {
    curl_multi_cleanup(multi);
  }
  ZV_Free(&record->url);
  ZV_ConditionRelease(&record->cond);
}

// Stops and joins every thread, whichever of them exist.
void ZVIner_ThreadRelease(HttpBase* hb) {
  hb->configParam.releaseFlag.store(kHappened);
  WakeAll(hb);
  if (hb->monitorThread != nullptr) {
    {
      const ConditionGuard guard(hb->monitorCond);
      ZV_ConditionSignal(hb->monitorCond);
    }
    ZV_ThreadJoin(hb->monitorThread);
    ZV_ThreadRelease(&hb->monitorThread);
  } else {
    ZVIner_NotifyServiceThreadsExit(hb);
  }
  ZV_ConditionRelease(&hb->monitorCond);
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    FreeServiceThread(&record);
  }
  hb->createdThreadNum = 0;
}

void FreeHandle(HttpBase* hb) {
  ZVIner_RingBufferRelease(&hb->ringBuffer);
  ReleaseConfig(&hb->configParam);
  EventRelease(&hb->event);
  ZV_MutexRelease(&hb->apiMutex);
  hb->~HttpBase();
  ZV_Free(&hb);
}

HttpBase* NewHandle(HttpBaseMsgCallback callback, void* userData) {
  void* const memory = ZV_Calloc(sizeof(HttpBase));
  if (memory == nullptr) {
    return nullptr;
  }
  HttpBase* const hb = new (memory) HttpBase();
  ScopeGuard undo([hb] { FreeHandle(hb); });
  hb->threadNum.store(1);
  hb->apiMutex = ZV_MutexInit();
  if (hb->apiMutex == nullptr || !EventInit(&hb->event) || !InitConfig(&hb->configParam, callback, userData) ||
      ZVIner_RingBufferInit(&hb->ringBuffer) != kRingOk) {
    return nullptr;
  }
  undo.Dismiss();
  return hb;
}

void WaitUntilMonitorIdles(HttpBase* hb) {
  EventWait(&hb->event, kEventIdle, kWaitForEver, [hb] { return hb->monitorBusy.load() == 0; });
}

// What a new download begins with, before the monitor knows of it.
void ArmDownload(HttpBase* hb) {
  HttpBaseConfigParam* const config = &hb->configParam;
  ForgetRedirectUrls(config);
  config->openFlag.store(0);
  config->downloadedBytes.store(0);
  config->startTick.store(ZV_ChronoGetTick());
  config->downloadRunning.store(-1);
  config->redirectSeen.store(kUnset);
  config->okCodePending.store(kUnset);
  config->contentRangeSeen.store(kUnset);
  config->failed.store(0);
  config->closeFlag.store(kUnset);
}

void LogReadFinish(HttpBaseConfigParam* config) {
  const MutexGuard guard(config->mutex);
  LOG_TRACE_AS("ZV_HttpBaseRead", "%s: Read finish, url[%s], range[%lld - %lld]", Printable(config->url),
               Wide(config->rangeStart), Wide(config->rangeEnd));
}

// Whoever waits for room may go on.
void TellAboutRoom(HttpBase* hb) {
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    if (IsPaused(&record)) {
      WakeTransfer(&record);
    }
  }
  EventRaise(&hb->event, kEventWork);
}

}  // namespace

const HttpBase* EngineOfThisThread() {
  return engineOfThisThread;
}

void EnterEngineThread(const HttpBase* hb) {
  engineOfThisThread = hb;
}

void WakeTransfer(HttpBaseServiceThread* record) {
  if (CURLM* const multi = record->multi.load()) {
    curl_multi_wakeup(multi);
  }
}

void WakeAll(HttpBase* hb) {
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    if (IsAtWork(&record)) {
      WakeTransfer(&record);
    }
  }
  EventRaise(&hb->event, kEventWork);
  EventRaise(&hb->event, kEventStop);
  EventRaise(&hb->event, kEventData);
}

extern "C" HttpBase* ZV_HttpBaseInit(HttpBaseMsgCallback callback, void* userData) {
  LOG_TRACE("%s: Init HttpBase.");
  if (callback == nullptr) {
    return nullptr;
  }
  HttpBase* const hb = NewHandle(callback, userData);
  if (hb == nullptr) {
    return nullptr;
  }
  ScopeGuard freeHandle([hb] { FreeHandle(hb); });
  if (!InitLibcurl()) {
    LOG_FAILURE("%s: Init global curl fail!");
    return nullptr;
  }
  StartServiceThreads(hb);
  if (!StartMonitor(hb)) {
    ZVIner_ThreadRelease(hb);
    CleanUpLibcurl();
    LOG_FAILURE("%s: Initialize monitor thread fail!");
    return nullptr;
  }
  freeHandle.Dismiss();
  LOG_TRACE("%s: Init httpBase OK[%p]", static_cast<void*>(hb));
  return hb;
}

extern "C" int32_t ZV_HttpBaseOpen(HttpBase* hb, const char* url) {
  LOG_TRACE("%s: Open HttpBase[%p]", static_cast<void*>(hb));
  if (hb == nullptr || url == nullptr) {
    return -1;
  }
  if (ZVIner_IsOwnThread(hb) != 0) {
    LOG_ERROR("%s: Called from a callback of HttpBase[%p], refused!", static_cast<void*>(hb));
    return -1;
  }
  HttpBaseConfigParam* const config = &hb->configParam;
  const MutexGuard api(hb->apiMutex);
  if (config->openFlag.load() == 0) {
    LOG_ERROR("%s: Another download is processing, please closed it!");
    return -1;
  }
  {
    const MutexGuard guard(config->mutex);
    ReplaceText(&config->url, url);
  }
  WaitUntilMonitorIdles(hb);
  ArmDownload(hb);
  const ConditionGuard monitor(hb->monitorCond);
  hb->monitorTask = 1;
  hb->monitorBusy.store(-1);
  ZV_ConditionSignal(hb->monitorCond);
  return 0;
}

extern "C" int32_t ZV_HttpBaseRead(HttpBase* hb, void* buffer, uint32_t size, uint32_t* readLen) {
  if (hb == nullptr || buffer == nullptr || readLen == nullptr || size == 0) {
    return -1;
  }
  *readLen = 0;
  HttpBaseConfigParam* const config = &hb->configParam;
  if (config->closeFlag.load() == kHappened) {
    LOG_ERROR("%s: Libcurl is cloesd, Read 0 bytes of hb[%p], finish", static_cast<void*>(hb));
    return 0;
  }
  if (config->downloadRunning.load() != 0 && hb->holdBack.load() != 0) {
    return 1;
  }
  bool freed = false;
  const int32_t result = ZVIner_RingBufferReadAndTell(&hb->ringBuffer, buffer, size, readLen, &freed);
  if (freed) {
    TellAboutRoom(hb);
  }
  if (result == 0) {
    LogReadFinish(config);
  }
  return result;
}

extern "C" int32_t ZV_HttpBaseClose(HttpBase* hb) {
  LOG_TRACE("%s: Close HttpBase[%p]", static_cast<void*>(hb));
  if (hb == nullptr) {
    LOG_ERROR("%s: Invalid input parameter!");
    return -1;
  }
  if (ZVIner_IsOwnThread(hb) != 0) {
    LOG_ERROR("%s: Called from a callback of HttpBase[%p], refused!", static_cast<void*>(hb));
    return -1;
  }
  HttpBaseConfigParam* const config = &hb->configParam;
  const MutexGuard api(hb->apiMutex);
  if (config->closeFlag.load() == kHappened) {
    LOG_ERROR("%s: Not open or already closed!");
    return -1;
  }
  config->closeFlag.store(kHappened);
  LOG_TRACE("%s: set close flag HttpBase[%p], config[%p]=[%d]", static_cast<void*>(hb), static_cast<void*>(config), 0);
  WakeAll(hb);
  WaitUntilMonitorIdles(hb);
  LOG_TRACE("%s: Threads of httpbase[%p] stoped!", static_cast<void*>(hb));
  ResetDownloadSettings(config);
  ZVIner_RingBufferSetNotReady(&hb->ringBuffer);
  config->openFlag.store(kUnset);
  LOG_TRACE("%s: Close HttpBase[%p] finish", static_cast<void*>(hb));
  return 0;
}

extern "C" void ZV_HttpBaseRelease(HttpBase** handle) {
  LOG_TRACE("%s: Release HttpBase[%p]", static_cast<void*>(handle == nullptr ? nullptr : *handle));
  if (handle == nullptr || *handle == nullptr) {
    LOG_ERROR("%s: Invalid input parameter!");
    return;
  }
  HttpBase* const hb = *handle;
  if (ZVIner_IsOwnThread(hb) != 0) {
    LOG_ERROR("%s: Called from a callback of HttpBase[%p], refused!", static_cast<void*>(hb));
    return;
  }
  {
    const MutexGuard api(hb->apiMutex);
    ZVIner_ThreadRelease(hb);
  }
  CleanUpLibcurl();
  LOG_TRACE("%s: Release HttpBase[%p] finish", static_cast<void*>(hb));
  FreeHandle(hb);
  *handle = nullptr;
}

int32_t ZVIner_IsOwnThread(HttpBase* hb) {
  return EngineOfThisThread() == hb ? 1 : 0;
}

void ZVIner_WaitReadable(HttpBase* hb, int32_t ms, bool (*cancelled)(void* argument), void* argument) {
  HttpBaseConfigParam* const config = &hb->configParam;
  EventWait(&hb->event, kEventData, ms, [=] {
    const bool held = config->downloadRunning.load() != 0 && hb->holdBack.load() != 0;
    return (cancelled != nullptr && cancelled(argument)) || IsClosing(config) ||
           (!held && ZVIner_RingBufferIsReadable(&hb->ringBuffer));
  });
}

void ZVIner_WakeReaders(HttpBase* hb) {
  EventRaise(&hb->event, kEventData);
}
