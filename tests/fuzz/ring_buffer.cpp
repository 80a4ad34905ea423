// The ring buffer under any order of calls: two input bytes are one operation. A model says how many bytes each writer has
// put where, so whatever comes out is checked by value.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "Require.h"
#include "ZVHttpBase/RingBuffer.h"

namespace {

constexpr int32_t kLength = 16;
constexpr int32_t kCount = 5;
constexpr int32_t kMostFragments = 40;

// One buffer for all inputs: making one costs far more than an input. Its array is replaced by a small one.
RingBuffer* Buffer() {
  static RingBuffer buffer = {};
  if (buffer.mutex == nullptr) {
    Require(ZVIner_RingBufferInit(&buffer) == kRingOk, "init");
  }
  const MutexGuard guard(buffer.mutex);
  ZV_Free(&buffer.data);
  buffer.size = 0;
  return &buffer;
}

// The stream's bytes count up, so that the reader knows the next one.
class Stream {
 public:
  explicit Stream(RingBuffer* rb) : rb_(rb) { Cut(); }

  void Cut() {
    Require(ZVIner_RingBufferReInit(rb_, kCount * kLength, kLength) == kRingOk, "re-init");
    ZVIner_RingBufferSetWholeContent(rb_, false);
    Forget();
  }

  void Push(uint32_t len) {
    if (ended_) {
      return;
    }
    std::vector<uint8_t> bytes(len + 1);
    for (uint32_t i = 0; i < len; ++i) {
      bytes[i] = static_cast<uint8_t>(written_ + i);
    }
    const bool hasRoom = ZVIner_RingBufferHasRoom(rb_, index_, len);
    bool busy = false;
    const int32_t result = ZVIner_RingBufferPushAndTell(rb_, index_, &index_, bytes.data(), len, &busy);
    Require(busy == !hasRoom || len == 0, "busy when there is no room");
    Require(index_ >= 0 && index_ < ZVIner_RingBufferFragmentCount(rb_), "the writer stands in a fragment");
    written_ += result == kRingOk ? len : 0;
  }

  void Read(uint32_t size) {
    std::vector<uint8_t> bytes(size + 1);
    uint32_t count = 0;
    const int32_t result = ZVIner_RingBufferRead(rb_, bytes.data(), size, &count);
    Require(size == 0 ? result == kRingBadArgument : result == kRingAgain || result == kRingOk, "result of a read");
    for (uint32_t i = 0; i < count; ++i) {
      Require(bytes[i] == static_cast<uint8_t>(read_ + i), "bytes come in order");
    }
    read_ += count;
    Require(read_ <= written_, "nothing is read that was not written");
    touched_ = true;
  }

  void Grow() {
    if (!touched_ && ZVIner_RingBufferFragmentCount(rb_) < kMostFragments) {
      Require(ZVIner_RingBufferGrow(rb_, &index_) == kRingOk, "grow");
    }
  }

  void Drop() {
    ZVIner_RingBufferDrop(rb_);
    Forget();
  }

  void Complete() {
    ZVIner_RingBufferComplete(rb_, index_);
    ended_ = true;
  }

  void EndWriting() {
    ZVIner_RingBufferEndWriting(rb_);
    ended_ = true;
  }

 private:
  void Forget() {
    index_ = 0;
    written_ = 0;
    read_ = 0;
    touched_ = false;
    ended_ = false;
  }

  RingBuffer* const rb_;
  int32_t index_ = 0;
  uint64_t written_ = 0;
  uint64_t read_ = 0;
  bool touched_ = false;  // read from: must not grow any more
  bool ended_ = false;    // nothing is written any more
};

void Apply(RingBuffer* rb, Stream* stream, uint8_t operation, uint8_t argument) {
  switch (operation % 12) {
    case 0:
      return stream->Cut();
    case 1:
      return stream->Grow();
    case 2:
      return stream->Complete();
    case 3:
      return ZVIner_RingBufferClaim(rb, argument % (kCount + 1));
    case 4:
      return stream->EndWriting();
    case 5:
      return ZVIner_RingBufferSetWholeContent(rb, argument % 2 != 0);
    case 6:
      return argument < 16 ? ZVIner_RingBufferSetNotReady(rb) : stream->Drop();
    case 7:
    case 8:
      return stream->Read(argument);
    default:
      return stream->Push(argument % (2 * kLength + 4));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  RingBuffer* const rb = Buffer();
  Stream stream(rb);
  for (size_t i = 0; i + 1 < size; i += 2) {
    Apply(rb, &stream, bytes[i], bytes[i + 1]);
    const char* const broken = ZVIner_CheckRingBuffer(rb);
    Require(broken == nullptr, broken == nullptr ? "" : broken);
    ZVIner_RingBufferIsReadable(rb);
    ZVIner_RingBufferTakesRange(rb, bytes[i + 1] % kCount);
  }
  return 0;
}
