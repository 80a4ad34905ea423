// One attempt of a transfer, on the service thread's private multi handle.
//
// Only this thread touches the libcurl handles. Whoever wants its attention (a reader that freed a fragment, Close,
// Release, the distribution) sets a word and calls curl_multi_wakeup, which is remembered if the thread is not waiting
// yet. So a transfer stops and resumes at once, and a resume cannot fall between "refused" and "paused".
#include <algorithm>
#include <limits>

#include "ZVHttpBase/Engine.h"

namespace {

constexpr int kPollMs = 1000;
// Nothing but a wake-up ends a pause, however long it takes: until then the thread rests.
constexpr int kPausedPollMs = std::numeric_limits<int>::max();
// How long a transfer that has all its bytes may take to end cleanly, so that its connection can be used again.
constexpr int64_t kEndingMs = 50;

bool CanResume(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  return IsPaused(record) &&
         ZVIner_RingBufferHasRoom(record->ringBuffer, record->buffWriteSegmentIdx, record->pausedBytes);
}

bool HasEverything(const HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  return record->responseCode.load() == ZV_HTTP_CODE_OK && record->bodyStarted && IsComplete(record->guard);
}

// True when libcurl says that the transfer has ended; *rc is its result.
bool TakeResult(CURLM* multi, CURLcode* rc) {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi, &left)) {
    if (message->msg == CURLMSG_DONE) {
      *rc = message->data.result;
      return true;
    }
  }
  return false;
}

// Lets a paused transfer go on, delivering the refused block first. A result other than CURLE_OK is the transfer's.
CURLcode Resume(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond) {
  record->notPaused.store(kUnset);
  return curl_easy_pause(record->curl, CURLPAUSE_CONT);
}

CURLcode Pump(HttpBaseServiceThread* record, CURLM* multi) ZV_REQUIRES(record->cond) {
  int64_t completeSince = -1;
  for (;;) {
    if (ZVIner_ProgressCallback(record, 0, 0, 0, 0) != 0) {
      return CURLE_ABORTED_BY_CALLBACK;
    }
    const bool resumed = CanResume(record);
    if (resumed) {
      const CURLcode rc = Resume(record);
      if (rc != CURLE_OK) {
        return rc;
      }
    }
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK) {
      return CURLE_OUT_OF_MEMORY;
    }
    if (resumed && !IsPaused(record)) {
      // Only now: the pass above made libcurl forget how slow the transfer was before and during the pause.
      curl_easy_setopt(record->curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    }
    CURLcode rc = CURLE_OK;
    if (TakeResult(multi, &rc)) {
      return rc;
    }
    if (CanResume(record)) {
      continue;
    }
    int waitMs = IsPaused(record) ? kPausedPollMs : kPollMs;
    if (HasEverything(record)) {
      const int64_t now = ZV_ChronoGetTick();
      completeSince = completeSince < 0 ? now : completeSince;
      if (now - completeSince >= kEndingMs) {
        return CURLE_OK;
      }
      waitMs = static_cast<int>(kEndingMs);
    }
    curl_multi_poll(multi, nullptr, 0, waitMs, nullptr);
  }
}

}  // namespace

CURLcode RunTransfer(HttpBaseServiceThread* record) {
  CURLM* const multi = record->multi.load();
  if (curl_multi_add_handle(multi, record->curl) != CURLM_OK) {
    return CURLE_OUT_OF_MEMORY;
  }
  const CURLcode rc = Pump(record, multi);
  curl_multi_remove_handle(multi, record->curl);
  return rc;
}
