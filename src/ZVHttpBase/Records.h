// The records of the downloader: the handle, its connections, its settings.
//
// Threads: the caller's (every exported function), one monitor that runs the distribution of a download, five service
// threads that each own one libcurl handle. Lock order: apiMutex, monitorCond, a service thread's cond, then one of the
// leaves: configParam.mutex, ringBuffer.mutex, event.cond. Words that one thread writes and others poll are atomics; a
// record's own words without a lock are marked with who may touch them.
#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstdint>

#include "Common/Guard.h"
#include "Common/Log.h"
#include "Common/Text.h"
#include "ZVBase.h"
#include "ZVHttpBase.h"
#include "ZVHttpBase/EngineEvent.h"
#include "ZVHttpBase/RangeGuard.h"
#include "ZVHttpBase/RingBuffer.h"

inline constexpr char kLogTag[] = "ZVLib-ZVHttpBase";
inline constexpr char kLogPath[] = "src/ZVHttpBase";

constexpr int32_t kServiceThreads = 5;
constexpr int32_t kDefaultSegLen = 512000;
constexpr int32_t kDefaultRetryTimes = 2;
constexpr int32_t kDefaultRetryDelayMs = 3000;

// Flags: -1 stands for the active or unknown value, 0 for the other; these names say which.
constexpr int32_t kUnset = -1;    // active, or nothing has happened yet
constexpr int32_t kHappened = 0;  // idle; or closed, released, seen, confirmed, reported

// performResult of a service thread.
enum PerformResult : int32_t {
  kPerformNever = -1,
  kPerformDone = 0,  // or stopped
  kPerformFailed = 1,
  kPerformUnreachable = 2,
  kPerformRunning = 3,
};

// alive of a service thread.
enum ThreadLife : int32_t { kLifeStarting = -1, kLifeDead = 0, kLifeAlive = 1 };

struct HttpBaseRespKey {
  char* key;    // owned
  char* value;  // owned, null until captured
  HttpBaseRespKey* next;
};

// A redirect URL that has been handed out may be in the caller's hands until the next Open, so none is freed before. A
// cache opens without the caller: there a number of them outlive that too. Freed by Open only, when no transfer runs.
struct RedirectUrl {
  char* url;  // owned
  RedirectUrl* older;
};

struct HttpBaseConfigParam {
  ZVMutex* mutex;
  void* cbUserData;                                             // fixed by Init
  HttpBaseMsgCallback cb;                                       // fixed by Init
  HttpBaseRetryCallback retryMsgCallBack ZV_GUARDED_BY(mutex);  // null
  std::atomic<int32_t> closeFlag;                               // -1; 0 from Close until the next Open
  std::atomic<int32_t> releaseFlag;                             // -1; 0 once Release has begun
  std::atomic<int32_t> okCodePending;                           // -1: code 200 not yet reported
  std::atomic<int32_t> singleConnection;                        // -1: one connection; 0: several
  int32_t needDownloadComplete ZV_GUARDED_BY(mutex);            // -1; 0: whole resource, read when it has ended
  std::atomic<int32_t> rangeConfirmed;                          // -1; 0: the server knows ranges
  std::atomic<int32_t> redirectSeen;                            // -1; 0: a redirect was followed
  std::atomic<int32_t> contentRangeSeen;                        // -1; 0: the length came from a Content-Range
  char* url ZV_GUARDED_BY(mutex);                               // owned, null
  std::atomic<const char*> redirectUrl;                         // owned by redirectUrls, null
  char* device ZV_GUARDED_BY(mutex);                            // owned, null
  int32_t retryTimes ZV_GUARDED_BY(mutex);                      // 2
  int32_t retryDelay ZV_GUARDED_BY(mutex);                      // 3000 ms
  std::atomic<int32_t> retryExhausted;                          // -1; 20 while a transfer is beyond its retries
  std::atomic<int32_t> retryCallbackUsed;                       // 0; 1 once the callback answered below 3000
  int32_t downloadSegLen ZV_GUARDED_BY(mutex);                  // 512000
  std::atomic<int64_t> fileContentLength;                       // -1 unknown; 0 the server does not tell
  int64_t rangeStart ZV_GUARDED_BY(mutex);                      // -1
  int64_t rangeEnd ZV_GUARDED_BY(mutex);                        // -1
  std::atomic<int64_t> downloadedBytes;                         // of this download, by all connections
  std::atomic<int64_t> startTick;                               // ms
  int32_t downloadType ZV_GUARDED_BY(mutex);                    // 0; no effect
  curl_slist* reqHeaders ZV_GUARDED_BY(mutex);                  // two default headers
  intptr_t netMonitor ZV_GUARDED_BY(mutex);                     // 0; no effect
  char* userAgent ZV_GUARDED_BY(mutex);                         // owned, null: the default
  HttpBaseRespKey* respKeyList ZV_GUARDED_BY(mutex);            // owned
  std::atomic<int32_t> downSpeed;                               // bytes/s of the last download
  std::atomic<int32_t> openFlag;                                // -1 idle; 0 open
  std::atomic<int32_t> downloadRunning;                         // 0; -1 from Open until the distribution has ended

  RedirectUrl* redirectUrls ZV_GUARDED_BY(mutex);  // newest first
  int32_t strictRange ZV_GUARDED_BY(mutex);        // 0; 1: an answer that ignores the range is cut to it (caches)
  std::atomic<int32_t> answered;                   // 0; 1: an answer with a final status has come in this download
  std::atomic<int32_t> contentEncoded;             // 0; 1: the body is unpacked, its length is not that of the headers
  std::atomic<int32_t> failed;                     // 0; 1: this download has failed or was given an error status
};

// What shapes a download, taken once when its distribution starts. Written by the monitor, then only read until the
// distribution has ended; a service thread sees it through the lock under which it was given its task.
struct DownloadPlan {
  char* url;  // owned, null when there is none
  int64_t rangeStart;
  int64_t rangeEnd;
  int32_t threadNum;
  int32_t segLen;
  bool whole;
  bool strict;
};

struct HttpBase;

// One connection. Its thread holds cond whenever it does not wait, so whoever locks cond finds it idle.
struct HttpBaseServiceThread {
  int32_t index;
  ZVThread* thread;  // null when it could not be made
  ZVCondition* cond ZV_ACQUIRED_BEFORE(ringBuffer->mutex, configParam->mutex);
  RingBuffer* ringBuffer;                  // the handle's
  HttpBaseConfigParam* configParam;        // the handle's
  CURL* curl;                              // made and used by the thread alone; cleaned up after it was joined
  char* url ZV_GUARDED_BY(cond);           // owned, of the current task
  int64_t rangeStart ZV_GUARDED_BY(cond);  // of the current request; -1 not set
  int64_t rangeEnd ZV_GUARDED_BY(cond);
  int64_t received ZV_GUARDED_BY(cond);  // body bytes this attempt has put into the ring buffer
  int32_t buffWriteSegmentIdx ZV_GUARDED_BY(cond);
  std::atomic<int32_t> responseCode;   // 0 unknown; 200 (also for 206); or the error status
  std::atomic<int32_t> threadBusy;     // -1 until it first waits, and while it works; 0 while it waits
  std::atomic<int32_t> notPaused;      // -1 runs; 0 paused on a full ring buffer
  std::atomic<int32_t> performResult;  // PerformResult

  HttpBase* engine;                // the handle
  std::atomic<int32_t> alive;      // ThreadLife; a dead one is never chosen nor waited for
  std::atomic<int32_t> stopTask;   // 0; 1: the task is no longer wanted
  std::atomic<int64_t> taskStart;  // first byte of the task: tells which tasks lie behind a failed one
  std::atomic<int32_t> handOver;   // HandOver
  std::atomic<int32_t> endFound;   // 0; 1: the resource ends within the task's range
  std::atomic<CURLM*> multi;       // as curl; others may only curl_multi_wakeup it
  RangeGuard guard ZV_GUARDED_BY(cond);
  AnswerHead head ZV_GUARDED_BY(cond);
  curl_slist* headers ZV_GUARDED_BY(cond);     // this transfer's own copy
  uint32_t pausedBytes ZV_GUARDED_BY(cond);    // size of the block that was refused
  int32_t reportedStatus ZV_GUARDED_BY(cond);  // error status already reported for this task, 0 none
  int32_t answerStatus ZV_GUARDED_BY(cond);    // status of the current answer, 0 before it
  bool attemptsExhausted ZV_GUARDED_BY(cond);  // beyond retryTimes
  bool retryAsked ZV_GUARDED_BY(cond);         // the retry callback answered below 3000
  bool bodyStarted ZV_GUARDED_BY(cond);        // of the current answer
  int32_t attemptEnd ZV_GUARDED_BY(cond);      // AttemptEnd that a callback has decided on
};

struct HttpBase {
  ZVMutex* apiMutex ZV_ACQUIRED_BEFORE(monitorCond, configParam.mutex);
  RingBuffer ringBuffer;
  std::atomic<int32_t> threadNum;
  int32_t createdThreadNum;
  ZVThread* monitorThread;
  ZVCondition* monitorCond ZV_ACQUIRED_BEFORE(ringBuffer.mutex, configParam.mutex, event.cond);
  std::atomic<int32_t> monitorBusy;  // -1 until it first waits and while it has a task; 0 while it waits for one
  HttpBaseServiceThread serviceThread[kServiceThreads];
  HttpBaseConfigParam configParam;

  EngineEvent event;
  int32_t monitorTask ZV_GUARDED_BY(monitorCond);  // 0; 1: Open has given a download
  DownloadPlan plan;
  std::atomic<int32_t> holdBack;  // 0; 1: a whole-resource download: nothing is read before it has ended
};

// Close or Release has been called: everything is to end, and no code is reported any more.
inline bool IsClosing(const HttpBaseConfigParam* config) {
  return config->closeFlag.load() == kHappened || config->releaseFlag.load() == kHappened;
}

inline bool IsStopped(const HttpBaseServiceThread* record) {
  return record->stopTask.load() != 0 || IsClosing(record->configParam);
}

inline bool IsPaused(const HttpBaseServiceThread* record) {
  return record->notPaused.load() == 0;
}

inline bool IsIdle(const HttpBaseServiceThread* record) {
  return record->alive.load() == kLifeAlive && record->threadBusy.load() == 0 &&
         record->performResult.load() != kPerformRunning;
}

inline bool IsAtWork(const HttpBaseServiceThread* record) {
  return record->performResult.load() == kPerformRunning ||
         (record->performResult.load() != kPerformNever && record->threadBusy.load() != 0);
}
