// What libcurl tells a transfer: header lines, body blocks, progress. All run on the service thread that owns the libcurl
// handle, which holds its record's cond; the settings' mutex and the ring buffer's are taken and given back inside. The
// player's callback is called with neither.
#include <algorithm>
#include <cstring>

#include "ZVHttpBase/Engine.h"

namespace {

constexpr size_t kLoggedLineBytes = 1024;
// More than any server needs; a header without an end must not keep a transfer busy for ever.
constexpr int64_t kMostHeaderBytes = 1048576;

constexpr int64_t kStatusOk = 200;
constexpr int64_t kStatusPartial = 206;
constexpr int64_t kStatusGone = 410;
constexpr int64_t kStatusRangeNotSatisfiable = 416;

bool IsGood(int64_t status) {
  return status == kStatusOk || status == kStatusPartial;
}

void LogHeaderLine(std::string_view line) {
  char text[kLoggedLineBytes];
  const size_t length = std::min(line.size(), sizeof text - 1);
  memcpy(text, line.data(), length);
  text[length] = '\0';
  LOG_TRACE_AS("ZVIner_HeaderCallback", "%s, %s", text);
}

// The first key that occurs in the line gets the value; memory that runs out leaves the old one.
void CaptureKey(HttpBaseConfigParam* config, std::string_view line) {
  const MutexGuard guard(config->mutex);
  for (HttpBaseRespKey* node = config->respKeyList; node != nullptr; node = node->next) {
    const std::string_view value = FindValueOfKey(line, node->key);
    if (value.data() == nullptr) {
      continue;
    }
    char* const copy = CopyText(value.data(), value.size());
    if (copy != nullptr) {
      ZV_Free(&node->value);
      node->value = copy;
    }
    return;
  }
}

void NoteContentLength(AnswerHead* head, std::string_view value) {
  const int64_t length = ParseLength(value);
  head->contradictory = head->contradictory || (head->contentLength >= 0 && length != head->contentLength);
  head->contentLength = length;
}

void NoteContentRange(AnswerHead* head, std::string_view value) {
  const ContentRange range = ParseContentRange(value);
  const bool differs =
      range.first != head->range.first || range.last != head->range.last || range.total != head->range.total;
  head->contradictory = head->contradictory || (head->hasContentRange && differs);
  head->hasContentRange = true;
  head->emptyResource = value.size() >= 3 && value.substr(value.size() - 3) == "*/0";
  head->range = range;
}

void NoteHeader(AnswerHead* head, std::string_view line) {
  const HeaderField field = SplitHeaderLine(line);
  if (EqualIgnoringCase(field.name, "Content-Length")) {
    NoteContentLength(head, field.value);
  } else if (EqualIgnoringCase(field.name, "Content-Range")) {
    NoteContentRange(head, field.value);
  } else if (EqualIgnoringCase(field.name, "Accept-Ranges")) {
    head->acceptsRanges = StartsWithIgnoringCase(field.value, "bytes");
  } else if (EqualIgnoringCase(field.name, "Content-Encoding")) {
    head->encoded = head->encoded || (!field.value.empty() && !EqualIgnoringCase(field.value, "identity"));
  } else if (EqualIgnoringCase(field.name, "Transfer-Encoding")) {
    head->chunked = true;
  } else if (EqualIgnoringCase(field.name, "Location")) {
    head->located = head->located || !field.value.empty();
  }
}

AnswerHead EmptyHead(int64_t headerBytes) {
  AnswerHead head = {};
  head.contentLength = -1;
  head.range = {-1, -1, -1};
  head.headerBytes = headerBytes;
  return head;
}

void ReportRedirect(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  const char* target = nullptr;
  if (curl_easy_getinfo(record->curl, CURLINFO_EFFECTIVE_URL, &target) != CURLE_OK || target == nullptr) {
    return;
  }
  KeepRedirectUrl(config, target);
  LOG_TRACE_AS("ZVIner_HeaderCallback", "%s: Url[%s] is redirected to url[%s]", Printable(record->url), target);
  ReportCode("ZVIner_HeaderCallback", config, ZV_HTTP_CODE_REDIRECTED);
}

// The length is published last: whoever sees it sees what it rests on.
void LearnFromRange(HttpBaseServiceThread* record, int64_t total) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  config->contentRangeSeen.store(kHappened);
  config->fileContentLength.store(total);
  ZVIner_ResizeRingBufferByContentLength(record);
  LOG_TRACE_AS("ZVIner_HeaderCallback", "%s: Thread[%d] get file contentLength:%lld of url[%s]", record->index,
               Wide(total), Printable(record->url));
}

void LearnFromAnswer(HttpBaseServiceThread* record, const AnswerFacts& facts) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  if (record->head.encoded) {
    config->contentEncoded.store(1);
  } else if (facts.rangesConfirmed) {
    config->rangeConfirmed.store(kHappened);
  }
  if (config->fileContentLength.load() > 0) {
    return;
  }
  if (facts.totalFromRange) {
    LearnFromRange(record, facts.total);
  } else {
    ZVIner_GetContentLengthAndAllocRingBuffer(record, facts.total);
  }
}

void PublishHandOver(HttpBaseServiceThread* record, HandOver handOver) ZV_REQUIRES(record->cond) {
  SettleHandOver(&record->guard, handOver);
  if (handOver == kHandOverNone) {
    record->rangeEnd = record->guard.askedEnd;  // a new attempt asks for all that this connection now owes
  }
  record->handOver.store(handOver);
  EventRaise(&record->engine->event, kEventWork);
}

bool TakeGoodAnswer(HttpBaseServiceThread* record, int64_t status) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  if (config->redirectSeen.load() == kHappened) {
    ReportRedirect(record);
  }
  record->responseCode.store(ZV_HTTP_CODE_OK);
  config->answered.store(1);
  if (record->reportedStatus != 0) {
    config->failed.store(0);  // the error before this answer delivered nothing
  }
  const bool askedWithoutRange = record->guard.withoutRange;
  AnswerFacts facts;
  const Verdict verdict = JudgeAnswer(&record->guard, record->head, status, config->fileContentLength.load(), &facts);
  if (verdict != kAnswerFits) {
    record->attemptEnd = verdict == kAnswerAskAgain && !askedWithoutRange ? kAttemptMore : kAttemptRetry;
    return false;
  }
  LearnFromAnswer(record, facts);
  if (facts.handOver != kHandOverUndecided) {
    PublishHandOver(record, facts.handOver);
  }
  return record->attemptEnd == kAttemptOpen;
}

// Where nobody told the length, a 416 for what lies behind the bytes already there is the way to find the end.
bool IsEndOfResource(const HttpBaseServiceThread* record, int64_t status) ZV_REQUIRES(record->cond) {
  const HttpBaseConfigParam* const config = record->configParam;
  return status == kStatusRangeNotSatisfiable && config->answered.load() != 0 &&
         config->fileContentLength.load() <= 0 &&
         NextPosition(record->guard) > std::max<int64_t>(record->engine->plan.rangeStart, 0);
}

// The first range is the engine's own idea: a resource of which the server says that it has no byte is no error.
bool IsEmptyResource(const HttpBaseServiceThread* record, int64_t status) ZV_REQUIRES(record->cond) {
  return status == kStatusRangeNotSatisfiable && record->head.emptyResource && record->guard.kind == kTaskExplore &&
         record->engine->plan.rangeStart < 0;
}

// The body of an error is delivered only when it is the first answer of the download: elsewhere it would stand in the
// middle of the media.
bool TakeErrorAnswer(HttpBaseServiceThread* record, int64_t status) ZV_REQUIRES(record->cond) {
  HttpBaseConfigParam* const config = record->configParam;
  if (IsEndOfResource(record, status)) {
    record->endFound.store(1);
    record->attemptEnd = kAttemptComplete;
    return false;
  }
  if (IsEmptyResource(record, status)) {
    config->answered.store(1);
    config->fileContentLength.store(0);
    record->responseCode.store(ZV_HTTP_CODE_OK);
    record->attemptEnd = kAttemptComplete;
    return false;
  }
  const bool first = config->answered.exchange(1) == 0;
  int32_t code = status == kStatusGone ? ZV_HTTP_CODE_UNREACHABLE : static_cast<int32_t>(status);
  if (code == ZV_HTTP_CODE_REDIRECTED && record->engine->plan.strict) {
    code = ZV_HTTP_CODE_FAILED;  // the caches take 302 for a redirect that was followed
  }
  record->responseCode.store(code);
  if (record->reportedStatus != code) {
    record->reportedStatus = code;
    ReportCode("ZVIner_HeaderCallback", config, code);
  }
  if (!first) {
    record->attemptEnd = record->guard.kind == kTaskWhole ? kAttemptRetry : kAttemptGiveUp;
    return false;
  }
  config->failed.store(1);
  record->guard.wholeBody = true;
  if (record->guard.kind == kTaskExplore) {
    PublishHandOver(record, kHandOverNone);
  }
  return true;
}

// The header is complete. False ends the attempt.
bool TakeAnswer(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  long status = 0;
  if (curl_easy_getinfo(record->curl, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status < kStatusOk) {
    return true;  // an interim answer: the real one is still to come
  }
  if (status >= 300 && status < 400 && record->head.located) {
    record->configParam->redirectSeen.store(kHappened);
    return true;
  }
  record->answerStatus = static_cast<int32_t>(status);
  return IsGood(status) ? TakeGoodAnswer(record, status) : TakeErrorAnswer(record, status);
}

void NoteFirstBodyBytes(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  const HttpBaseConfigParam* const config = record->configParam;
  record->bodyStarted = true;
  if (config->singleConnection.load() == kHappened && config->rangeConfirmed.load() == kUnset) {
    LOG_ERROR_AS(
        "ZVIner_StreamCallback",
        "%s: Thread[%d] found that server not support Range of url[%s], we will use one connection to finish this download task.",
        record->index, Printable(record->url));
  }
}

enum PushEnd { kPushed, kPushPaused, kPushFailed };

void Pause(HttpBaseServiceThread* record, uint32_t count) ZV_REQUIRES(record->cond) {
  // A paused transfer must not be aborted as too slow.
  curl_easy_setopt(record->curl, CURLOPT_LOW_SPEED_LIMIT, 0L);
  LOG_TRACE_AS("ZVIner_StreamCallback", "%s: set stream pause");
  record->pausedBytes = count;
  record->notPaused.store(0);
}

PushEnd PushBody(HttpBaseServiceThread* record, const char* bytes, uint32_t count) ZV_REQUIRES(record->cond) {
  RingBuffer* const rb = record->ringBuffer;
  for (;;) {
    bool busy = false;
    int32_t* const idx = &record->buffWriteSegmentIdx;
    if (ZVIner_RingBufferPushAndTell(rb, *idx, idx, bytes, count, &busy) == kRingOk) {
      return kPushed;
    }
    if (!busy) {
      return kPushFailed;
    }
    if (!record->engine->plan.whole) {
      Pause(record, count);
      return kPushPaused;
    }
    // Nobody reads a whole-resource download before its end: more memory or failure.
    if (ZVIner_RingBufferGrow(rb, idx) != kRingOk) {
      ZVIner_RingBufferDrop(rb);
      return kPushFailed;
    }
  }
}

void CountBytes(HttpBaseServiceThread* record, uint32_t count) ZV_REQUIRES(record->cond) {
  record->guard.delivered += count;
  record->received += count;
  record->configParam->downloadedBytes.fetch_add(count);
  EventRaise(&record->engine->event, kEventData);
}

}  // namespace

void ReportOkOnce(HttpBaseServiceThread* record) {
  HttpBaseConfigParam* const config = record->configParam;
  if (record->responseCode.load() == ZV_HTTP_CODE_OK && config->okCodePending.exchange(kHappened) == kUnset) {
    ReportCode("ZVIner_StreamCallback", config, ZV_HTTP_CODE_OK);
  }
}

size_t ZVIner_HeaderCallback(char* line, size_t size, size_t nitems, void* userData) {
  HttpBaseServiceThread* const record = static_cast<HttpBaseServiceThread*>(userData);
  AssertHeld(record->cond);
  const std::string_view text(line, size * nitems);
  LogHeaderLine(text);
  CaptureKey(record->configParam, text);
  record->head.headerBytes += static_cast<int64_t>(text.size());
  if (record->head.headerBytes > kMostHeaderBytes) {
    record->attemptEnd = kAttemptRetry;
    return 0;
  }
  if (record->bodyStarted) {
    return text.size();  // a trailer tells nothing about the body before it
  }
  if (IsStatusLine(text)) {
    record->head = EmptyHead(record->head.headerBytes);
  } else if (IsEndOfHeader(text) && !record->head.ended) {
    record->head.ended = true;
    return TakeAnswer(record) ? text.size() : 0;
  } else if (!record->head.ended) {
    NoteHeader(&record->head, text);
  }
  return text.size();
}

size_t ZVIner_StreamCallback(char* bytes, size_t size, size_t nmemb, void* userData) {
  HttpBaseServiceThread* const record = static_cast<HttpBaseServiceThread*>(userData);
  AssertHeld(record->cond);
  const size_t len = size * nmemb;
  if (len == 0 || IsStopped(record)) {
    return len;  // dropped; the transfer is about to be ended
  }
  if (record->answerStatus == 0) {
    record->attemptEnd = kAttemptRetry;  // a body that belongs to no answer
    return 0;
  }
  if (!record->bodyStarted) {
    NoteFirstBodyBytes(record);
  }
  ReportOkOnce(record);
  const size_t skipped = static_cast<size_t>(std::min<int64_t>(record->guard.skip, static_cast<int64_t>(len)));
  const int64_t wanted = std::min<int64_t>(static_cast<int64_t>(len - skipped), BytesAllowed(record->guard));
  const uint32_t count = static_cast<uint32_t>(wanted);
  if (count > 0) {
    const PushEnd end = PushBody(record, bytes + skipped, count);
    if (end == kPushPaused) {
      return CURL_WRITEFUNC_PAUSE;
    }
    if (end == kPushFailed) {
      record->attemptEnd = kAttemptGiveUp;
      return 0;
    }
    CountBytes(record, count);
  }
  record->guard.skip -= static_cast<int64_t>(skipped);
  if (skipped + count < len) {
    // What follows lies behind the end, of the task or of what this answer said that it brings.
    record->attemptEnd = IsComplete(record->guard) ? kAttemptComplete : kAttemptMore;
    return 0;
  }
  return len;
}

int ZVIner_ProgressCallback(void* userData, double, double, double, double) {
  HttpBaseServiceThread* const record = static_cast<HttpBaseServiceThread*>(userData);
  AssertHeld(record->cond);
  if (!IsStopped(record)) {
    return 0;
  }
  LOG_FAILURE("%s: Thread[%d] get signal to stop downloading, url=%s, return", record->index, Printable(record->url));
  return -1;
}

void ZVIner_GetContentLengthAndAllocRingBuffer(HttpBaseServiceThread* record, int64_t total) {
  LOG_TRACE("%s: Get file contentLength:%f of url[%s]", static_cast<double>(total), Printable(record->url));
  record->configParam->fileContentLength.store(total > 0 ? total : 0);
  ZVIner_ResizeRingBufferByContentLength(record);
}

void ZVIner_ResizeRingBufferByContentLength(HttpBaseServiceThread* record) {
  const DownloadPlan& plan = record->engine->plan;
  const int64_t length = record->configParam->fileContentLength.load();
  if (record->responseCode.load() != ZV_HTTP_CODE_OK || !plan.whole || length <= 0) {
    return;
  }
  const int64_t target = (length / plan.segLen + 1) * plan.segLen;
  if (target > kWholeResourceMaxBytes) {
    record->attemptEnd = kAttemptGiveUp;
    return;
  }
  if (target > kRingBytes) {
    if (ZVIner_RingBufferReInit(record->ringBuffer, static_cast<int32_t>(target), plan.segLen) != kRingOk) {
      record->attemptEnd = kAttemptGiveUp;
      return;
    }
    ZVIner_RingBufferClaim(record->ringBuffer, record->buffWriteSegmentIdx);
  }
  ZVIner_RingBufferSetWholeContent(record->ringBuffer, true);
}
