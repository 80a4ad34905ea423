// The functions that the files of the progressive cache share, by file.
#pragma once

#include "ZVHttpBaseCache/Records.h"

// Entry.cpp
// Takes the lock; at the end of the scope gives it back and makes the calls that were noted meanwhile.
class ZV_SCOPED_LOCK CacheGuard {
 public:
  explicit CacheGuard(HttpBaseCache* cache) ZV_ACQUIRES(cache->cacheCondition);
  ~CacheGuard() ZV_RELEASES();
  CacheGuard(const CacheGuard&) = delete;
  CacheGuard& operator=(const CacheGuard&) = delete;

 private:
  HttpBaseCache* cache_;
};
void TakeLock(HttpBaseCache* cache) ZV_ACQUIRES(cache->cacheCondition);
// Gives the lock back and makes the noted calls.
void LeaveLock(HttpBaseCache* cache) ZV_RELEASES(cache->cacheCondition);
// Waits for a signal, or makes the noted calls instead of waiting: test the predicate again either way.
void WaitOn(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// The same, at most ms.
void WaitOnFor(HttpBaseCache* cache, int32_t ms) ZV_REQUIRES(cache->cacheCondition);
void NoteMessage(HttpBaseCache* cache, int32_t code) ZV_REQUIRES(cache->cacheCondition);
void NoteState(HttpBaseCache* cache, int32_t value) ZV_REQUIRES(cache->cacheCondition);
// Makes the CacheThread look at the flags now, whatever it waits for.
void WakeCacheThread(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Whether this is a thread, or inside a callback, of the handle: what would wait for it is refused there.
bool IsOwnThread(const HttpBaseCache* cache);
void EnterCacheThread(const HttpBaseCache* cache);
// False, with a log line, when the call would wait for its own thread.
bool MayStop(const char* name, const HttpBaseCache* cache);
int32_t ClampToInt32(int64_t value);

// Chain.cpp: questions about the chain
int64_t EndOf(const CacheFileNode* node);
int64_t StartOf(const CacheFileNode* node);
bool IsEmpty(const CacheFileNode* node);
CacheFileNode* LastLink(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// The link before node; null for the head.
CacheFileNode* LinkBefore(HttpBaseCache* cache, const CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition);
int64_t ZV_HttpBaseCacheGetContinuousEnd(HttpBaseCache* cache, CacheFileNode* from, CacheFileNode* to)
    ZV_REQUIRES(cache->cacheCondition);
int32_t ZV_HttpBaseCacheIsContinuous(HttpBaseCache* cache, CacheFileNode* a, CacheFileNode* b)
    ZV_REQUIRES(cache->cacheCondition);
int64_t CountCacheSize(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheUpdateCurrentCacheSize(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
int32_t ZV_HttpBaseCacheIsRestCached(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
CacheFileNode* ZV_HttpBaseCacheFindReadNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// ChainEdit.cpp
void ZV_HttpBaseCacheInsertWriteNode(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition);
int32_t ZV_HttpBaseCacheReuseWriteNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
CacheFileNode* ZV_HttpBaseCacheAddNewCacheFileNode(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheReuseNodeForSeek(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheReuseFirstNode(HttpBaseCache* cache, CacheFileNode* after, CacheFileNode* before)
    ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheReuseLastNode(HttpBaseCache* cache, CacheFileNode* pred, CacheFileNode* last)
    ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheDeleteNode(HttpBaseCache* cache, CacheFileNode* target) ZV_REQUIRES(cache->cacheCondition);
// A new link around the prepared file; null without one, or without memory.
CacheFileNode* NewLink(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Takes a link out of the chain, whose links still count it.
void Unlink(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition);
// Puts a link where its bytes from `position` on belong.
void InsertAt(HttpBaseCache* cache, CacheFileNode* node, int64_t position) ZV_REQUIRES(cache->cacheCondition);
// Empties a link's file; a link that held the stream's end holds it no more.
void ResetLink(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition);
// Deletes every link and file.
void FreeChain(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// StreamEnd.cpp
// The link whose last byte lies right before that position; null without one.
CacheFileNode* LinkEndingAt(HttpBaseCache* cache, int64_t position) ZV_REQUIRES(cache->cacheCondition);
// The stream's last byte is the link's last one.
void MarkLast(HttpBaseCache* cache, CacheFileNode* node) ZV_REQUIRES(cache->cacheCondition);
// The stream ends at currentRecvPos.
void LearnEnd(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Whether the code says that nothing follows what is cached: a seek may have lost the end of a stream of unknown length.
bool IsAnswerOfEnd(HttpBaseCache* cache, int32_t code) ZV_REQUIRES(cache->cacheCondition);
void TakeEnd(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// Sizing.cpp
// The length of the stream is known, not only that of its packed form.
bool IsLengthKnown(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheUpdateCacheUnitSize(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheReportCacheState(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
int32_t BufferedMs(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// Check.cpp
// Null, or the invariant that does not hold.
const char* ZVIner_CheckCache(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// ReadLink.cpp: where the player reads; on its threads
void ZV_HttpBaseCacheUpdateReadCacheFile(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Asks the CacheThread for a restart if nothing else is under way.
void RestartIfIdle(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// NextFile.cpp: on the CacheThread; the lock is given up
// The next link's file, with room for so many bytes. False when it cannot be had; then there is none.
bool PrepareFile(HttpBaseCache* cache, int32_t room) ZV_REQUIRES(cache->cacheCondition);
// The same, for as much as the present file holds by now: the next one is ready when the present one is full, and the
// transfer does not wait for it.
bool PrepareAhead(HttpBaseCache* cache, const HttpBaseCacheFile* present) ZV_REQUIRES(cache->cacheCondition);

// WriteLink.cpp: where the CacheThread writes; on it alone
void ZV_HttpBaseCacheUpdataWriteCacheFile(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Carries out a seek to a byte that no link holds.
void AnswerSeek(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
bool HasRequest(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// Reopen.cpp: on the CacheThread
// Before something slow that is done for a seek: what a running transfer brings until its request is replaced would be
// thrown away, and fetched again if the player comes back. One that has not been answered yet is left to the request that
// replaces it. The lock is given up.
void StopTransfer(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
void ZV_HttpBaseCacheOpenHttpBaseInternal(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Leaves the file cache: streaming goes on from the downloader.
void ZV_HttpBaseResumeMemoryCache(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// Save.cpp: on the CacheThread; the lock is given up
// Before a request is replaced: what it has brought and nobody has stored goes into a link of its own, unless that is not
// worth a file.
void SaveReceived(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);

// RespKeys.cpp
void FreeRespKeys(HttpBaseCache* cache) ZV_EXCLUDES(cache->mutex);
// The downloader forgets its keys when it is closed: before, and after.
void SaveRespValues(HttpBaseCache* cache) ZV_EXCLUDES(cache->mutex);
void RestoreRespKeys(HttpBaseCache* cache) ZV_EXCLUDES(cache->mutex);

// Receive.cpp: on the CacheThread
// Fills the write link until there is a reason to stop. False when its file cannot be written at all.
bool ReceiveCycle(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition);
// Fills recvBuffer with what the downloader has, without waiting. Gives what its Read gave last.
int32_t ReadBlock(HttpBaseCache* cache, uint32_t* count);

// CacheThread.cpp
int32_t ZV_HttpBaseCacheStartCache(HttpBaseCache* cache);
int32_t CacheThread(void* cache);

// Callback.cpp
int32_t HttpBaseCache_Callback_Impl(void* cache, int32_t code);
// What a failure of the current request leads to.
void TakeFailure(HttpBaseCache* cache, int32_t code) ZV_REQUIRES(cache->cacheCondition);
