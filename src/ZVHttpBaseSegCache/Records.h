// The records of the segment cache: the handle, its list, its segments, its workers.
//
// Threads. The caller's (every exported function), five workers, and the downloaders' threads, which report codes.
// Locks. `mutex` guards the list and all bookkeeping; it is held for moments only: nobody waits, copies, writes, opens or
// closes under it. A worker's condition wakes the worker, and guards the bytes and counters of the file it writes; it is
// taken alone. So `mutex` comes before a condition, and in fact they are never held together. Callbacks and wake-ups are
// noted under the mutex and made after it (SegGuard).
//
// Who owns a segment's file. A segment in state 1 or 2 belongs to one worker, threadIndex; only that worker writes to its
// file. In state 3 nobody writes. The pointer changes under the mutex. The file that a Read copies from is pinned
// (readingFile): whoever takes it from its segment leaves its release to that Read.
//
// Invariants while the local cache is on, under the mutex (ZVIner_CheckSegCache executes them):
//  1. on demand: places 0 to segmentNum - 1 hold segments, segmentNum <= maxNum; live: so do the slots from startIndex up
//     to endIndex, both below 2,000
//  2. a segment in state 1 or 2 is the one of exactly one busy worker; in another state it has none
//  3. a segment in state 3 has a file, one in state 0 or 4 has none; no two segments share a file
//  4. currReadIndex is -1 or the place of a listed segment
//  5. usingThreadNum counts the workers in use
//  6. a worker without a segment has writeIndex -1, and so has one whose segment has left the list
//  7. currCacheTime is not negative, lastError and retryCount are 0 unless waitForRetry is set
#pragma once

#include <atomic>
#include <cstdint>

#include "Common/Guard.h"
#include "Common/Text.h"
#include "ZVBase.h"
#include "ZVHttpBaseCacheFile/ZVHttpBaseCacheFile.h"
#include "ZVHttpBaseSegCache.h"
#include "ZVHttpBaseSegCacheStream.h"

constexpr int32_t kWorkers = 5;
constexpr int32_t kLiveSlots = 2000;
constexpr int32_t kWindowSegments = 300;
constexpr int32_t kWorkerBufferBytes = 524288;
constexpr int32_t kLeastSegCacheSeconds = 40;
constexpr int32_t kOpensBeforeRetry = 4;
constexpr int32_t kRetryMemoryMs = 100;
constexpr int32_t kMostCalls = 8;
constexpr int32_t kMostLostFiles = 16;

enum SegmentState : int32_t {
  kSegmentWaiting = 0,   // a worker may take it
  kSegmentOpening = 1,   // a worker waits for the answer
  kSegmentAnswered = 2,  // the answer, or a wake-up, has come; the worker receives
  kSegmentCached = 3,    // complete in its file
  kSegmentFailed = 4,    // the server answered with an error that is not worth a retry
};

struct HttpBaseSegCacheSegment {
  char* url;         // owned, never null
  int32_t duration;  // ms
  int32_t isRange;
  int64_t rangeStart;
  int32_t rangeLen;       // 0 and less: to the end of the resource
  int32_t httpResponse;   // 0; code of the current download
  int32_t openFlag;       // 0 from the reader's Open on, 1 from its Close on
  int32_t contentLength;  // low 32 bits of what the download tells
  int32_t byteRate;       // bytes per second, 0 until known
  int32_t readBytes;      // since the last report
  int32_t seq;
  HttpBaseCacheFile* cacheFile;  // owned, null
  int32_t state;                 // SegmentState
  int32_t threadIndex;           // worker, -1 none

  int64_t readerPos;       // what the reader has had since its Open; a new file is read from there
  int32_t transferFailed;  // 0; 1: its transfer has failed, or its Open was answered by an older failure
  int32_t isDetached;      // 0; 1: its slot holds another segment by now; the worker frees it
};

struct HttpBaseSegCacheList {
  HttpBaseSegCacheSegment** segments;  // owned; null until SetList
  uint8_t listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES];
  int32_t segmentNum;  // on demand
  int32_t maxNum;      // on demand
  int32_t startSeq;
  int32_t startIndex;  // live
  int32_t endIndex;    // live
};

struct HttpBaseSegCache;

// What a worker starts with, and what belongs to it alone.
struct SegCacheThreadArg {
  HttpBaseSegCache* cache;
  int32_t index;
  std::atomic<uint32_t> wakeUps;  // grows under the worker's condition; compared before it waits
  char* url;                      // owned: the worker's copy of its segment's, while it downloads
};

// A call of the player's.
struct SegCall {
  HttpBaseSegCacheStateCallback state;  // null: the message callback with the code in value
  int32_t type;
  int32_t value;
};

// What is noted under the mutex and done after it.
struct SegNotes {
  uint32_t wakeMask;  // bit i: worker i is to look at the flags now
  int32_t callCount;
  SegCall calls[kMostCalls];
  int32_t fileCount;
  HttpBaseCacheFile* files[kMostLostFiles];  // owned: to be deleted
};

struct HttpBaseSegCache {
  HttpBaseMsgCallback msgCallback;                                // fixed by Init, may be null
  std::atomic<HttpBaseSegCacheStateCallback> cacheStateCallback;  // null
  void* userData;                                                 // fixed by Init
  HttpBaseSegCacheStream* stream;                                 // owned, made by Init; index -1
  std::atomic<int32_t> needDownloadComplete;                      // -1
  std::atomic<int32_t> isLocalCache;                              // 0; 1 while the local cache is on
  LocalCacheParam* localCacheParam;                               // owned with its text; fixed by SetLocalCache
  HttpBaseSegCacheList* segmentList ZV_GUARDED_BY(mutex);         // owned, null
  int32_t isVod;                                                  // fixed before the workers start
  int32_t isListSet ZV_GUARDED_BY(mutex);                         // 0
  int32_t firstSegmentCached ZV_GUARDED_BY(mutex);                // 0; 1 for good once a segment is complete
  std::atomic<int32_t> abortCacheThread;                          // 0; 1 for good: the workers are to end
  int32_t waitForRetry ZV_GUARDED_BY(mutex);                      // 0; 1: a transfer failed, nothing new is taken
  int32_t currReadIndex ZV_GUARDED_BY(mutex);                     // -1
  int32_t endWriteIndex ZV_GUARDED_BY(mutex);                     // -1; end (exclusive) of the window
  int32_t retryCount ZV_GUARDED_BY(mutex);                        // Opens of cached segments since a transfer failed
  int32_t isTsListFailed ZV_GUARDED_BY(mutex);                    // 0; 1: the caller has stopped caching
  int32_t currCacheTime ZV_GUARDED_BY(mutex);                     // ms cached behind the read segment
  int32_t lastError ZV_GUARDED_BY(mutex);                         // 0; first failure of a segment ahead
  int32_t hasRange ZV_GUARDED_BY(mutex);                          // 0; 1: rangeStart waits for the next Open
  int64_t rangeStart ZV_GUARDED_BY(mutex);
  int64_t rangeEnd ZV_GUARDED_BY(mutex);             // only direct reading needs it
  std::atomic<int32_t> maxThreadNum;                 // 1
  int32_t usingThreadNum ZV_GUARDED_BY(mutex);       // 0
  ZVThread* threads[kWorkers] ZV_GUARDED_BY(mutex);  // null once joined
  ZVCondition* conditions[kWorkers];                 // fixed from the start of the worker to Release, as
  HttpBaseSegCacheStream* streams[kWorkers];         // are the next two; null: that worker was not made
  SegCacheThreadArg* threadArgs[kWorkers];
  ZVMutex* mutex;                                       // made by SetLocalCache, lives until Release
  int32_t threadState[kWorkers] ZV_GUARDED_BY(mutex);   // 0 rests; 1 busy
  int32_t threadInUse[kWorkers] ZV_GUARDED_BY(mutex);   // 1: may take segments
  int32_t abortSignal[kWorkers] ZV_GUARDED_BY(mutex);   // 1: must drop its download
  int32_t writeIndex[kWorkers] ZV_GUARDED_BY(mutex);    // -1; place of its segment
  int32_t threadIsLost[kWorkers] ZV_GUARDED_BY(mutex);  // 1: it ended for want of memory

  std::atomic<int32_t> localCacheMade;  // 0; 1 for good once the local cache has been on
  std::atomic<int32_t> released;        // 0; 1: Release has begun, nothing is reported any more
  HttpBaseSegCacheSegment* working[kWorkers] ZV_GUARDED_BY(mutex);  // null; the segment it downloads, listed or not
  HttpBaseCacheFile* readingFile ZV_GUARDED_BY(mutex);              // null; what a Read copies from
  int32_t readingFileIsLost ZV_GUARDED_BY(mutex);                   // 1: that Read is to release it
  int32_t isReading ZV_GUARDED_BY(mutex);                           // 1 while a Read copies
  int32_t givingUp ZV_GUARDED_BY(mutex);                            // -1; worker that is leaving the local cache
  std::atomic<int32_t> continued;                                   // ContinuedOn
  SegNotes notes ZV_GUARDED_BY(mutex);                              // empty whenever the mutex is free
};

// What direct reading means after the local cache was given up, until the next Open or Close.
enum ContinuedOn : int32_t {
  kNotContinued = 0,
  kContinuedStream = 1,  // the own stream goes on with the read segment
  kContinuedRest = 2,    // the same, and there may be nothing left: the reader may have had all of it
  kContinuedEnd = 3,     // the read segment has been read to its end
  kContinuedFailed = 4,  // the own stream has failed: what it delivers is not the segment
};
