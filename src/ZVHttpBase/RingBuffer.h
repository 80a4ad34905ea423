// The ring buffer: one byte array cut into equal fragments that connections fill and one reader empties, in order.
//
// When empty: every fragment is free; a read gives 1 while the download writes, 0 once it has ended. When full: the next
// fragment is still unread; a push is refused whole and changes nothing, the connection pauses and offers the same bytes
// again. A fragment that was given up half filled is a hole: reads end there, what lies behind is never delivered.
//
// Invariants, for every fragment, under the mutex (ZVIner_CheckRingBuffer executes them):
//  1. startOffset <= readOffset <= writeOffset <= startOffset + length
//  2. dataLen = writeOffset - readOffset
//  3. a free fragment is empty: dataLen 0 and both offsets at startOffset
//  4. freeFragmentNum = number of fragments that received no byte since they were last emptied
//  5. fragmentCount * length <= size; without an array both are 0
#pragma once

#include <cstdint>

#include "Common/Guard.h"

constexpr int32_t kRingBytes = 4194304;
constexpr int32_t kFirstFragments = 8;
constexpr int32_t kFirstFragmentBytes = 512000;
// The most that a whole-resource download may hold in memory.
constexpr int64_t kWholeResourceMaxBytes = 1073741824;

enum FragmentState : int32_t { kFragmentFree = 0, kFragmentWriting = 1, kFragmentComplete = 2 };

struct RingBufferFragment {
  int32_t dataLen;      // written and not yet read
  int32_t startOffset;  // in data; fixed
  int32_t length;       // capacity
  int32_t readOffset;   // in data, next byte to read
  int32_t writeOffset;  // in data, next byte to write
  int32_t state;        // FragmentState
};

struct RingBuffer {
  uint8_t* data ZV_GUARDED_BY(mutex);
  int32_t wholeContentMode ZV_GUARDED_BY(mutex);  // 1: holds the whole resource, only complete fragments are read
  int32_t notReady ZV_GUARDED_BY(mutex);          // 0 ready, -1 between downloads
  int32_t writing ZV_GUARDED_BY(mutex);           // -1 until the distribution has ended, then 0
  int32_t size ZV_GUARDED_BY(mutex);              // bytes in data
  int32_t fragmentCount ZV_GUARDED_BY(mutex);
  int32_t freeFragmentNum ZV_GUARDED_BY(mutex);
  int32_t readIndex ZV_GUARDED_BY(mutex);       // fragment the reader takes from
  int32_t fragmentLength ZV_GUARDED_BY(mutex);  // 0 after creation
  ZVMutex* mutex;                               // a leaf lock: nothing but the log is called under it
  RingBufferFragment* fragments ZV_GUARDED_BY(mutex);
};

// What would become of a block, decided before anything is touched.
enum PushFit { kPushOneFragment, kPushTwoFragments, kPushNextBusy, kPushTooLong };

enum RingResult : int32_t { kRingOk = 0, kRingAgain = 1, kRingFailed = -1, kRingBadArgument = -2 };

int32_t ZVIner_RingBufferInit(RingBuffer* rb);
int32_t ZVIner_RingBufferFragmentInit(RingBuffer* rb, int32_t fragmentLength) ZV_REQUIRES(rb->mutex);
// Re-cuts the array, growing it when it is smaller than newSize; drops what it held. -1 leaves no array, not ready; the
// next call tries again.
int32_t ZVIner_RingBufferReInit(RingBuffer* rb, int32_t newSize, int32_t fragmentLength);
// Doubles the number of fragments and keeps the contents; only for a buffer nobody reads from yet. *fragmentIdx, the
// writer's fragment, moves on if it had wrapped to the start. -1: at the limit, or no memory; nothing changed then.
int32_t ZVIner_RingBufferGrow(RingBuffer* rb, int32_t* fragmentIdx);
// 0, -1 or -2; *nextIdx is the fragment to go on with.
int32_t ZVIner_RingBufferPush(RingBuffer* rb, int32_t fragmentIdx, int32_t* nextIdx, const void* bytes, uint32_t len);
// The same; *busy tells that it gave -1 because the next fragment is still unread: only then is it worth trying again.
int32_t ZVIner_RingBufferPushAndTell(RingBuffer* rb, int32_t fragmentIdx, int32_t* nextIdx, const void* bytes,
                                     uint32_t len, bool* busy);
int32_t ZVIner_RingBufferRead(RingBuffer* rb, void* buffer, uint32_t size, uint32_t* readLen);
// The same; *freed tells whether a fragment was emptied, so that paused connections may go on.
int32_t ZVIner_RingBufferReadAndTell(RingBuffer* rb, void* buffer, uint32_t size, uint32_t* readLen, bool* freed);
void ZVIner_RingBufferRelease(RingBuffer* rb);

// Whether a block of len bytes could be pushed to fragmentIdx now.
bool ZVIner_RingBufferHasRoom(RingBuffer* rb, int32_t fragmentIdx, uint32_t len);
// Whether a range may be given out: its fragment is free, and so is one more.
bool ZVIner_RingBufferTakesRange(RingBuffer* rb, int32_t fragmentIdx);
// Whether a read would deliver bytes or the end.
bool ZVIner_RingBufferIsReadable(RingBuffer* rb);
int32_t ZVIner_RingBufferFragmentCount(RingBuffer* rb);
void ZVIner_RingBufferSetWholeContent(RingBuffer* rb, bool whole);
void ZVIner_RingBufferSetNotReady(RingBuffer* rb);
// A connection will write here: nobody else may be given the fragment.
void ZVIner_RingBufferClaim(RingBuffer* rb, int32_t fragmentIdx);
// The download ended in this fragment: it will not get fuller.
void ZVIner_RingBufferComplete(RingBuffer* rb, int32_t fragmentIdx);
// Gives up everything written.
void ZVIner_RingBufferDrop(RingBuffer* rb);
// The download has ended: what is there can be read, then reads give 0.
void ZVIner_RingBufferEndWriting(RingBuffer* rb);
// Null, or what is wrong.
const char* ZVIner_CheckRingBuffer(RingBuffer* rb);
