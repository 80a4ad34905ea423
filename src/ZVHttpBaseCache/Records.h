// The record of the progressive cache: one downloader, and a chain of cache files that holds parts of its stream.
//
// A link's start is the stream position of its file's first byte, its end the position behind its last one. Links follow
// each other without a gap where one's end reaches the next one's start. The player reads from the read link; the
// CacheThread writes to the write link, normally at the end of what the player can read without a gap.
//
// Threads and locks. cacheCondition guards the chain and every field marked so; it comes before `mutex` and before any
// lock of the downloader. Only the CacheThread opens and closes the downloader once the file cache is on (the first open
// excepted), makes, resets and deletes files, and writes to them. The player's calls move the reading position and leave
// requests (seekWanted, restartWanted, giveUpWanted). The message callback notes what became of a request.
// The lock is given up around everything slow: waiting for bytes, writing them, making a file, closing the downloader,
// calling the player. Three words say what is under way meanwhile:
//   busyNode    its file is being written; whoever wants to read that file waits
//   reopening   the downloader is being closed (its codes are dropped) or opened; whoever wants to open it waits
//   generation  changes when the bytes of the current request are no longer wanted where they were going
//
// Invariants while the file cache is on, under the lock (ZVIner_CheckCache executes them):
//  1. the chain has cacheFileNodeNum links, 1 to 300, each with a file
//  2. starts ascend, and a link that holds bytes ends at or before the next one that does
//  3. the read link, the write link and lastNode (unless null) are links of the chain
//  4. only lastNode's file is marked last
//  5. the invariants of every cache file; no file holds more than was reserved
//  6. currentCacheSize is what follows the player without a gap; 0 while a seek waits for the CacheThread
//  7. currentReadPos is where the read link's file is read next, unless a seek waits for the CacheThread
//  8. every link that holds bytes is write-finished, except the write link and the one that the CacheThread fills
//  9. what the CacheThread receives belongs at currentRecvPos, the end of the link it fills
#pragma once

#include <atomic>
#include <cstdint>

#include "Common/Guard.h"
#include "Common/Text.h"
#include "ZVBase.h"
#include "ZVHttpBaseCache.h"
#include "ZVHttpBaseCacheFile/ZVHttpBaseCacheFile.h"

constexpr int32_t kReservedBytes = 8388608;
constexpr int32_t kMaxLinks = 300;
constexpr int32_t kDefaultTargetBytes = 5242880;
constexpr int32_t kDefaultBytesPerSecond = 1048576;
constexpr int32_t kReceiveBytes = 524288;
constexpr uint32_t kLargeBytes = kReceiveBytes / 4 * 3;  // of one read: more waits, or soon comes
constexpr int32_t kLeastCacheTimeSeconds = 40;
constexpr int32_t kCalls = 16;

// What is being done with the downloader, without the lock. Whoever wants to open or close it waits until nothing is.
enum Reopening : int32_t {
  kNotReopening = 0,
  kClosing = 1,  // codes that arrive belong to the download that ends: they are dropped
  kOpening = 2,  // codes that arrive are the new request's
};

struct CacheFileNode {
  HttpBaseCacheFile* cacheFile;  // owned; null once the file cache was given up
  CacheFileNode* next;
};

// A call of the player's, noted under the lock and made after it.
struct CallOut {
  HttpBaseCacheStateCallback state;  // null: the message callback with the code in value
  int32_t value;
};

struct CallList {
  int32_t count;
  CallOut calls[kCalls];
};

// A response header to keep, with the last value that an earlier request brought.
struct CacheRespKey {
  char* key;    // owned
  char* value;  // owned, null
  CacheRespKey* next;
};

struct HttpBaseCache {
  HttpBaseMsgCallback msgCallback;                              // fixed by Init, may be null
  void* userData;                                               // fixed by Init
  std::atomic<HttpBaseCacheStateCallback> cacheStateCallback;   // null
  HttpBase* httpBase;                                           // owned, made by Init
  char* url ZV_GUARDED_BY(mutex);                               // owned, null; the player's, dropped by Close
  std::atomic<int32_t> needDownloadComplete;                    // -1
  std::atomic<int64_t> contentLength;                           // -1 unknown; 0: not told
  int64_t currentRecvPos ZV_GUARDED_BY(cacheCondition);         // 0; of the next byte the downloader gives
  int64_t currentReadPos ZV_GUARDED_BY(cacheCondition);         // 0; of the next byte the player gets
  int64_t lastRangeEnd ZV_GUARDED_BY(cacheCondition);           // -1; behind the current request's last byte
  std::atomic<int32_t> duration;                                // -1, ms
  int64_t currentCacheSize ZV_GUARDED_BY(cacheCondition);       // 0
  int64_t lastReportedCacheSize ZV_GUARDED_BY(cacheCondition);  // 0
  std::atomic<int32_t> isLocalCache;                            // 0; 1 while the file cache is on
  int32_t abortCurrRecving ZV_GUARDED_BY(cacheCondition);       // 0; 1: stop filling the current file
  int32_t cacheThreadSignaled ZV_GUARDED_BY(cacheCondition);    // 0; 1: there is something to receive
  int32_t abortCache ZV_GUARDED_BY(cacheCondition);             // 0; 1: the CacheThread is to end
  int32_t isResting ZV_GUARDED_BY(cacheCondition);  // 0; 1: nobody stores what the open request brings meanwhile
  int32_t targetCacheSize ZV_GUARDED_BY(cacheCondition);
  int32_t cacheFileNodeNum ZV_GUARDED_BY(cacheCondition);
  int32_t sizePerSecond ZV_GUARDED_BY(cacheCondition);
  int32_t isOpenInternal ZV_GUARDED_BY(cacheCondition);  // 0; 1: the request is the cache's own
  int32_t isSetRange ZV_GUARDED_BY(cacheCondition);      // 0; 1: a seek waits for its answer
  int32_t isWaitForHttpNotify
      ZV_GUARDED_BY(cacheCondition);  // 1 until the first answer, and from a re-open to its answer
  int32_t httpResponseError ZV_GUARDED_BY(cacheCondition);  // 0; a code kept back while bytes are cached
  int32_t isCacheFinish ZV_GUARDED_BY(cacheCondition);      // 0; 1: enough is cached
  int32_t retryCount ZV_GUARDED_BY(cacheCondition);         // files used up since a transfer failed
  int32_t isTransError ZV_GUARDED_BY(cacheCondition);       // 0; 1: a transfer failed
  int32_t needReconnect ZV_GUARDED_BY(cacheCondition);      // 0; 1: the next write link needs a new request
  CacheFileNode* currentReadNode ZV_GUARDED_BY(cacheCondition);
  CacheFileNode* nextWriteNode ZV_GUARDED_BY(cacheCondition);
  CacheFileNode* lastNode ZV_GUARDED_BY(cacheCondition);  // null until the stream's last byte is there
  CacheFileNode* headNode ZV_GUARDED_BY(cacheCondition);
  LocalCacheParam* localCacheParam;  // owned with its text; fixed by SetLocalCache until Release
  ZVCondition* cacheCondition ZV_ACQUIRED_BEFORE(mutex);
  ZVThread* cacheThread;

  ZVMutex* mutex;                               // url, privateUrl, respKeys
  char* privateUrl ZV_GUARDED_BY(mutex);        // owned; of the last Open, for the cache's own requests
  CacheRespKey* respKeys ZV_GUARDED_BY(mutex);  // owned
  int32_t reservedBytes;               // 8388608, of every file; fixed once the file cache is on (tests take less)
  std::atomic<int32_t> fileCacheMade;  // 0; 1 for good once the file cache has been on
  std::atomic<int32_t> threadWanted;   // 1: the CacheThread is to stop waiting for bytes
  std::atomic<int32_t> isLeaving;      // 0; 1 for good: files are no longer wanted, not even the one that is being made
  CallList calls ZV_GUARDED_BY(cacheCondition);            // empty whenever the lock is free
  CacheFileNode* cycleNode ZV_GUARDED_BY(cacheCondition);  // the link that the CacheThread fills, or null
  CacheFileNode* busyNode ZV_GUARDED_BY(cacheCondition);   // null
  int32_t fileWaiters ZV_GUARDED_BY(cacheCondition);       // readers that wait for busyNode's file
  void* recvBuffer;  // the CacheThread's alone, kReceiveBytes; null while there is no memory
  HttpBaseCacheFile* preparedFile ZV_GUARDED_BY(cacheCondition);  // made without the lock for the next link, or null
  uint32_t generation ZV_GUARDED_BY(cacheCondition);
  uint32_t requestGeneration ZV_GUARDED_BY(cacheCondition);  // generation that the open request's bytes belong to
  int64_t requestStart ZV_GUARDED_BY(cacheCondition);        // 0; first byte that the open request asked for
  int32_t everOpened ZV_GUARDED_BY(cacheCondition);          // 0; 1: the player has opened the stream
  int32_t reopening ZV_GUARDED_BY(cacheCondition);           // Reopening
  int32_t released ZV_GUARDED_BY(cacheCondition);            // 1: Release has begun, nothing is reported any more
  int32_t hasSeekTarget ZV_GUARDED_BY(cacheCondition);       // 0; 1: SetRange waits for Open
  int64_t seekTarget ZV_GUARDED_BY(cacheCondition);
  int64_t seekEnd ZV_GUARDED_BY(cacheCondition);             // only where the file cache was given up
  int32_t seekWanted ZV_GUARDED_BY(cacheCondition);          // request: put the reader and a request at currentReadPos
  int32_t restartWanted ZV_GUARDED_BY(cacheCondition);       // request: choose a write link
  int32_t giveUpWanted ZV_GUARDED_BY(cacheCondition);        // request: leave the file cache
  int32_t requestOutstanding ZV_GUARDED_BY(cacheCondition);  // 1 from the open of the downloader to its answer
  int32_t awaitingFormer ZV_GUARDED_BY(cacheCondition);      // 1: a re-open waits for the answer to the request before
  int32_t connectionLost ZV_GUARDED_BY(cacheCondition);  // 1: the downloader does not give the byte at currentRecvPos
  int32_t lengthIsPacked ZV_GUARDED_BY(cacheCondition);  // 1: contentLength is that of an encoded body
  int64_t skipBytes ZV_GUARDED_BY(cacheCondition);       // still to drop: a whole resource begins at byte 0
  int64_t failureTick ZV_GUARDED_BY(cacheCondition);     // when a failure was reported with nothing cached, or 0
};
