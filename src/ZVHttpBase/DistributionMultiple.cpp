// A download over several connections, on the monitor thread: the first range asks the server what it can do; then ranges
// go out in byte order, each into its own fragment of the ring buffer, to whichever connection is idle.
#include <algorithm>

#include "ZVHttpBase/Engine.h"

namespace {

bool HasFailed(const HttpBaseServiceThread* record) {
  return CodeOf(record) != ZV_HTTP_CODE_OK;
}

int32_t CountFailed(const HttpBase* hb) {
  return static_cast<int32_t>(std::count_if(std::begin(hb->serviceThread), std::end(hb->serviceThread),
                                            [](const HttpBaseServiceThread& record) { return HasFailed(&record); }));
}

int32_t CountAtWork(const HttpBase* hb) {
  return static_cast<int32_t>(std::count_if(std::begin(hb->serviceThread), std::end(hb->serviceThread),
                                            [](const HttpBaseServiceThread& record) { return IsAtWork(&record); }));
}

// What lies behind a range that failed can never be delivered.
void StopBehindFirstFailure(HttpBase* hb) {
  int64_t failedAt = INT64_MAX;
  for (const HttpBaseServiceThread& record : hb->serviceThread) {
    if (HasFailed(&record)) {
      failedAt = std::min(failedAt, record.taskStart.load());
    }
  }
  for (HttpBaseServiceThread& record : hb->serviceThread) {
    if (IsAtWork(&record) && record.taskStart.load() > failedAt) {
      record.stopTask.store(1);
      WakeTransfer(&record);
    }
  }
  EventRaise(&hb->event, kEventStop);
}

// Returns when no service thread works on the download any more. Ranges before a failed one may finish.
void Drain(HttpBase* hb) {
  while (CountAtWork(hb) > 0) {
    const int32_t failures = CountFailed(hb);
    StopBehindFirstFailure(hb);
    EventWait(&hb->event, kEventWork, kWaitForEver,
              [hb, failures] { return CountAtWork(hb) == 0 || CountFailed(hb) != failures; });
  }
}

bool CanGiveRange(HttpBase* hb, int32_t connections, int32_t fragmentIdx) {
  return CountAtWork(hb) < connections && FindIdleThread(hb) != nullptr &&
         ZVIner_RingBufferTakesRange(&hb->ringBuffer, fragmentIdx);
}

// The last byte of the range that begins at start; -1 when it has no end.
int64_t EndOfRange(const HttpBase* hb, int64_t start, int64_t lastByte, int32_t segLen) {
  if (lastByte < 0) {
    return hb->plan.rangeEnd >= start ? hb->plan.rangeEnd : -1;
  }
  return lastByte - start < segLen ? lastByte : start + segLen - 1;
}

// The first connection has ended, and the download with it.
int32_t FinishWithFirst(HttpBase* hb, HttpBaseServiceThread* record) {
  WaitWhileRunning(hb, record);
  EndDownloadNormally(hb, record);
  const int32_t code = CodeOf(record);
  if (code != ZV_HTTP_CODE_OK) {
    ReportFailure("ZVIner_GetSegmentRangeByThreadExplore", hb, code);
    return -1;
  }
  hb->configParam.downloadRunning.store(0);
  return 0;
}

// The server knows ranges but has not told the length: whether there is a rest shows when the first range is there.
bool EndsWithFirst(HttpBase* hb, HttpBaseServiceThread* record) {
  WaitWhileRunning(hb, record);
  return CodeOf(record) != ZV_HTTP_CODE_OK || record->endFound.load() != 0 || IsClosing(&hb->configParam);
}

TaskSpec FirstTask(const HttpBase* hb, int32_t segLen, int64_t start, int64_t end) {
  const bool callersRange = (start >= 0 || end >= 0) && !hb->plan.strict;
  const int64_t first = std::max<int64_t>(start, 0);
  const int64_t most = first + segLen - 1;
  const int64_t last = end < 0 ? most : std::min(end, most);
  return {kTaskExplore, callersRange, first, last, end, 0, hb->plan.url};
}

}  // namespace

int32_t ZVIner_MultipleServiceThreadDistribution(HttpBase* hb) {
  const DownloadPlan& plan = hb->plan;
  int64_t nextStart = 0;
  int64_t lastByte = -1;
  if (ZVIner_GetSegmentRangeByThreadExplore(hb, plan.segLen, plan.rangeStart, plan.rangeEnd, &nextStart, &lastByte) !=
      0) {
    LOG_FAILURE("%s: Download[%s] fail!", plan.url);
    return -1;
  }
  if (hb->configParam.downloadRunning.load() == kHappened) {
    LOG_TRACE("%s: Download[%s] finish.", plan.url);
    return 0;
  }
  const char* const redirected = hb->configParam.redirectUrl.load();
  const bool redirect = hb->configParam.redirectSeen.load() == kHappened && redirected != nullptr;
  const int32_t second = 1 % ZVIner_RingBufferFragmentCount(&hb->ringBuffer);
  return ZVIner_MultipleDownloadDistribution(hb, plan.threadNum, plan.segLen, nextStart, lastByte, second,
                                             redirect ? redirected : plan.url);
}

int32_t ZVIner_GetSegmentRangeByThreadExplore(HttpBase* hb, int32_t segLen, int64_t start, int64_t end,
                                              int64_t* nextStart, int64_t* lastByte) {
  HttpBaseServiceThread* const record = ChooseIdleThread(hb);
  const TaskSpec spec = FirstTask(hb, segLen, start, end);
  if (record == nullptr || !GiveTask(record, spec)) {
    ReportFailure(__func__, hb, ZV_HTTP_CODE_FAILED);
    return -1;
  }
  EventWait(&hb->event, kEventWork, kWaitForEver,
            [record] { return record->handOver.load() != kHandOverUndecided || !IsAtWork(record); });
  const int32_t handOver = record->handOver.load();
  if (handOver == kHandOverUndecided || handOver == kHandOverNone) {
    return FinishWithFirst(hb, record);
  }
  bool inRanges = handOver == kHandOverRanges;
  if (!inRanges && hb->configParam.fileContentLength.load() <= 0) {
    if (EndsWithFirst(hb, record)) {
      return FinishWithFirst(hb, record);
    }
    inRanges = hb->configParam.fileContentLength.load() > 0;  // another attempt has told it
  }
  const int64_t total = hb->configParam.fileContentLength.load();
  *nextStart = spec.end + 1;
  *lastByte = !inRanges ? -1 : (spec.wholeLast < 0 ? total - 1 : std::min(spec.wholeLast, total - 1));
  return inRanges && *lastByte < *nextStart ? FinishWithFirst(hb, record) : 0;
}

int32_t ZVIner_MultipleDownloadDistribution(HttpBase* hb, int32_t connections, int32_t segLen, int64_t nextStart,
                                            int64_t lastByte, int32_t fragmentIdx, const char* url) {
  HttpBaseServiceThread* record = nullptr;
  for (;;) {
    EventWait(&hb->event, kEventWork, kWaitForEver, [hb, connections, fragmentIdx] {
      return IsClosing(&hb->configParam) || CountFailed(hb) > 0 || CanGiveRange(hb, connections, fragmentIdx);
    });
    if (IsClosing(&hb->configParam)) {
      return ZVIner_CheckMultipleDownload(hb, connections);
    }
    if (CountFailed(hb) > 0) {
      LOG_FAILURE("%s: Download[%s] fail!", url);
      ZVIner_CheckMultipleDownload(hb, connections);
      return -1;
    }
    record = FindIdleThread(hb);
    if (record == nullptr) {
      continue;  // it has failed since: the next look sees that
    }
    const int64_t end = EndOfRange(hb, nextStart, lastByte, segLen);
    if (!GiveTask(record, {kTaskRange, false, nextStart, end, -1, fragmentIdx, url})) {
      record->performResult.store(kPerformFailed);
      continue;
    }
    LOG_TRACE("%s: Notify thread %d to download[%s], fileContentLength=%lld, range[%lld, %lld], buffWriteSegmentIdx=%d",
              record->index, url, Wide(hb->configParam.fileContentLength.load()), Wide(nextStart), Wide(end),
              fragmentIdx);
    if (lastByte <= end || lastByte < 0) {
      break;
    }
    nextStart = end + 1;
    fragmentIdx = (fragmentIdx + 1) % ZVIner_RingBufferFragmentCount(&hb->ringBuffer);
  }
  ZVIner_CheckMultipleDownload(hb, connections);
  EndDownloadNormally(hb, record);
  hb->configParam.downloadRunning.store(0);
  LOG_TRACE("%s: Download[%s] finish.", url);
  return 0;
}

int32_t ZVIner_CheckMultipleDownload(HttpBase* hb, int32_t connections) {
  (void)connections;  // every thread is looked at: one that lives may stand in for one that does not
  Drain(hb);
  for (const HttpBaseServiceThread& record : hb->serviceThread) {
    const int32_t code = CodeOf(&record);
    if (code == ZV_HTTP_CODE_OK) {
      continue;
    }
    if (code == ZV_HTTP_CODE_FAILED) {
      LOG_ERROR("%s: Download[%s] fail!", Printable(hb->plan.url));
    }
    hb->configParam.failed.store(1);
    if (!IsClosing(&hb->configParam)) {
      LOG_TRACE("%s: serviceThread->configParam->cb code=%d", code);
      CallBack(&hb->configParam, code);
    }
    break;
  }
  return 0;
}
