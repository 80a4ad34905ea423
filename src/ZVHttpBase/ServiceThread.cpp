// A service thread: waits for a task, performs it with its retries, records the result. It holds its record's cond
// whenever it does not wait for a task.
#include <algorithm>

#include "ZVHttpBase/Engine.h"

namespace {

constexpr int32_t kRetryExhausted = 20;
constexpr int32_t kAskAgainFrom = 3000;
constexpr int64_t kRetryStepMs = 100;

bool IsGoodAnswer(const HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  return record->responseCode.load() == ZV_HTTP_CODE_OK;
}

void BeginAttempt(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  record->notPaused.store(kUnset);
  record->responseCode.store(0);
  record->answerStatus = 0;
  record->bodyStarted = false;
  record->attemptEnd = kAttemptOpen;
  if (record->guard.delivered == 0) {
    RestartGuard(&record->guard);
  }
  record->guard.skip = 0;
  record->guard.answerEnd = -1;
  record->head = AnswerHead{};
  record->head.contentLength = -1;
  record->head.range = {-1, -1, -1};
}

// A good answer that libcurl took for complete: is it, and what does a shorter one mean?
AttemptEnd JudgeGoodEnd(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  if (!AnswerKept(record->guard)) {
    return kAttemptRetry;
  }
  if (record->guard.last < 0) {
    return kAttemptComplete;  // as far as the answer went
  }
  const bool lengthUnknown = record->configParam->fileContentLength.load() <= 0;
  if ((record->head.encoded || record->answerStatus == 200) && lengthUnknown) {
    record->endFound.store(1);  // everything there is, and it was less than asked for
    return kAttemptComplete;
  }
  return record->answerStatus == 206 && record->received > 0 ? kAttemptMore : kAttemptRetry;
}

AttemptEnd JudgeAttempt(HttpBaseServiceThread* record, CURLcode rc) ZV_REQUIRES(record->cond) {
  if (IsStopped(record)) {
    return kAttemptStopped;
  }
  if (record->attemptEnd != kAttemptOpen) {
    return static_cast<AttemptEnd>(record->attemptEnd);
  }
  if (IsGoodAnswer(record) && IsComplete(record->guard)) {
    return kAttemptComplete;
  }
  if (rc != CURLE_OK || record->answerStatus == 0) {
    // What follows the piece of an error's body would be something else.
    return record->guard.wholeBody && record->guard.delivered > 0 && record->guard.kind != kTaskWhole ? kAttemptGiveUp
                                                                                                      : kAttemptRetry;
  }
  return IsGoodAnswer(record) ? JudgeGoodEnd(record) : kAttemptComplete;
}

// Whether a failed transfer gets another attempt: as often as the player allows, then as long as the retry callback asks.
bool WantsAnotherAttempt(HttpBaseServiceThread* record, uint32_t attempts, CURLcode rc) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  HttpBaseRetryCallback ask = nullptr;
  uint32_t allowed = 0;
  {
    const MutexGuard guard(config->mutex);
    ask = config->retryMsgCallBack;
    allowed = static_cast<uint32_t>(config->retryTimes);  // a negative count never runs out
  }
  if (attempts <= allowed) {
    return true;
  }
  LOG_TRACE_AS("ZVIner_ServicePerform", "%s: Thread[%d] exceed retry time of downloading %s, perform code=%d",
               record->index, Printable(record->url), static_cast<int>(rc));
  record->attemptsExhausted = true;
  config->retryExhausted.store(kRetryExhausted);
  if (ask == nullptr || record->retryAsked) {
    return false;
  }
  int32_t value = 0;
  ask(config->cbUserData, &value, 0);
  if (value < kAskAgainFrom) {
    record->retryAsked = true;
    config->retryCallbackUsed.store(1);
  }
  return true;
}

// False when the handle is closed or the task is no longer wanted.
bool PauseBeforeRetry(HttpBaseServiceThread* record, int64_t ms) ZV_REQUIRES(record->cond) {
  return !EventWait(&record->engine->event, kEventStop, ms, [record] { return IsStopped(record); });
}

int64_t RetryPauseMs(HttpBaseConfigParam* config) {
  const MutexGuard guard(config->mutex);
  const bool usable = config->retryDelay >= 0 && config->retryDelay != INT32_MAX;
  const int64_t delay = usable ? config->retryDelay : kDefaultRetryDelayMs;
  return std::min<int64_t>((delay / kRetryStepMs + 1) * kRetryStepMs, kWaitForEver - 1);
}

// The next request begins at the first byte that is missing.
void ResumeRange(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  if (record->guard.lastBytes) {
    record->rangeEnd = BytesOwed(record->guard);
  } else if (record->guard.delivered > 0 && !record->guard.fromStart) {
    record->rangeStart = NextPosition(record->guard);
    record->rangeEnd = record->guard.last;
  }
  record->received = 0;
}

void RestartWhole(HttpBaseServiceThread* record, int32_t firstFragment) ZV_REQUIRES(record->cond) {
  ZVIner_RingBufferDrop(record->ringBuffer);
  ZVIner_RingBufferClaim(record->ringBuffer, firstFragment);
  record->configParam->fileContentLength.store(-1);
  record->buffWriteSegmentIdx = firstFragment;
  record->received = 0;
  record->guard = MakeRangeGuard(kTaskWhole, false, -1, -1, -1);
}

bool PrepareRetry(HttpBaseServiceThread* record, int32_t firstFragment) ZV_REQUIRES(record->cond) {
  if (record->guard.kind == kTaskWhole) {
    RestartWhole(record, firstFragment);
    return !record->attemptsExhausted || PauseBeforeRetry(record, kRetryStepMs);
  }
  ResumeRange(record);
  return PauseBeforeRetry(record, RetryPauseMs(record->configParam));
}

AttemptEnd RunAttempts(HttpBaseServiceThread* record, CURLcode* rc) ZV_REQUIRES(record->cond) {
  const int32_t firstFragment = record->buffWriteSegmentIdx;
  uint32_t attempts = 0;
  for (;;) {
    BeginAttempt(record);
    *rc = ZVIner_SetServiceThreadOpt(record) == 0 ? RunTransfer(record) : CURLE_OUT_OF_MEMORY;
    const AttemptEnd end = JudgeAttempt(record, *rc);
    if (end == kAttemptMore) {
      ResumeRange(record);
      continue;
    }
    if (end != kAttemptRetry || !WantsAnotherAttempt(record, ++attempts, *rc)) {
      return end;
    }
    if (!PrepareRetry(record, firstFragment)) {
      return kAttemptStopped;
    }
  }
}

void PerformTask(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  LOG_TRACE_AS("ZVIner_ServiceThreadFunc", "%s: Thread[%d] is to perform range[%lld-%lld], url:%s", record->index,
               Wide(record->rangeStart), Wide(record->rangeEnd), Printable(record->url));
  ZVIner_ServicePerform(record);
  LOG_TRACE_AS("ZVIner_ServiceThreadFunc", "%s: Thread[%d] perform result:%u, range[%lld-%lld], url:%s", record->index,
               static_cast<unsigned>(record->performResult.load()), Wide(record->rangeStart), Wide(record->rangeEnd),
               Printable(record->url));
}

// Waits for a task; false when the handle is released instead.
bool WaitForTask(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  record->received = 0;
  record->threadBusy.store(0);
  record->alive.store(kLifeAlive);
  EventRaise(&record->engine->event, kEventWork);
  while (record->performResult.load() != kPerformRunning && record->configParam->releaseFlag.load() != kHappened) {
    ZV_ConditionWait(record->cond);
  }
  if (record->configParam->releaseFlag.load() == kHappened) {
    return false;
  }
  record->notPaused.store(kUnset);
  record->threadBusy.store(-1);
  return true;
}

// The thread is about to end: nobody may wait for it any more.
void LeaveService(HttpBaseServiceThread* record) {
  record->performResult.store(kPerformDone);
  record->alive.store(kLifeDead);
  EventRaise(&record->engine->event, kEventWork);
}

bool MakeLibcurlHandles(HttpBaseServiceThread* record) {
  record->curl = curl_easy_init();
  if (record->curl == nullptr) {
    return false;
  }
  record->multi.store(curl_multi_init());
  return record->multi.load() != nullptr;
}

}  // namespace

void CallBack(HttpBaseConfigParam* config, int32_t code) {
  config->cb(config->cbUserData, code);
}

void ReportCode(const char* name, HttpBaseConfigParam* config, int32_t code) {
  if (!IsClosing(config)) {
    LOG_TRACE_AS(name, "%s: Response code callback, code=%d", code);
    CallBack(config, code);
  }
}

int32_t ZVIner_ServicePerform(HttpBaseServiceThread* record) {
  record->attemptsExhausted = false;
  record->retryAsked = false;
  CURLcode rc = CURLE_OK;
  const AttemptEnd end = RunAttempts(record, &rc);
  record->configParam->retryExhausted.store(kUnset);
  record->configParam->retryCallbackUsed.store(0);
  curl_easy_setopt(record->curl, CURLOPT_HTTPHEADER, nullptr);
  curl_slist_free_all(record->headers);
  record->headers = nullptr;
  if (end == kAttemptComplete) {
    ReportOkOnce(record);  // an empty body has not done it
  }
  if (end == kAttemptComplete || IsStopped(record)) {
    record->performResult.store(kPerformDone);
    return 0;
  }
  const bool unreachable = rc == CURLE_OPERATION_TIMEDOUT || rc == CURLE_COULDNT_CONNECT;
  record->performResult.store(unreachable ? kPerformUnreachable : kPerformFailed);
  return -1;
}

int32_t ZVIner_ServiceThreadFunc(void* argument) {
  HttpBaseServiceThread* const record = static_cast<HttpBaseServiceThread*>(argument);
  EnterEngineThread(record->engine);
  if (!MakeLibcurlHandles(record)) {
    LOG_TRACE("%s: Curl handle init fail.");
    record->alive.store(kLifeDead);
    EventRaise(&record->engine->event, kEventWork);
    return -1;
  }
  const ConditionGuard guard(record->cond);
  while (WaitForTask(record)) {
    if (record->configParam->closeFlag.load() == kHappened) {
      record->performResult.store(kPerformDone);
    } else {
      PerformTask(record);
    }
  }
  LeaveService(record);
  return 0;
}
