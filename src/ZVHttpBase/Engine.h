// The functions that the files of the downloader share, by file.
#pragma once

#include "ZVHttpBase/Records.h"

// LifeCycle.cpp
// The handle whose own thread is running, null on the player's threads.
const HttpBase* EngineOfThisThread();
void EnterEngineThread(const HttpBase* hb);
// Makes every thread of the handle look at the flags now.
void WakeAll(HttpBase* hb);
void WakeTransfer(HttpBaseServiceThread* record);

// Monitor.cpp
int32_t ZVIner_MonitorThreadFunc(void* handle);
// Wakes every service thread so that it sees releaseFlag.
void ZVIner_NotifyServiceThreadsExit(HttpBase* hb);

// ServiceThread.cpp
int32_t ZVIner_ServiceThreadFunc(void* record);
int32_t ZVIner_ServicePerform(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond);
void CallBack(HttpBaseConfigParam* config, int32_t code);
// The same, with a log line under the name of the function that found out.
void ReportCode(const char* name, HttpBaseConfigParam* config, int32_t code);

// How an attempt ended, or what a callback wants to come of it.
enum AttemptEnd : int32_t {
  kAttemptOpen,      // nothing decided
  kAttemptComplete,  // the task has all its bytes
  kAttemptMore,      // a good answer that brought only a part: ask for the rest at once
  kAttemptRetry,     // failed, may be tried again
  kAttemptGiveUp,    // failed for good
  kAttemptStopped,   // closed, released or no longer wanted
};

// TransferOptions.cpp
constexpr long kReceiveBufferBytes = 60000;
// -1 when memory runs out.
int32_t ZVIner_SetServiceThreadOpt(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond);
void ZVIner_SetServiceThreadRangeOpt(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond);
curl_slist* CopyHeaderList(const curl_slist* list, bool* ok);

// TransferLoop.cpp
CURLcode RunTransfer(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond);

// TransferCallbacks.cpp: libcurl's callbacks, on the service thread that runs the transfer
size_t ZVIner_HeaderCallback(char* line, size_t size, size_t nitems, void* record);
size_t ZVIner_StreamCallback(char* bytes, size_t size, size_t nmemb, void* record);
int ZVIner_ProgressCallback(void* record, double dltotal, double dlnow, double ultotal, double ulnow);
// Learns the length that an answer's header told, -1 when it told none.
void ZVIner_GetContentLengthAndAllocRingBuffer(HttpBaseServiceThread* record, int64_t total) ZV_REQUIRES(record->cond);
void ZVIner_ResizeRingBufferByContentLength(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond);
// Reports 200 if this is the download's first good answer.
void ReportOkOnce(HttpBaseServiceThread* record) ZV_REQUIRES(record->cond);

// Distribution.cpp
struct TaskSpec {
  TaskKind kind;
  bool asItComes;
  int64_t start;
  int64_t end;
  int64_t wholeLast;
  int32_t fragmentIdx;
  const char* url;
};
int32_t ZVIner_ServiceDistribution(HttpBase* hb);
int32_t ZVIner_SingleServiceThreadDistribution(HttpBase* hb);
// The first connection that is idle and has not failed in this download, or null.
HttpBaseServiceThread* FindIdleThread(HttpBase* hb);
// The same, but waits for threads that are still starting. Null: none lives, or the handle is closing.
HttpBaseServiceThread* ChooseIdleThread(HttpBase* hb);
// False when memory ran out: the task was not given.
bool GiveTask(HttpBaseServiceThread* record, const TaskSpec& spec);
void WaitWhileRunning(HttpBase* hb, HttpBaseServiceThread* record);
void EndDownloadNormally(HttpBase* hb, HttpBaseServiceThread* lastWriter);
int32_t CodeOf(const HttpBaseServiceThread* record);
// Reports a failure code unless the handle is closing; marks the download as failed.
void ReportFailure(const char* name, HttpBase* hb, int32_t code);

// DistributionMultiple.cpp
int32_t ZVIner_MultipleServiceThreadDistribution(HttpBase* hb);
int32_t ZVIner_GetSegmentRangeByThreadExplore(HttpBase* hb, int32_t segLen, int64_t start, int64_t end,
                                              int64_t* nextStart, int64_t* lastByte);
int32_t ZVIner_MultipleDownloadDistribution(HttpBase* hb, int32_t connections, int32_t segLen, int64_t nextStart,
                                            int64_t lastByte, int32_t fragmentIdx, const char* url);
int32_t ZVIner_CheckMultipleDownload(HttpBase* hb, int32_t connections);

// Configuration.cpp
bool InitConfig(HttpBaseConfigParam* config, HttpBaseMsgCallback cb, void* cbUserData);
void ReleaseConfig(HttpBaseConfigParam* config);
// What Close puts back.
void ResetDownloadSettings(HttpBaseConfigParam* config);
void KeepRedirectUrl(HttpBaseConfigParam* config, const char* url);
void ForgetRedirectUrls(HttpBaseConfigParam* config);
// Bytes per second since the download began.
int32_t CurrentDownSpeed(const HttpBaseConfigParam* config);
