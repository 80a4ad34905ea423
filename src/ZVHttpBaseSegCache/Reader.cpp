// Open, Read, Close: the reader's calls, one at a time. With the local cache on they keep the mutex for bookkeeping only;
// Read pins the file that it copies from.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

constexpr char kOpenName[] = "ZV_HttpBaseSegCacheOpen";
constexpr char kReadName[] = "ZV_HttpBaseSegCacheRead";

// Who answers a call.
enum Answerer { kDirect, kLocal, kNobodyYet };

Answerer WhoAnswers(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  if (!IsLocal(cache)) {
    return kDirect;
  }
  return cache->givingUp >= 0 ? kNobodyYet : kLocal;
}

// A worker is leaving the local cache: its condition is signalled when it has.
void WaitOutGivingUp(HttpBaseSegCache* cache) {
  int32_t worker = -1;
  uint32_t seen = 0;
  {
    const SegGuard guard(cache);
    worker = cache->givingUp;
    seen = worker < 0 ? 0 : cache->threadArgs[worker]->wakeUps.load();
  }
  if (worker >= 0) {
    SleepUntilWoken(cache, worker, seen);
  }
}

// ---- Open ----

bool IsTransferFailure(int32_t code) {
  return code == ZV_HTTP_CODE_FAILED || code == ZV_HTTP_CODE_UNREACHABLE;
}

// Whether a worker has the segment, or had it, and nothing has come to nought since.
bool IsInCache(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  const bool isDropped = segment->threadIndex >= 0 && cache->abortSignal[segment->threadIndex] != 0;
  return cache->endWriteIndex >= 0 && segment->state != kSegmentWaiting && segment->transferFailed == 0 && !isDropped;
}

// Makes the segment the one that is read. Null when it is not listed.
HttpBaseSegCacheSegment* ZV_HttpBaseSegCacheLocateReadSegment(HttpBaseSegCache* cache, const char* url)
    ZV_REQUIRES(cache->mutex) {
  const int32_t index = ZV_HttpBaseSegCacheGetIndexByUrl(cache, url);
  HttpBaseSegCacheSegment* const segment = SegmentAt(cache, index);
  if (segment != nullptr) {
    cache->currReadIndex = index;
    segment->openFlag = 0;
    segment->readerPos = 0;
  }
  return segment;
}

void ForgetFailures(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  cache->lastError = 0;
  cache->retryCount = 0;
  cache->waitForRetry = 0;
}

// True while the workers are to rest because of a failed transfer.
bool CountsAgainstRetry(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  if (!IsTransferFailure(cache->lastError)) {
    return false;
  }
  if (cache->retryCount < kOpensBeforeRetry) {
    cache->retryCount += 1;
    return true;
  }
  LOG_TRACE_AS(kOpenName, "%s should retry to connect to server");
  ForgetFailures(cache);
  return false;
}

void OpenCached(HttpBaseSegCache* cache, const HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  LOG_TRACE_AS(kOpenName, "%s In Cache");
  const bool rests = CountsAgainstRetry(cache);
  cache->currCacheTime = std::max(cache->currCacheTime - DurationOf(segment), 0);
  LOG_TRACE_AS(kOpenName, "%s In Cache httpResponse=%d", segment->httpResponse);
  if (segment->httpResponse != 0) {
    NoteMessage(cache, segment->httpResponse);
  }
  if (rests) {
    LOG_TRACE_AS(kOpenName, "%s transmission error and no need to retry");
    return;
  }
  ZV_HttpBaseSegCacheUpdateCacheList(cache);
}

// What the workers are at is dropped in favour of the new window.
void DropDownloads(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    if (cache->threads[worker] != nullptr && cache->working[worker] != nullptr) {
      cache->abortSignal[worker] = 1;
      NoteWake(cache, worker);
    }
  }
}

void OpenUncached(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  LOG_TRACE_AS(kOpenName, "%s Not In Cache lastError=%d", cache->lastError);
  if (cache->lastError != 0 && !IsTransferFailure(cache->lastError)) {
    if (segment != nullptr) {
      segment->transferFailed = 1;  // it is not to be fetched before it is opened again
    }
    NoteMessage(cache, cache->lastError);
    return;
  }
  LOG_TRACE_AS(kOpenName, "%s transmission error should retry so reset lastError without notifying outer");
  ForgetFailures(cache);
  if (segment != nullptr) {
    segment->transferFailed = 0;
  }
  DropDownloads(cache);
  ZV_HttpBaseSegCacheUpdateCacheList(cache);
}

Answerer OpenLocal(HttpBaseSegCache* cache, const char* url) {
  const SegGuard guard(cache);
  const Answerer who = WhoAnswers(cache);
  if (who != kLocal) {
    return who;
  }
  if (!HasList(cache)) {
    LOG_ERROR_AS(kOpenName, "%s there is no list yet");
    return kLocal;
  }
  HttpBaseSegCacheSegment* const segment = ZV_HttpBaseSegCacheLocateReadSegment(cache, url);
  if (segment != nullptr && IsInCache(cache, segment)) {
    OpenCached(cache, segment);
  } else {
    OpenUncached(cache, segment);
  }
  return kLocal;
}

// The player cannot know when the handle leaves the local cache, where Open needs no Close before it: from then on what is
// still open is closed here.
void EndContinuation(HttpBaseSegCache* cache) {
  if (cache->localCacheMade.load() == 0) {
    return;
  }
  cache->continued.store(kNotContinued);
  if (ZV_HttpBaseSegCacheStreamGetOpenFlag(cache->stream) == 0) {
    ZV_HttpBaseSegCacheStreamClose(cache->stream);
  }
  ZVIner_SetStrictRange(cache->stream->httpBase, 0);
}

// A range that was set since the local cache was turned on waits here, since what is still open is closed first.
void TakeKeptRange(HttpBaseSegCache* cache) {
  if (cache->localCacheMade.load() == 0) {
    return;
  }
  const SegGuard guard(cache);
  if (cache->hasRange != 0) {
    ZV_HttpBaseSegCacheStreamSetRange(cache->stream, cache->rangeStart, cache->rangeEnd);
    cache->hasRange = 0;
  }
}

int32_t OpenDirect(HttpBaseSegCache* cache, const char* url) {
  EndContinuation(cache);
  TakeKeptRange(cache);
  ZV_HttpBaseSegCacheStreamSetNeedDownloadComplete(cache->stream, cache->needDownloadComplete.load());
  return ZV_HttpBaseSegCacheStreamOpen(cache->stream, url);
}

// ---- Read ----

enum ReadKind { kReadDirect, kReadNothing, kReadNoSegment, kReadFile };

struct FileRead {
  ReadKind kind;
  HttpBaseCacheFile* file;  // pinned
  int32_t worker;           // writes it; -1: nobody
  bool complete;
  int64_t from;   // reader's position
  uint32_t size;  // at most
  uint32_t count;
  int64_t unread;  // behind what was read
  bool broken;     // the disk gave less than the file has
};

ReadKind JudgeRead(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  if (WhoAnswers(cache) != kLocal) {
    return WhoAnswers(cache) == kDirect ? kReadDirect : kReadNothing;
  }
  if (!HasList(cache)) {
    LOG_ERROR_AS(kReadName, "%s there is no list yet");
    return kReadNoSegment;
  }
  const HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  if (segment == nullptr) {
    LOG_FAILURE_AS(kReadName, "%s segment index %d is null", cache->currReadIndex);
    return kReadNoSegment;
  }
  if ((cache->isTsListFailed != 0 && segment->state != kSegmentCached) || segment->cacheFile == nullptr) {
    return kReadNothing;
  }
  return kReadFile;
}

FileRead BeginRead(HttpBaseSegCache* cache, int32_t size) {
  const SegGuard guard(cache);
  FileRead read = {JudgeRead(cache), nullptr, -1, false, 0, static_cast<uint32_t>(std::max(size, 0)), 0, 0, false};
  if (read.kind != kReadFile) {
    return read;
  }
  const HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  read.file = segment->cacheFile;
  read.worker = segment->threadIndex;
  read.complete = segment->state == kSegmentCached;
  read.from = segment->readerPos;
  cache->readingFile = read.file;
  cache->isReading = 1;
  return read;
}

// A file that is not yet as long as what the reader has had from an earlier one gives nothing.
void CopyFromFile(FileRead* read, void* buffer) {
  const int64_t behind = ZV_HttpBaseCacheFileGetCacheSize(read->file) - read->from;
  if (behind <= 0) {
    return;
  }
  ZV_HttpBaseCacheFileSetReadPosInStream(read->file, read->from);
  ZV_HttpBaseCacheFileReadDataFromCacheFile(read->file, buffer, read->size, &read->count);
  read->unread = ZV_HttpBaseCacheFileGetUnreadSize(read->file);
  read->broken = read->count < std::min<int64_t>(read->size, behind);
}

void CopyWhileWritten(HttpBaseSegCache* cache, FileRead* read, void* buffer) {
  const ConditionGuard guard(cache->conditions[read->worker]);
  CopyFromFile(read, buffer);
}

void Unpin(HttpBaseSegCache* cache) ZV_REQUIRES(cache->mutex) {
  if (cache->readingFileIsLost != 0) {
    NoteLostFile(cache, cache->readingFile);
  }
  cache->readingFile = nullptr;
  cache->readingFileIsLost = 0;
  cache->isReading = 0;
  if (cache->givingUp >= 0) {
    NoteWake(cache, cache->givingUp);
  }
}

// About once a second of media.
void ReportWhileReading(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment, const FileRead& read)
    ZV_REQUIRES(cache->mutex) {
  segment->readBytes = ToInt32(static_cast<int64_t>(segment->readBytes) + read.count);
  if (segment->byteRate > 0 && segment->readBytes > segment->byteRate) {
    const int64_t unreadMs = read.unread * 1000 / segment->byteRate;
    NoteState(cache, ZV_SEG_CACHE_STATE_BUFFERED, ToInt32(unreadMs + cache->currCacheTime));
    segment->readBytes = 0;
  }
}

// A file that does not give back what was written is of no use: the segment is fetched again, read on where it was.
void LoseBrokenFile(HttpBaseSegCache* cache, HttpBaseSegCacheSegment* segment) ZV_REQUIRES(cache->mutex) {
  if (segment->threadIndex >= 0) {
    cache->abortSignal[segment->threadIndex] = 1;
    NoteWake(cache, segment->threadIndex);
  } else if (segment->state == kSegmentCached) {
    LoseFile(cache, segment);
    segment->httpResponse = 0;
    segment->state = kSegmentWaiting;
    ZV_HttpBaseSegCacheNotifyAllThread(cache);
  }
}

int32_t EndRead(HttpBaseSegCache* cache, const FileRead& read) {
  const SegGuard guard(cache);
  Unpin(cache);
  HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  if (segment == nullptr) {
    return 1;
  }
  segment->readerPos += read.count;
  if (read.broken) {
    LoseBrokenFile(cache, segment);
    return 1;
  }
  ReportWhileReading(cache, segment, read);
  if (!read.complete || read.unread > 0) {
    return 1;
  }
  NoteState(cache, ZV_SEG_CACHE_STATE_BUFFERED, cache->currCacheTime);
  return 0;
}

int32_t ReadFromFile(HttpBaseSegCache* cache, FileRead* read, void* buffer, uint32_t* readSize) {
  if (read->worker >= 0) {
    CopyWhileWritten(cache, read, buffer);
  } else {
    CopyFromFile(read, buffer);
  }
  *readSize = read->count;
  return EndRead(cache, *read);
}

int32_t ReadDirect(HttpBaseSegCache* cache, void* buffer, int32_t size, uint32_t* readSize) {
  const int32_t continued = cache->continued.load();
  if (continued == kContinuedEnd || continued == kContinuedFailed) {
    return continued == kContinuedEnd ? 0 : 1;
  }
  const int32_t result =
      ZV_HttpBaseSegCacheStreamRead(cache->stream, buffer, static_cast<uint32_t>(std::max(size, 0)), readSize);
  // What came just before the failure was reported may be an error's body.
  const int32_t now = cache->continued.load();
  if (now == kContinuedFailed || now == kContinuedEnd) {
    *readSize = 0;
    return now == kContinuedEnd ? 0 : 1;
  }
  return result;
}

// ---- Close ----

Answerer CloseLocal(HttpBaseSegCache* cache) {
  const SegGuard guard(cache);
  const Answerer who = WhoAnswers(cache);
  HttpBaseSegCacheSegment* const segment = ReadSegment(cache);
  if (who == kLocal && segment != nullptr) {
    segment->openFlag = 1;
  }
  return who;
}

int32_t CloseDirect(HttpBaseSegCache* cache) {
  const bool isContinued = cache->continued.load() != kNotContinued;
  const int32_t result = isContinued ? 0 : ZV_HttpBaseSegCacheStreamClose(cache->stream);
  EndContinuation(cache);
  return result;
}

}  // namespace

extern "C" int32_t ZV_HttpBaseSegCacheOpen(HttpBaseSegCache* cache, const char* url) {
  if (!HasParams(__func__, cache != nullptr && url != nullptr) || !MayStop(__func__, cache)) {
    return -1;
  }
  while (IsLocal(cache)) {
    const Answerer who = OpenLocal(cache, url);
    if (who == kLocal) {
      return 0;
    }
    if (who == kNobodyYet) {
      WaitOutGivingUp(cache);
    }
  }
  return OpenDirect(cache, url);
}

extern "C" int32_t ZV_HttpBaseSegCacheRead(HttpBaseSegCache* cache, void* buffer, int32_t size, uint32_t* readSize) {
  if (!HasParams(__func__, cache != nullptr && buffer != nullptr && readSize != nullptr)) {
    return -1;
  }
  *readSize = 0;
  if (!IsLocal(cache)) {
    return ReadDirect(cache, buffer, size, readSize);
  }
  FileRead read = BeginRead(cache, size);
  switch (read.kind) {
    case kReadDirect:
      return ReadDirect(cache, buffer, size, readSize);
    case kReadNothing:
      return 1;
    case kReadNoSegment:
      return -1;
    case kReadFile:
      return ReadFromFile(cache, &read, buffer, readSize);
  }
  return -1;
}

extern "C" int32_t ZV_HttpBaseSegCacheClose(HttpBaseSegCache* cache) {
  if (!HasParams(__func__, cache != nullptr) || !MayStop(__func__, cache)) {
    return -1;
  }
  cache->needDownloadComplete.store(-1);
  while (IsLocal(cache)) {
    const Answerer who = CloseLocal(cache);
    if (who == kLocal) {
      return 0;
    }
    if (who == kNobodyYet) {
      WaitOutGivingUp(cache);
    }
  }
  return CloseDirect(cache);
}
