// The functions that the files of the segment cache share, by file.
#pragma once

#include <algorithm>

#include "ZVHttpBaseSegCache/Records.h"

// Entry.cpp
// Takes the mutex; at the end of the scope gives it back and does what was noted meanwhile: wakes workers, deletes files,
// calls the player.
class ZV_SCOPED_LOCK SegGuard {
 public:
  explicit SegGuard(HttpBaseSegCache* cache) ZV_ACQUIRES(cache->mutex);
  ~SegGuard() ZV_RELEASES();
  SegGuard(const SegGuard&) = delete;
  SegGuard& operator=(const SegGuard&) = delete;

 private:
  HttpBaseSegCache* cache_;
};
void NoteMessage(HttpBaseSegCache* cache, int32_t code) ZV_REQUIRES(cache->mutex);
void NoteState(HttpBaseSegCache* cache, int32_t type, int32_t value) ZV_REQUIRES(cache->mutex);
void NoteWake(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex);
void NoteLostFile(HttpBaseSegCache* cache, HttpBaseCacheFile* file) ZV_REQUIRES(cache->mutex);
// Calls the message callback, if there is one. No lock may be held.
void CallPlayer(const HttpBaseSegCache* cache, int32_t code);
void EnterSegCacheThread(const HttpBaseSegCache* cache);
// False, with a log line, when the call would wait for its own thread.
bool MayStop(const char* name, const HttpBaseSegCache* cache);
// Waits until the worker's counter is no longer seen; the second at most ms.
void SleepUntilWoken(HttpBaseSegCache* cache, int32_t worker, uint32_t seen);
void SleepUntilWokenFor(HttpBaseSegCache* cache, int32_t worker, uint32_t seen, int32_t ms);

// Segment.cpp
HttpBaseSegCacheSegment* ZV_HttpBaseSegCacheMakeNewSegment(const char* url, int32_t duration, int32_t isRange,
                                                           int32_t rangeStart, int32_t rangeLen, int32_t seq);
// 1, or 0 when the URL cannot be copied.
int32_t ZV_HttpBaseSegCacheInitSegment(HttpBaseSegCacheSegment* segment, const char* url, int32_t duration,
                                       int32_t isRange, int32_t rangeStart, int32_t rangeLen, int32_t seq);
void ZV_HttpBaseSegCacheReplaceUrl(HttpBaseSegCacheSegment* segment, const char* url);
void FreeSegment(HttpBaseSegCacheSegment** segment);
int32_t DurationOf(const HttpBaseSegCacheSegment* segment);
int64_t RangeStartOf(const HttpBaseSegCacheSegment* segment);
// Last byte of the segment's range, -1: to the end of the resource.
int64_t RangeEndOf(const HttpBaseSegCacheSegment* segment);

// List.cpp
bool HasList(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
// The segment at a place, null when none is there.
HttpBaseSegCacheSegment* SegmentAt(HttpBaseSegCache* cache, int32_t index) ZV_REQUIRES(cache->mutex);
HttpBaseSegCacheSegment* ReadSegment(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
// How many segments are listed, and the place of the n-th of them.
int32_t ListedCount(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
int32_t PlaceOf(HttpBaseSegCache* cache, int32_t n) ZV_REQUIRES(cache->mutex);
// The place that lies steps behind index, and how far to lies behind from.
int32_t StepOn(const HttpBaseSegCache* cache, int32_t index, int32_t steps);
int32_t StepsBetween(const HttpBaseSegCache* cache, int32_t from, int32_t to);
void ZV_HttpBaseSegCacheReleaseList(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
// Deletes every cache file of the list.
void LoseAllFiles(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);

// Find.cpp
bool IsSamePath(const char* left, const char* right);
int32_t ZV_HttpBaseSegCacheGetIndexByUrl(HttpBaseSegCache* cache, const char* url) ZV_REQUIRES(cache->mutex);
// 1 when the live segment is listed already; its URL may be refreshed.
int32_t ZV_HttpBaseSegCacheFindLiveSegment(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment& wanted)
    ZV_REQUIRES(cache->mutex);

// Window.cpp
void ZV_HttpBaseSegCacheUpdateCacheList(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
void ZV_HttpBaseSegCacheReleaseReadSegments(HttpBaseSegCache* cache, int32_t fromIndex, int32_t toIndex)
    ZV_REQUIRES(cache->mutex);
int32_t ZV_HttpBaseCacheGetWriteIndex(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex);
void ZV_HttpBaseSegCacheReportCacheTime(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);

// Files.cpp
// A cache file for a new download: one of a segment that is not needed soon, or a new one; null when that fails.
HttpBaseCacheFile* ZV_HttpBaseSegCacheCreateCacheFile(HttpBaseSegCache* cache) ZV_EXCLUDES(cache->mutex);
// Takes the file from its segment and has it deleted, by the Read that copies from it if there is one.
void LoseFile(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex);

// Threads.cpp: who of the workers works
void ZV_HttpBaseSegCacheNotifyAllThread(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
void ZV_HttpBaseSegCacheUseThread(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex);
// Takes a worker out of use; the others are told, since what it was woken for may be theirs now.
void LeaveUse(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex);
void UseThreadsUpToMax(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
void StopWorkers(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);
int32_t ZV_HttpBaseSegCacheThreadInit(HttpBaseSegCache* cache, int32_t worker);
// Joins what StopWorkers has told to end.
void JoinWorkers(HttpBaseSegCache* cache) ZV_EXCLUDES(cache->mutex);
void FreeWorker(HttpBaseSegCache* cache, int32_t worker);

// Worker.cpp: on a worker's thread
int32_t SegCacheThread(void* threadArg);
// Ends the work on the worker's segment, which gets that state.
void PutBack(HttpBaseSegCache* cache, int32_t worker, SegmentState state) ZV_REQUIRES(cache->mutex);

// Download.cpp: on a worker's thread
void DownloadSegment(SegCacheThreadArg* arg, HttpBaseSegCacheSegment* segment, void* buffer);

// GiveUp.cpp: on a worker's thread
void ZV_HttpBaseSegCacheReopenReadSegment(HttpBaseSegCache* cache, int32_t worker) ZV_EXCLUDES(cache->mutex);

// Callback.cpp: on a downloader's thread
int32_t HttpBaseSegCache_Callback_Impl(void* cache, int32_t code, int32_t index);
void ZV_HttpBaseSegCacheSignalThread(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment, int32_t worker)
    ZV_REQUIRES(cache->mutex);
// What a failed transfer of the worker's segment leads to.
void TakeTransferFailure(HttpBaseSegCache* cache, int32_t worker, int32_t code) ZV_REQUIRES(cache->mutex);

// Check.cpp
// Null, or the invariant that does not hold.
const char* ZVIner_CheckSegCache(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex);

static inline int32_t ToInt32(int64_t value) {
  return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

inline bool IsLocal(const HttpBaseSegCache* cache) {
  return cache->isLocalCache.load() != 0;
}

inline bool IsEnding(const HttpBaseSegCache* cache) {
  return cache->abortCacheThread.load() != 0;
}
