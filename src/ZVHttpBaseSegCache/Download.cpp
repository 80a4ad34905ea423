// One download of one segment: open, wait for the answer, receive into the file, judge. On a worker's thread, which holds no
// lock while it opens, reads, waits or closes; every step looks at the flags first.
//
//   opening --200--> receiving --complete--> cached
//   opening --another code--> failed
//   opening, receiving --told to drop, failed, ended short--> waiting
//   receiving --no file, write failed--> the local cache is given up
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

constexpr char kName[] = "SegCacheThread";

// What is to become of the download.
enum Course { kGoOn, kDrop, kRefused, kGiveUp, kEnded };

struct Transfer {
  SegCacheThreadArg* arg;
  HttpBaseSegCache* cache;
  HttpBaseSegCacheSegment* segment;
  HttpBaseSegCacheStream* stream;
  HttpBaseCacheFile* file;  // the segment's; written by this worker alone
  uint8_t* buffer;
};

// A failure ahead of the reader stops everything but the segment that is being read.
bool MustDrop(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex) {
  return IsEnding(cache) || cache->abortSignal[worker] != 0 || cache->isTsListFailed != 0 ||
         (cache->waitForRetry != 0 && cache->working[worker] != ReadSegment(cache));
}

bool OpenStream(const Transfer& transfer) {
  const HttpBaseSegCacheSegment* const segment = transfer.segment;
  if (segment->isRange != 0) {
    ZV_HttpBaseSegCacheStreamSetRange(transfer.stream, RangeStartOf(segment), RangeEndOf(segment));
  }
  // A whole resource knows no range.
  const int32_t flag = segment->isRange != 0 ? -1 : transfer.cache->needDownloadComplete.load();
  ZV_HttpBaseSegCacheStreamSetNeedDownloadComplete(transfer.stream, flag);
  return ZV_HttpBaseSegCacheStreamOpen(transfer.stream, transfer.arg->url) == 0;
}

void LogSignal(const Transfer& transfer) ZV_REQUIRES(transfer.cache->mutex) {
  const int32_t i = transfer.arg->index;
  if (IsEnding(transfer.cache)) {
    LOG_TRACE_AS(kName, "%s thread %d abort cache for calling release so no wait", i);
    return;
  }
  LOG_TRACE_AS(kName,
               "%s thread %d has been signaled httpResponse=%d abortCacheThread=%d abortSignal=%d isTsListFailed=%d "
               "waitForRetry=%d for opening %s ",
               i, transfer.segment->httpResponse, transfer.cache->abortCacheThread.load(),
               transfer.cache->abortSignal[i], transfer.cache->isTsListFailed, transfer.cache->waitForRetry,
               transfer.arg->url);
}

// The read segment whose transfer has failed stays as it is until its next message or the next Open.
Course LookAtAnswer(const Transfer& transfer, bool* waits) {
  const SegGuard guard(transfer.cache);
  const HttpBaseSegCacheSegment* const segment = transfer.segment;
  const bool isDropped = MustDrop(transfer.cache, transfer.arg->index);
  *waits = !isDropped && segment->state == kSegmentOpening;
  if (*waits) {
    LOG_TRACE_AS(kName, "%s thread %d wait for opening %s", transfer.arg->index, transfer.arg->url);
    return kGoOn;
  }
  LogSignal(transfer);
  if (isDropped) {
    return kDrop;
  }
  if (segment->transferFailed != 0 || segment->httpResponse == 0) {
    return kDrop;
  }
  return segment->httpResponse == ZV_HTTP_CODE_OK ? kGoOn : kRefused;
}

Course AwaitAnswer(const Transfer& transfer) {
  bool waits = true;
  Course course = kGoOn;
  while (waits) {
    const uint32_t seen = transfer.arg->wakeUps.load();
    course = LookAtAnswer(transfer, &waits);
    if (waits) {
      SleepUntilWoken(transfer.cache, transfer.arg->index, seen);
    }
  }
  return course;
}

Course TakeFile(Transfer* transfer) {
  transfer->file = ZV_HttpBaseSegCacheCreateCacheFile(transfer->cache);
  if (transfer->file == nullptr) {
    LOG_TRACE_AS(kName, "%s thread %d init cache file failed", transfer->arg->index);
    return kGiveUp;
  }
  ZV_HttpBaseCacheFileSetStartPosInStream(transfer->file, 0);
  const SegGuard guard(transfer->cache);
  transfer->segment->cacheFile = transfer->file;
  return kGoOn;
}

Course LookWhileReceiving(const Transfer& transfer) {
  HttpBaseSegCache* const cache = transfer.cache;
  const int32_t i = transfer.arg->index;
  const SegGuard guard(cache);
  if (!MustDrop(cache, i) && transfer.segment->transferFailed == 0) {
    return kGoOn;
  }
  if (IsEnding(cache)) {
    LOG_TRACE_AS(kName, "%s thread %d abort while recving %s", i, transfer.arg->url);
    return kDrop;
  }
  LOG_TRACE_AS(kName, "%s thread %d abortSignal=%d isTsListFailed=%d waitForRetry=%d abort recving %s", i,
               cache->abortSignal[i], cache->isTsListFailed, cache->waitForRetry, transfer.arg->url);
  return kDrop;
}

struct Seen {
  const SegCacheThreadArg* arg;
  uint32_t wakeUps;
};

bool IsWoken(void* argument) {
  const Seen* const seen = static_cast<const Seen*>(argument);
  return seen->arg->wakeUps.load() != seen->wakeUps;
}

Course StoreBytes(const Transfer& transfer, uint32_t count) {
  const ConditionGuard guard(transfer.cache->conditions[transfer.arg->index]);
  if (ZV_HttpBaseCacheFileWriteDataToCacheFile(transfer.file, transfer.buffer, count) == 0) {
    return kGoOn;
  }
  LOG_ERROR_AS(kName, "%s thread %d write failed to %s", transfer.arg->index,
               Printable(ZV_HttpBaseCacheFileGetFileName(transfer.file)));
  return kGiveUp;
}

// Waits for bytes, or for a wake-up, and stores what has come.
Course ReceiveSome(const Transfer& transfer) {
  Seen seen = {transfer.arg, transfer.arg->wakeUps.load()};
  const Course course = LookWhileReceiving(transfer);
  if (course != kGoOn) {
    return course;
  }
  ZVIner_WaitReadable(transfer.stream->httpBase, INT32_MAX, IsWoken, &seen);
  if (IsWoken(&seen)) {
    return kGoOn;
  }
  uint32_t count = 0;
  const int32_t more = ZV_HttpBaseSegCacheStreamRead(transfer.stream, transfer.buffer, kWorkerBufferBytes, &count);
  const Course stored = count > 0 ? StoreBytes(transfer, count) : kGoOn;
  return stored == kGoOn && more == 0 ? kEnded : stored;
}

Course Receive(Transfer* transfer) {
  Course course = TakeFile(transfer);
  while (course == kGoOn) {
    course = ReceiveSome(*transfer);
  }
  return course;
}

// How many bytes the segment must have when its resource has length; -1: nobody knows.
int64_t ExpectedSize(const HttpBaseSegCacheSegment* segment, int64_t length) {
  if (length <= 0) {
    return -1;
  }
  const int64_t rest = std::max<int64_t>(length - RangeStartOf(segment), 0);
  const int64_t end = RangeEndOf(segment);
  return end < 0 ? rest : std::min(rest, end - RangeStartOf(segment) + 1);
}

// The transfer has ended by itself. Closes the stream: only then its result is final.
bool HasAllBytes(const Transfer& transfer) {
  const bool packed = ZVIner_IsContentEncoded(transfer.stream->httpBase) != 0;
  const int64_t length = ZV_HttpBaseSegCacheStreamGetContentLength(transfer.stream);
  const int64_t expected = packed ? -1 : ExpectedSize(transfer.segment, length);
  ZV_HttpBaseSegCacheStreamClose(transfer.stream);
  return ZVIner_HasEndedWell(transfer.stream->httpBase) != 0 &&
         (expected < 0 || expected == ZV_HttpBaseCacheFileGetCacheSize(transfer.file));
}

void KeepSegment(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex) {
  PutBack(cache, worker, kSegmentCached);
  if (cache->firstSegmentCached == 0) {
    cache->firstSegmentCached = 1;
    ZV_HttpBaseSegCacheNotifyAllThread(cache);  // the others have waited for this
  }
  ZV_HttpBaseSegCacheReportCacheTime(cache);
}

void FinishSegment(const Transfer& transfer) {
  LOG_TRACE_AS(kName, "%s thread %d recv finish %s", transfer.arg->index, transfer.arg->url);
  const bool complete = HasAllBytes(transfer);
  HttpBaseSegCache* const cache = transfer.cache;
  const SegGuard guard(cache);
  const bool isEnding = IsEnding(cache) && cache->givingUp < 0;
  if (isEnding || cache->abortSignal[transfer.arg->index] != 0 || transfer.segment->transferFailed != 0) {
    PutBack(cache, transfer.arg->index, kSegmentWaiting);
    return;
  }
  // The reader has had more of it than there is: this is another resource.
  if (!complete || transfer.segment->readerPos > ZV_HttpBaseCacheFileGetCacheSize(transfer.file)) {
    TakeTransferFailure(cache, transfer.arg->index, ZV_HTTP_CODE_FAILED);
    PutBack(cache, transfer.arg->index, kSegmentWaiting);
    return;
  }
  KeepSegment(cache, transfer.arg->index);
}

void LeaveSegment(const Transfer& transfer, SegmentState state) {
  {
    const SegGuard guard(transfer.cache);
    // The reader may have named it in the meantime, and has not heard of the answer then.
    const bool isDropped = transfer.cache->abortSignal[transfer.arg->index] != 0;
    PutBack(transfer.cache, transfer.arg->index, isDropped ? kSegmentWaiting : state);
  }
  ZV_HttpBaseSegCacheStreamClose(transfer.stream);
}

// Cannot happen unless memory is short: the segment is tried again a little later.
void RestAfterFailedOpen(const Transfer& transfer) {
  const uint32_t seen = transfer.arg->wakeUps.load();
  LeaveSegment(transfer, kSegmentWaiting);
  SleepUntilWokenFor(transfer.cache, transfer.arg->index, seen, kRetryMemoryMs);
}

}  // namespace

void DownloadSegment(SegCacheThreadArg* arg, HttpBaseSegCacheSegment* segment, void* buffer) {
  HttpBaseSegCache* const cache = arg->cache;
  Transfer transfer = {arg, cache, segment, cache->streams[arg->index], nullptr, static_cast<uint8_t*>(buffer)};
  if (!OpenStream(transfer)) {
    RestAfterFailedOpen(transfer);
    return;
  }
  Course course = AwaitAnswer(transfer);
  if (course == kGoOn) {
    course = Receive(&transfer);
  }
  switch (course) {
    case kEnded:
      FinishSegment(transfer);
      return;
    case kGiveUp:
      ZV_HttpBaseSegCacheReopenReadSegment(cache, arg->index);
      return;
    case kRefused:
      LeaveSegment(transfer, kSegmentFailed);
      return;
    case kGoOn:
    case kDrop:
      LeaveSegment(transfer, kSegmentWaiting);
      return;
  }
}
