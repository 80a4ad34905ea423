// One cycle of the CacheThread: bytes from the downloader into one link's file, until that is full, the request has
// ended, or the bytes are no longer wanted. On the CacheThread. The lock is given up while it waits for bytes, takes them
// and writes them; nobody else changes the link or the downloader meanwhile, and the generation tells whether the bytes
// still belong where they were going.
#include <algorithm>

#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

constexpr char kName[] = "CacheThread";
constexpr uint32_t kFastBytes = 32768;
constexpr int32_t kGatherMs = 1;

struct Cycle {
  CacheFileNode* node;
  HttpBaseCacheFile* file;
  uint32_t generation;
  int64_t startPos;   // currentRecvPos at the cycle's start
  uint32_t received;  // by the last read
  bool preparesNext;  // until that has failed once
};

enum Outcome { kFull, kFinished, kDropped, kWriteFailed, kAborted };

// What has been taken does not belong at the end of the file.
bool IsMisplaced(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  return cache->isWaitForHttpNotify != 0 || cache->connectionLost != 0 || cycle.file->isWriteFinish != 0 ||
         EndOf(cycle.node) != cache->currentRecvPos;
}

// Or it does, but the player has gone elsewhere.
bool MustDrop(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  return IsMisplaced(cache, cycle) || cache->abortCurrRecving != 0 || cache->generation != cycle.generation;
}

bool IsThreadWanted(void* cache) {
  return static_cast<HttpBaseCache*>(cache)->threadWanted.load() != 0;
}

// A request for the whole resource begins at its first byte and knows no end: what was not asked for is dropped here.
// Gives where the wanted bytes begin in the buffer, and their number in *count.
uint32_t CutToRange(HttpBaseCache* cache, uint32_t* count) ZV_REQUIRES(cache->cacheCondition) {
  const uint32_t skipped = static_cast<uint32_t>(std::min<int64_t>(cache->skipBytes, *count));
  cache->skipBytes -= skipped;
  *count -= skipped;
  if (cache->lastRangeEnd >= 0) {
    *count = static_cast<uint32_t>(std::min<int64_t>(*count, cache->lastRangeEnd - cache->currentRecvPos));
  }
  return skipped;
}

// What was received, from `first` on. 0 or 1, as a write of the file.
int32_t StoreBlock(HttpBaseCache* cache, const Cycle& cycle, uint32_t first) ZV_REQUIRES(cache->cacheCondition) {
  const uint32_t count = cycle.received;
  cache->busyNode = cycle.node;
  LeaveLock(cache);
  const int32_t failed = PutBytes(cycle.file, static_cast<const uint8_t*>(cache->recvBuffer) + first, count);
  TakeLock(cache);
  cache->busyNode = nullptr;
  if (cache->fileWaiters > 0) {
    ZV_ConditionSignal(cache->cacheCondition);
  }
  if (failed == 0) {
    CountBytes(cycle.file, count);
    cache->currentRecvPos += count;
    if (cache->seekWanted == 0) {
      ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
      ZV_HttpBaseCacheReportCacheState(cache);
    }
  }
  return failed;
}

// Waits for bytes without the lock and takes them. Gives what the downloader's Read gave.
int32_t TakeBytes(HttpBaseCache* cache, uint32_t* count) ZV_REQUIRES(cache->cacheCondition) {
  cache->threadWanted.store(0);
  LeaveLock(cache);
  ZVIner_WaitReadable(cache->httpBase, INT32_MAX, IsThreadWanted, cache);
  *count = 0;
  const int32_t more = IsThreadWanted(cache) ? 1 : ReadBlock(cache, count);
  TakeLock(cache);
  return more;
}

// A transfer that has brought this much since the last look brings a large block within a moment. Taken as they come, its
// bytes would wake this thread thousands of times a second, which costs more than writing them.
bool IsWorthGathering(const Cycle& cycle) {
  return cycle.received >= kFastBytes && cycle.received < kLargeBytes;
}

// Before a file becomes busy; no call may be left to make then, since the player may read in it. Gives the lock up, so that
// the bytes may no longer be wanted afterwards.
void LetReadersGoFirst(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  while (cache->fileWaiters > 0 || cache->calls.count > 0) {
    WaitOn(cache);
  }
}

Outcome Receive(HttpBaseCache* cache, Cycle* cycle) ZV_REQUIRES(cache->cacheCondition) {
  for (;;) {
    if (IsWorthGathering(*cycle)) {
      WaitOnFor(cache, kGatherMs);
    }
    if (cache->abortCache != 0) {
      return kAborted;
    }
    if (MustDrop(cache, *cycle)) {
      return kDropped;
    }
    if (cycle->file->cacheSize + kReceiveBytes > cycle->file->fileSize) {
      return kFull;
    }
    const int32_t more = TakeBytes(cache, &cycle->received);
    if (cycle->received > 0) {
      LetReadersGoFirst(cache);
    }
    if (cycle->received > 0 && (cache->abortCache != 0 || IsMisplaced(cache, *cycle))) {
      cache->connectionLost = 1;  // these bytes are gone
      return cache->abortCache != 0 ? kAborted : kDropped;
    }
    const uint32_t skipped = CutToRange(cache, &cycle->received);
    if (cycle->received > 0 && StoreBlock(cache, *cycle, skipped) != 0) {
      return kWriteFailed;
    }
    if (more == 0 || cache->currentRecvPos == cache->lastRangeEnd) {
      return MustDrop(cache, *cycle) ? kDropped : kFinished;
    }
    cycle->preparesNext = cycle->preparesNext && PrepareAhead(cache, cycle->file);
  }
}

// The stream's end, learnt earlier, lies right behind this file.
bool ReachesEnd(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  return IsLengthKnown(cache) && EndOf(cycle.node) == cache->contentLength.load();
}

void NoteIfEnough(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->currentCacheSize >= cache->targetCacheSize) {
    cache->isCacheFinish = 1;
  }
}

// Nothing more will come into this file from here on; an empty one stays open for the next request.
void FinishFile(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  if (IsEmpty(cycle.node)) {
    return;
  }
  if (ReachesEnd(cache, cycle)) {
    MarkLast(cache, cycle.node);
    LOG_TRACE_AS(kName, "%s 0 cacheFile %s is last", cycle.file->cacheFileName);
  }
  ZV_HttpBaseCacheFileSetWriteFinish(cycle.file);
}

void EndFullFile(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  if (ReachesEnd(cache, cycle)) {
    MarkLast(cache, cycle.node);
    LOG_TRACE_AS(kName, "%s 1 cacheFile %s is last", cycle.file->cacheFileName);
  }
  ZV_HttpBaseCacheFileSetWriteFinish(cycle.file);
  NoteIfEnough(cache);
  LOG_TRACE_AS(kName, "%s cacheFile is full %s cacheSize=%d startPosInStream=%lld currentRecvPos=%lld",
               cycle.file->cacheFileName, cycle.file->cacheSize, Wide(cycle.startPos), Wide(cache->currentRecvPos));
}

enum RequestEnd { kRangeDone, kStreamDone, kTooShort };

// What it means that the downloader has nothing more to give, when it has reported no failure: it does that before it
// tells of the end. At the stream's end its length is known at last.
RequestEnd JudgeEnd(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->lastRangeEnd >= 0) {
    return cache->currentRecvPos >= cache->lastRangeEnd ? kRangeDone : kTooShort;
  }
  if (cache->skipBytes > 0 || (IsLengthKnown(cache) && cache->currentRecvPos != cache->contentLength.load())) {
    return kTooShort;
  }
  const bool broughtNothing = cache->requestStart > 0 && cache->currentRecvPos == cache->requestStart;
  if (!IsLengthKnown(cache) && broughtNothing && LinkEndingAt(cache, EndOf(cycle.node)) == nullptr) {
    return kTooShort;  // a seek behind an end that nobody knows
  }
  LearnEnd(cache);
  return kStreamDone;
}

void EndRequest(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  LOG_TRACE_AS(kName, "%s recv data finish currentRecvPos=%lld contentLength=%lld recvSize=%d",
               Wide(cache->currentRecvPos), Wide(cache->contentLength.load()), static_cast<int32_t>(cycle.received));
  const RequestEnd end = JudgeEnd(cache, cycle);
  cache->connectionLost = 1;
  if (end == kTooShort) {
    FinishFile(cache, cycle);
    TakeFailure(cache, ZV_HTTP_CODE_FAILED);
    return;
  }
  if (end == kStreamDone) {
    MarkLast(cache, cycle.node);
    LOG_TRACE_AS(kName, "%s 2 cacheFile %s is last", cycle.file->cacheFileName);
  }
  ZV_HttpBaseCacheFileSetWriteFinish(cycle.file);
  ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  NoteIfEnough(cache);
  ZV_HttpBaseCacheReportCacheState(cache);
  LOG_TRACE_AS(kName, "%s recv data finish cacheFile=%s cacheSize=%d startPosInStream=%lld", cycle.file->cacheFileName,
               cycle.file->cacheSize, Wide(cycle.startPos));
}

const char* NameOf(const CacheFileNode* node) {
  return node->cacheFile == nullptr ? "(null)" : node->cacheFile->cacheFileName;
}

// The connection was opened elsewhere, or failed. What has been written stays for seeking back.
void DropReceive(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  LOG_TRACE_AS(kName, "%s shoud abort current recving  currWriteNode=%p nextWriteNode=%p httpResponseError=%d",
               static_cast<void*>(cycle.node), static_cast<void*>(cache->nextWriteNode), cache->httpResponseError);
  LOG_TRACE_AS(kName,
               "%s shoud abort while recving %s nextWriteFile=%s currentRecvPos=%lld startPosInStream=%lld "
               "cacheSize=%d isWaitForHttpNotify=%d abortCurrRecving=%d",
               cycle.file->cacheFileName, NameOf(cache->nextWriteNode), Wide(cache->currentRecvPos),
               Wide(cycle.file->startPosInStream), cycle.file->cacheSize, cache->isWaitForHttpNotify,
               cache->abortCurrRecving);
  FinishFile(cache, cycle);
  ZV_HttpBaseCacheDeleteNode(cache, nullptr);
  cache->abortCurrRecving = 1;  // nothing goes on from here by itself
  if (cache->seekWanted == 0) {
    ZV_HttpBaseCacheUpdateCurrentCacheSize(cache);
  }
  NoteIfEnough(cache);
}

// The bytes that could not be written are asked for again, for the next file.
bool EndFailedFile(HttpBaseCache* cache, const Cycle& cycle) ZV_REQUIRES(cache->cacheCondition) {
  cache->connectionLost = 1;
  if (IsEmpty(cycle.node)) {
    return false;
  }
  FinishFile(cache, cycle);
  NoteIfEnough(cache);
  return true;
}

bool EndCycle(HttpBaseCache* cache, const Cycle& cycle, Outcome outcome) ZV_REQUIRES(cache->cacheCondition) {
  switch (outcome) {
    case kFull:
      EndFullFile(cache, cycle);
      return true;
    case kFinished:
      EndRequest(cache, cycle);
      return true;
    case kDropped:
      DropReceive(cache, cycle);
      return true;
    case kWriteFailed:
      return EndFailedFile(cache, cycle);
    case kAborted:
      break;
  }
  LOG_TRACE_AS(kName, "%s abort cache for calling release while recving %s", cycle.file->cacheFileName);
  return true;
}

}  // namespace

int32_t ReadBlock(HttpBaseCache* cache, uint32_t* count) {
  uint8_t* const buffer = static_cast<uint8_t*>(cache->recvBuffer);
  constexpr uint32_t kSize = kReceiveBytes;
  uint32_t received = 0;
  int32_t more = 1;
  *count = 0;
  do {  // one read ends where a piece of the downloader's buffer does
    received = 0;
    more = ZV_HttpBaseRead(cache->httpBase, buffer + *count, kSize - *count, &received);
    *count += received;
  } while (more == 1 && received > 0 && *count < kSize);
  return more;
}

bool ReceiveCycle(HttpBaseCache* cache) {
  Cycle cycle = {};
  cycle.node = cache->nextWriteNode;
  cycle.file = cycle.node->cacheFile;
  cycle.generation = cache->generation;
  cycle.startPos = cache->currentRecvPos;
  cycle.preparesNext = true;
  cache->isResting = 0;
  cache->cycleNode = cycle.node;
  const Outcome outcome = Receive(cache, &cycle);
  cache->cycleNode = nullptr;
  return EndCycle(cache, cycle, outcome);
}
