// The body of one download, on the monitor thread, which holds monitorCond throughout. It takes a service thread's cond
// only while that thread is idle: to give it a task or to see where it stopped. It never waits for a transfer in any other
// way than on the engine's event, and does not return while a service thread still works on the download.
#include <algorithm>

#include "ZVHttpBase/Engine.h"

namespace {

constexpr char kHttp[] = "http://";
constexpr char kHttps[] = "https://";

bool HasHttpScheme(const char* url) {
  return url != nullptr &&
         (ZV_Strnicmp(url, kHttp, sizeof kHttp - 1) == 0 || ZV_Strnicmp(url, kHttps, sizeof kHttps - 1) == 0);
}

// What shapes the download is taken once: later calls of the setters belong to the next one.
void TakePlan(HttpBase* hb) {
  HttpBaseConfigParam* const config = &hb->configParam;
  const MutexGuard guard(config->mutex);
  hb->plan.url = config->url == nullptr ? nullptr : CopyText(config->url);
  hb->plan.rangeStart = std::min(config->rangeStart, kMostContentBytes - 1);
  hb->plan.rangeEnd = config->rangeEnd >= kMostContentBytes ? -1 : config->rangeEnd;
  if (hb->plan.rangeEnd >= 0 && hb->plan.rangeStart > hb->plan.rangeEnd) {
    hb->plan.rangeStart = -1;  // a start behind the end asks for everything
    hb->plan.rangeEnd = -1;
  }
  hb->plan.threadNum = hb->threadNum.load();
  hb->plan.segLen = config->downloadSegLen;
  hb->plan.whole = config->needDownloadComplete == 0;
  hb->plan.strict = config->strictRange != 0;
  hb->holdBack.store(hb->plan.whole ? 1 : 0);
}

// Nothing of an earlier download may count for this one.
void ForgetEarlierDownload(HttpBase* hb) {
  HttpBaseConfigParam* const config = &hb->configParam;
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    record.performResult.store(kPerformNever);
  }
  config->okCodePending.store(kUnset);
  config->rangeConfirmed.store(kUnset);
  config->downloadedBytes.store(0);
  config->answered.store(0);
  config->contentEncoded.store(0);
  config->failed.store(0);
}

// Every way out leaves the ring buffer readable, with what arrived or nothing, so that a reader finds the end.
void FinishDistribution(HttpBase* hb) {
  hb->configParam.downSpeed.store(CurrentDownSpeed(&hb->configParam));
  ZVIner_RingBufferEndWriting(&hb->ringBuffer);
  hb->configParam.downloadRunning.store(0);
  ZV_Free(&hb->plan.url);
  EventRaise(&hb->event, kEventData);
}

int32_t RefuseUrl(HttpBase* hb) {
  LOG_FAILURE_AS("ZVIner_ServiceDistribution", "%s: Invalid url:%s", Printable(hb->plan.url));
  hb->configParam.failed.store(1);
  if (hb->configParam.releaseFlag.load() != kHappened) {
    CallBack(&hb->configParam, ZV_HTTP_CODE_FAILED);
  }
  return -1;
}

bool AnyStarting(const HttpBase* hb) {
  for (const HttpBaseServiceThread& record : hb->serviceThread) {
    if (record.alive.load() == kLifeStarting) {
      return true;
    }
  }
  return false;
}

}  // namespace

HttpBaseServiceThread* FindIdleThread(HttpBase* hb) {
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    if (record.alive.load() == kLifeStarting) {
      return nullptr;  // worth waiting for: always the same threads keep their connections for the next download
    }
    const int32_t result = record.performResult.load();
    if (IsIdle(&record) && result != kPerformFailed && result != kPerformUnreachable) {
      return &record;
    }
  }
  return nullptr;
}

HttpBaseServiceThread* ChooseIdleThread(HttpBase* hb) {
  EventWait(&hb->event, kEventWork, kWaitForEver,
            [hb] { return IsClosing(&hb->configParam) || FindIdleThread(hb) != nullptr || !AnyStarting(hb); });
  return IsClosing(&hb->configParam) ? nullptr : FindIdleThread(hb);
}

bool GiveTask(HttpBaseServiceThread* record, const TaskSpec& spec) {
  const ConditionGuard guard(record->cond);
  record->taskStart.store(spec.start);
  // The thread may have seen a release and left between being chosen and this lock.
  if (record->alive.load() != kLifeAlive || !ReplaceText(&record->url, spec.url)) {
    return false;
  }
  record->rangeStart = spec.start;
  record->rangeEnd = spec.end;
  record->received = 0;
  record->buffWriteSegmentIdx = spec.fragmentIdx;
  record->guard = MakeRangeGuard(spec.kind, spec.asItComes, spec.start, spec.end, spec.wholeLast);
  record->reportedStatus = 0;
  // Now, not when the thread gets to it: an untouched fragment looks free, and would be given to another range.
  ZVIner_RingBufferClaim(record->ringBuffer, spec.fragmentIdx);
  record->stopTask.store(0);
  record->endFound.store(0);
  record->handOver.store(kHandOverUndecided);
  record->performResult.store(kPerformRunning);
  ZV_ConditionSignal(record->cond);
  return true;
}

void WaitWhileRunning(HttpBase* hb, HttpBaseServiceThread* record) {
  EventWait(&hb->event, kEventWork, kWaitForEver, [record] { return !IsAtWork(record); });
}

void EndDownloadNormally(HttpBase* hb, HttpBaseServiceThread* lastWriter) {
  int32_t fragmentIdx = 0;
  {
    const ConditionGuard guard(lastWriter->cond);
    fragmentIdx = lastWriter->buffWriteSegmentIdx;
  }
  ZVIner_RingBufferComplete(&hb->ringBuffer, fragmentIdx);
  hb->configParam.downSpeed.store(CurrentDownSpeed(&hb->configParam));
}

int32_t CodeOf(const HttpBaseServiceThread* record) {
  switch (record->performResult.load()) {
    case kPerformFailed:
      return ZV_HTTP_CODE_FAILED;
    case kPerformUnreachable:
      return ZV_HTTP_CODE_UNREACHABLE;
    default:
      return ZV_HTTP_CODE_OK;
  }
}

void ReportFailure(const char* name, HttpBase* hb, int32_t code) {
  hb->configParam.failed.store(1);
  ReportCode(name, &hb->configParam, code);
}

int32_t ZVIner_ServiceDistribution(HttpBase* hb) {
  TakePlan(hb);
  const ScopeGuard finish([hb] { FinishDistribution(hb); });
  ForgetEarlierDownload(hb);
  const DownloadPlan& plan = hb->plan;
  if (!HasHttpScheme(plan.url)) {
    return RefuseUrl(hb);
  }
  if (ZVIner_RingBufferReInit(&hb->ringBuffer, kRingBytes, plan.segLen) != kRingOk) {
    LOG_FAILURE("%s: Calloc memery for ringBuffer fail!");
    return RefuseUrl(hb);
  }
  ZVIner_RingBufferSetWholeContent(&hb->ringBuffer, false);
  hb->configParam.startTick.store(ZV_ChronoGetTick());
  // The last n bytes cannot be cut into ranges before their position is known.
  const bool lastBytes = plan.rangeStart < 0 && plan.rangeEnd >= 0;
  if (plan.threadNum > 1 && !plan.whole && !lastBytes) {
    hb->configParam.singleConnection.store(kHappened);
    return ZVIner_MultipleServiceThreadDistribution(hb);
  }
  hb->configParam.singleConnection.store(kUnset);
  return ZVIner_SingleServiceThreadDistribution(hb);
}

int32_t ZVIner_SingleServiceThreadDistribution(HttpBase* hb) {
  const DownloadPlan& plan = hb->plan;
  HttpBaseServiceThread* const record = ChooseIdleThread(hb);
  const TaskSpec spec = {
      plan.whole ? kTaskWhole : kTaskRange, !plan.strict, plan.rangeStart, plan.rangeEnd, -1, 0, plan.url};
  if (record == nullptr || !GiveTask(record, spec)) {
    ReportFailure(__func__, hb, ZV_HTTP_CODE_FAILED);
    return 0;
  }
  LOG_TRACE("%s: Notify thread %u to download url:%s", static_cast<unsigned>(record->index), plan.url);
  WaitWhileRunning(hb, record);
  EndDownloadNormally(hb, record);
  const int32_t code = CodeOf(record);
  if (code != ZV_HTTP_CODE_OK) {
    ReportFailure(__func__, hb, code);
  }
  LOG_TRACE("%s: Single thread download[%s] finish.", plan.url);
  return 0;
}
