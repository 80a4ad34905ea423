// The ring buffer. Service threads push, one caller thread reads, the monitor re-cuts, completes and ends. Every access
// is made under the buffer's own mutex, which is a leaf.
#include "ZVHttpBase/RingBuffer.h"

#include <algorithm>
#include <cstring>

#include "ZVHttpBase/Records.h"

namespace {

int32_t RoomIn(const RingBufferFragment& fragment) {
  return fragment.startOffset + fragment.length - fragment.writeOffset;
}

int32_t After(const RingBuffer* rb, int32_t fragmentIdx) ZV_REQUIRES(rb->mutex) {
  return (fragmentIdx + 1) % rb->fragmentCount;
}

void Empty(RingBufferFragment* fragment) {
  fragment->dataLen = 0;
  fragment->readOffset = fragment->startOffset;
  fragment->writeOffset = fragment->startOffset;
  fragment->state = kFragmentFree;
}

void SetFragment(RingBufferFragment* fragment, int32_t index, int32_t length) {
  fragment->length = length;
  fragment->startOffset = index * length;
  Empty(fragment);
}

void EmptyAll(RingBuffer* rb) ZV_REQUIRES(rb->mutex) {
  for (int32_t i = 0; i < rb->fragmentCount; ++i) {
    Empty(&rb->fragments[i]);
  }
  rb->readIndex = 0;
  rb->freeFragmentNum = rb->fragmentCount;
}

void LoseArray(RingBuffer* rb) ZV_REQUIRES(rb->mutex) {
  ZV_Free(&rb->data);
  ZV_Free(&rb->fragments);
  rb->size = 0;
  rb->fragmentCount = 0;
  rb->freeFragmentNum = 0;
  rb->readIndex = 0;
  rb->notReady = -1;
}

// A complete fragment is never written: with room left it was the end of a download, without it is still unread.
PushFit FitOf(const RingBuffer* rb, int32_t fragmentIdx, uint32_t len) ZV_REQUIRES(rb->mutex) {
  const RingBufferFragment& fragment = rb->fragments[fragmentIdx];
  if (fragment.state == kFragmentComplete) {
    return kPushNextBusy;
  }
  const uint32_t room = static_cast<uint32_t>(RoomIn(fragment));
  if (len <= room) {
    return kPushOneFragment;
  }
  const int32_t nextIdx = After(rb, fragmentIdx);
  if (nextIdx == fragmentIdx) {
    return kPushTooLong;
  }
  const RingBufferFragment& next = rb->fragments[nextIdx];
  if (next.state != kFragmentFree) {
    return kPushNextBusy;
  }
  return len - room > static_cast<uint32_t>(next.length) ? kPushTooLong : kPushTwoFragments;
}

void Append(RingBuffer* rb, int32_t fragmentIdx, const uint8_t* bytes, int32_t len) ZV_REQUIRES(rb->mutex) {
  RingBufferFragment& fragment = rb->fragments[fragmentIdx];
  if (fragment.writeOffset == fragment.startOffset) {
    --rb->freeFragmentNum;
  }
  memcpy(rb->data + fragment.writeOffset, bytes, static_cast<size_t>(len));
  fragment.dataLen += len;
  fragment.writeOffset += len;
  fragment.state = RoomIn(fragment) == 0 ? kFragmentComplete : kFragmentWriting;
}

void Recycle(RingBuffer* rb) ZV_REQUIRES(rb->mutex) {
  RingBufferFragment& fragment = rb->fragments[rb->readIndex];
  if (fragment.writeOffset != fragment.startOffset) {
    ++rb->freeFragmentNum;
  }
  Empty(&fragment);
  rb->readIndex = After(rb, rb->readIndex);
}

// The end has been reached where nothing writes any more and the fragment to read from brings nothing more.
bool IsAtEnd(const RingBuffer* rb) ZV_REQUIRES(rb->mutex) {
  if (rb->writing != 0) {
    return false;
  }
  if (rb->fragmentCount == 0) {
    return true;
  }
  const RingBufferFragment& fragment = rb->fragments[rb->readIndex];
  return fragment.state != kFragmentComplete && (fragment.dataLen == 0 || rb->wholeContentMode == 1);
}

uint32_t TakeBytes(RingBuffer* rb, void* buffer, uint32_t size, bool* freed) ZV_REQUIRES(rb->mutex) {
  RingBufferFragment& fragment = rb->fragments[rb->readIndex];
  const uint32_t count = std::min(static_cast<uint32_t>(fragment.dataLen), size);
  memcpy(buffer, rb->data + fragment.readOffset, count);
  fragment.dataLen -= static_cast<int32_t>(count);
  fragment.readOffset += static_cast<int32_t>(count);
  if (fragment.state == kFragmentComplete && fragment.dataLen == 0) {
    Recycle(rb);
    *freed = true;
  }
  return count;
}

const char* CheckFragment(const RingBufferFragment& f) {
  if (f.startOffset > f.readOffset || f.readOffset > f.writeOffset || f.writeOffset > f.startOffset + f.length) {
    return "invariant 1: offsets out of order";
  }
  if (f.dataLen != f.writeOffset - f.readOffset) {
    return "invariant 2: dataLen is not what lies between the offsets";
  }
  if (f.state == kFragmentFree && (f.dataLen != 0 || f.writeOffset != f.startOffset)) {
    return "invariant 3: a free fragment is not empty";
  }
  return nullptr;
}

}  // namespace

int32_t ZVIner_RingBufferFragmentInit(RingBuffer* rb, int32_t fragmentLength) {
  if (rb == nullptr || fragmentLength <= 0 || fragmentLength > rb->size) {
    return kRingBadArgument;
  }
  ZV_Free(&rb->fragments);
  const size_t bytes = static_cast<size_t>(rb->fragmentCount) * sizeof(RingBufferFragment);
  rb->fragments = static_cast<RingBufferFragment*>(ZV_Calloc(bytes));
  if (rb->fragments == nullptr) {
    LOG_FAILURE("%s: Calloc memory for ringBuffer fragment Infomation fail!");
    return kRingFailed;
  }
  for (int32_t i = 0; i < rb->fragmentCount; ++i) {
    SetFragment(&rb->fragments[i], i, fragmentLength);
  }
  return kRingOk;
}

int32_t ZVIner_RingBufferInit(RingBuffer* rb) {
  if (rb == nullptr) {
    return kRingBadArgument;
  }
  rb->mutex = ZV_MutexInit();
  if (rb->mutex == nullptr) {
    return kRingFailed;
  }
  const MutexGuard guard(rb->mutex);
  rb->size = kRingBytes;
  rb->fragmentCount = kFirstFragments;
  rb->freeFragmentNum = kFirstFragments;
  rb->readIndex = 0;
  rb->writing = -1;
  // Fresh zero pages are not resident until a download writes to them.
  rb->data = static_cast<uint8_t*>(ZV_Calloc(kRingBytes));
  if (rb->data == nullptr) {
    LOG_FAILURE("%s: Calloc memory for ringBuffer fail!");
    LoseArray(rb);
    return kRingFailed;
  }
  if (ZVIner_RingBufferFragmentInit(rb, kFirstFragmentBytes) != kRingOk) {
    LOG_FAILURE("%s: ZVIner_RingBufferFragmentInit fail!");
    LoseArray(rb);
    return kRingFailed;
  }
  rb->notReady = 0;
  return kRingOk;
}

int32_t ZVIner_RingBufferReInit(RingBuffer* rb, int32_t newSize, int32_t fragmentLength) {
  if (rb == nullptr || newSize <= 0 || fragmentLength <= 0 || fragmentLength > newSize) {
    return kRingBadArgument;
  }
  const MutexGuard guard(rb->mutex);
  if (rb->size < newSize) {
    ZV_Free(&rb->data);
    rb->size = newSize;
    rb->data = static_cast<uint8_t*>(ZV_Malloc(static_cast<size_t>(newSize)));
    if (rb->data == nullptr) {
      LoseArray(rb);
      LOG_FAILURE("%s: Calloc memery for ringBuffer fail!");
      return kRingFailed;
    }
  }
  rb->fragmentCount = rb->size / fragmentLength;
  rb->readIndex = 0;
  rb->fragmentLength = fragmentLength;
  rb->freeFragmentNum = rb->fragmentCount;
  rb->notReady = 0;
  rb->writing = -1;
  if (ZVIner_RingBufferFragmentInit(rb, fragmentLength) != kRingOk) {
    LoseArray(rb);
    return kRingFailed;
  }
  return kRingOk;
}

int32_t ZVIner_RingBufferGrow(RingBuffer* rb, int32_t* fragmentIdx) {
  const MutexGuard guard(rb->mutex);
  if (rb->fragmentCount == 0) {
    return kRingFailed;
  }
  const int32_t length = rb->fragments[0].length;
  const int64_t newCount = std::min<int64_t>(int64_t{2} * rb->fragmentCount, kWholeResourceMaxBytes / length);
  if (newCount <= rb->fragmentCount) {
    return kRingFailed;
  }
  const size_t newBytes = static_cast<size_t>(newCount) * static_cast<size_t>(length);
  uint8_t* data = static_cast<uint8_t*>(ZV_Malloc(newBytes));
  RingBufferFragment* fragments =
      static_cast<RingBufferFragment*>(ZV_Calloc(static_cast<size_t>(newCount) * sizeof(RingBufferFragment)));
  if (data == nullptr || fragments == nullptr) {
    ZV_Free(&data);
    ZV_Free(&fragments);
    LOG_FAILURE("%s: Calloc memery for ringBuffer fail!");
    return kRingFailed;
  }
  const int32_t oldCount = rb->fragmentCount;
  memcpy(data, rb->data, static_cast<size_t>(oldCount) * static_cast<size_t>(length));
  memcpy(fragments, rb->fragments, static_cast<size_t>(oldCount) * sizeof(RingBufferFragment));
  for (int32_t i = oldCount; i < newCount; ++i) {
    SetFragment(&fragments[i], i, length);
  }
  if (*fragmentIdx == 0 && fragments[0].state == kFragmentComplete) {
    *fragmentIdx = oldCount;
  }
  ZV_Free(&rb->data);
  ZV_Free(&rb->fragments);
  rb->data = data;
  rb->fragments = fragments;
  rb->size = static_cast<int32_t>(newBytes);
  rb->fragmentCount = static_cast<int32_t>(newCount);
  rb->freeFragmentNum += static_cast<int32_t>(newCount) - oldCount;
  return kRingOk;
}

int32_t ZVIner_RingBufferPush(RingBuffer* rb, int32_t fragmentIdx, int32_t* nextIdx, const void* bytes, uint32_t len) {
  bool busy = false;
  return ZVIner_RingBufferPushAndTell(rb, fragmentIdx, nextIdx, bytes, len, &busy);
}

int32_t ZVIner_RingBufferPushAndTell(RingBuffer* rb, int32_t fragmentIdx, int32_t* nextIdx, const void* bytes,
                                     uint32_t len, bool* busy) {
  *busy = false;
  if (bytes == nullptr || len == 0 || nextIdx == nullptr || fragmentIdx < 0) {
    return kRingBadArgument;
  }
  const MutexGuard guard(rb->mutex);
  if (fragmentIdx >= rb->fragmentCount) {
    return kRingBadArgument;
  }
  *nextIdx = fragmentIdx;
  if (rb->notReady != 0) {
    LOG_ERROR_AS("ZVIner_RingBufferPush", "%s: Buffer is not ready!");
    return kRingFailed;
  }
  const PushFit fit = FitOf(rb, fragmentIdx, len);
  const int32_t room = RoomIn(rb->fragments[fragmentIdx]);
  const int32_t count = static_cast<int32_t>(len);
  const int32_t next = After(rb, fragmentIdx);
  if (fit == kPushOneFragment) {
    Append(rb, fragmentIdx, static_cast<const uint8_t*>(bytes), count);
    *nextIdx = count == room ? next : fragmentIdx;
    return kRingOk;
  }
  LOG_TRACE_AS("ZVIner_RingBufferPush", "%s: [%p]write two fragmentIdx=%d, msglen=%u, next state=%d, nextwriteData=%d",
               static_cast<void*>(rb), fragmentIdx, len, rb->fragments[next].state, rb->fragments[next].dataLen);
  if (fit == kPushNextBusy) {
    LOG_TRACE_AS(
        "ZVIner_RingBufferPush",
        "%s: [%p]buffer is not enough, download should be paused, fragmentIdx=%d, msglen=%u, next state=%d, nextwriteData=%d",
        static_cast<void*>(rb), fragmentIdx, len, rb->fragments[next].state, rb->fragments[next].dataLen);
    *busy = true;
    return kRingFailed;
  }
  if (fit == kPushTooLong) {
    LOG_FAILURE_AS("ZVIner_RingBufferPush",
                   "%s: Message length[%u] too long to write to fragment %u, please increase segment Length", len,
                   static_cast<unsigned>(fragmentIdx));
    return kRingFailed;
  }
  if (room > 0) {
    Append(rb, fragmentIdx, static_cast<const uint8_t*>(bytes), room);
  }
  Append(rb, next, static_cast<const uint8_t*>(bytes) + room, count - room);
  *nextIdx = rb->fragments[next].state == kFragmentComplete ? After(rb, next) : next;
  return kRingOk;
}

int32_t ZVIner_RingBufferRead(RingBuffer* rb, void* buffer, uint32_t size, uint32_t* readLen) {
  bool freed = false;
  return ZVIner_RingBufferReadAndTell(rb, buffer, size, readLen, &freed);
}

int32_t ZVIner_RingBufferReadAndTell(RingBuffer* rb, void* buffer, uint32_t size, uint32_t* readLen, bool* freed) {
  *freed = false;
  if (buffer == nullptr || readLen == nullptr || size == 0) {
    return kRingBadArgument;
  }
  *readLen = 0;
  const MutexGuard guard(rb->mutex);
  if (rb->notReady != 0) {
    return kRingAgain;
  }
  if (IsAtEnd(rb)) {
    return kRingOk;
  }
  if (rb->fragmentCount == 0) {
    return kRingAgain;
  }
  const RingBufferFragment& fragment = rb->fragments[rb->readIndex];
  if (rb->wholeContentMode == 1 && fragment.state != kFragmentComplete) {
    return kRingAgain;
  }
  if (fragment.dataLen == 0) {
    if (fragment.state == kFragmentComplete) {
      Recycle(rb);
      *freed = true;
    }
    return kRingAgain;
  }
  *readLen = TakeBytes(rb, buffer, size, freed);
  return IsAtEnd(rb) ? kRingOk : kRingAgain;
}

void ZVIner_RingBufferRelease(RingBuffer* rb) {
  if (rb->mutex == nullptr) {
    return;
  }
  {
    const MutexGuard guard(rb->mutex);
    LoseArray(rb);
    rb->wholeContentMode = 0;
    rb->fragmentLength = 0;
    rb->writing = -1;
  }
  ZV_MutexRelease(&rb->mutex);
}

bool ZVIner_RingBufferHasRoom(RingBuffer* rb, int32_t fragmentIdx, uint32_t len) {
  const MutexGuard guard(rb->mutex);
  // A buffer that is not ready, or has shrunk under the writer, refuses for good: let the writer find out.
  return rb->notReady != 0 || fragmentIdx < 0 || fragmentIdx >= rb->fragmentCount ||
         FitOf(rb, fragmentIdx, len) != kPushNextBusy;
}

bool ZVIner_RingBufferTakesRange(RingBuffer* rb, int32_t fragmentIdx) {
  const MutexGuard guard(rb->mutex);
  return fragmentIdx < rb->fragmentCount && rb->fragments[fragmentIdx].state == kFragmentFree &&
         rb->freeFragmentNum >= 2;
}

bool ZVIner_RingBufferIsReadable(RingBuffer* rb) {
  const MutexGuard guard(rb->mutex);
  if (rb->notReady != 0) {
    return false;
  }
  if (rb->writing == 0 || rb->fragmentCount == 0) {
    return rb->writing == 0;
  }
  const RingBufferFragment& fragment = rb->fragments[rb->readIndex];
  return rb->wholeContentMode == 1 ? fragment.state == kFragmentComplete
                                   : fragment.dataLen > 0 || fragment.state == kFragmentComplete;
}

int32_t ZVIner_RingBufferFragmentCount(RingBuffer* rb) {
  const MutexGuard guard(rb->mutex);
  return rb->fragmentCount;
}

void ZVIner_RingBufferSetWholeContent(RingBuffer* rb, bool whole) {
  const MutexGuard guard(rb->mutex);
  rb->wholeContentMode = whole ? 1 : 0;
}

void ZVIner_RingBufferSetNotReady(RingBuffer* rb) {
  const MutexGuard guard(rb->mutex);
  rb->notReady = -1;
}

void ZVIner_RingBufferClaim(RingBuffer* rb, int32_t fragmentIdx) {
  const MutexGuard guard(rb->mutex);
  if (fragmentIdx < rb->fragmentCount && rb->fragments[fragmentIdx].state == kFragmentFree) {
    rb->fragments[fragmentIdx].state = kFragmentWriting;
  }
}

void ZVIner_RingBufferComplete(RingBuffer* rb, int32_t fragmentIdx) {
  const MutexGuard guard(rb->mutex);
  if (fragmentIdx >= 0 && fragmentIdx < rb->fragmentCount && rb->fragments[fragmentIdx].state == kFragmentWriting) {
    rb->fragments[fragmentIdx].state = kFragmentComplete;
  }
}

void ZVIner_RingBufferDrop(RingBuffer* rb) {
  const MutexGuard guard(rb->mutex);
  EmptyAll(rb);
}

void ZVIner_RingBufferEndWriting(RingBuffer* rb) {
  const MutexGuard guard(rb->mutex);
  if (rb->notReady != 0) {
    EmptyAll(rb);
    rb->notReady = 0;
  }
  rb->writing = 0;
}

const char* ZVIner_CheckRingBuffer(RingBuffer* rb) {
  const MutexGuard guard(rb->mutex);
  int32_t untouched = 0;
  for (int32_t i = 0; i < rb->fragmentCount; ++i) {
    const RingBufferFragment& fragment = rb->fragments[i];
    if (const char* broken = CheckFragment(fragment)) {
      return broken;
    }
    untouched += fragment.writeOffset == fragment.startOffset ? 1 : 0;
  }
  if (untouched != rb->freeFragmentNum) {
    return "invariant 4: freeFragmentNum does not count the untouched fragments";
  }
  if (rb->fragmentCount > 0 && int64_t{rb->fragmentCount} * rb->fragments[0].length > rb->size) {
    return "invariant 5: the fragments are larger than the array";
  }
  return nullptr;
}
