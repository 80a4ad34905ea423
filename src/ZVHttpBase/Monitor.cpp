// The monitor thread: waits for Open, runs the distribution of the download, waits again. It holds monitorCond whenever it
// does not wait.
#include "ZVHttpBase/Engine.h"

namespace {

void WaitForDownload(HttpBase* hb) ZV_REQUIRES(hb->monitorCond) {
  hb->monitorBusy.store(0);
  EventRaise(&hb->event, kEventIdle);
  while (hb->monitorTask == 0 && hb->configParam.releaseFlag.load() != kHappened) {
    ZV_ConditionWait(hb->monitorCond);
  }
}

// The URL and the range for a log line; they may change while the download runs.
void LogDownload(HttpBase* hb, bool begins) {
  HttpBaseConfigParam* const config = &hb->configParam;
  const MutexGuard guard(config->mutex);
  const char* const name = "ZVIner_MonitorThreadFunc";
  if (begins) {
    const int32_t threads = config->needDownloadComplete == 0 ? 1 : hb->threadNum.load();
    LOG_TRACE_AS(
        name,
        "%s: Monitor thread of httpbase[%p] get signal, %d threads is waiting to perform url:%s, range[%lld - %lld]...",
        static_cast<void*>(hb), threads, Printable(config->url), Wide(config->rangeStart), Wide(config->rangeEnd));
  } else {
    LOG_TRACE_AS(
        name,
        "%s: Monitor thread of httpbase[%p] finish download url:%s, range[%lld - %lld], waiting for task signal...",
        static_cast<void*>(hb), Printable(config->url), Wide(config->rangeStart), Wide(config->rangeEnd));
  }
}

void RunDownload(HttpBase* hb) ZV_REQUIRES(hb->monitorCond) {
  hb->monitorTask = 0;
  hb->monitorBusy.store(-1);
  if (hb->configParam.closeFlag.load() == kHappened) {
    LOG_TRACE_AS("ZVIner_MonitorThreadFunc", "%s: close  httpbase[%p] before download", static_cast<void*>(hb));
    hb->configParam.downloadRunning.store(0);
    return;
  }
  LogDownload(hb, true);
  ZVIner_ServiceDistribution(hb);
  LogDownload(hb, false);
}

}  // namespace

void ZVIner_NotifyServiceThreadsExit(HttpBase* hb) {
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    if (record.thread == nullptr) {
      continue;
    }
    // A thread that works holds the lock until it waits; after the distribution none does.
    const ConditionGuard guard(record.cond);
    ZV_ConditionSignal(record.cond);
  }
}

int32_t ZVIner_MonitorThreadFunc(void* handle) {
  HttpBase* const hb = static_cast<HttpBase*>(handle);
  EnterEngineThread(hb);
  {
    const ConditionGuard guard(hb->monitorCond);
    WaitForDownload(hb);
    while (hb->configParam.releaseFlag.load() != kHappened) {
      RunDownload(hb);
      WaitForDownload(hb);
    }
  }
  ZVIner_NotifyServiceThreadsExit(hb);
  return 0;
}
