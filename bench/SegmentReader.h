// A player on the segment cache: a list on demand, and a folder of its own for the cache files. One thread.
#ifndef BENCH_SEGMENT_READER_H
#define BENCH_SEGMENT_READER_H

#include <ZVHttpBaseSegCache.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "Support.h"

struct SegmentReaderOptions {
  std::vector<std::string> urls;
  int32_t workers = 5;
  int32_t segmentMs = 2000;  // of media in each; 40 seconds are kept ahead
};

// Longer than what is kept ahead: nothing but the segment that is read is fetched.
constexpr int32_t kLoneSegmentMs = 1000000;

class SegmentReader {
 public:
  // The handle with its local cache on and the list given; throws when it cannot be made.
  explicit SegmentReader(const SegmentReaderOptions& options);
  ~SegmentReader();
  SegmentReader(const SegmentReader&) = delete;
  SegmentReader& operator=(const SegmentReader&) = delete;

  // True when it was answered inside the call: from the cache.
  bool Open(size_t index);
  // One Read. False at the end of the segment; throws after a failure. *count may be 0.
  bool Look(void* buffer, int32_t size, uint32_t* count);
  // Reads to the end of the segment; gives how many bytes came.
  int64_t ReadAll();
  void AwaitFirstByte();
  // Until all segments behind the one that is read, count in number, are cached.
  void AwaitCached(size_t count) const;
  void Release();

 private:
  static int32_t TakeCode(void* self, int32_t code);
  static void TakeState(void* self, int32_t state, int32_t value);
  void Check() const;

  ScratchFolder folder_;
  const SegmentReaderOptions options_;
  std::atomic<int32_t> failureCode_{0};
  const std::thread::id player_ = std::this_thread::get_id();
  int32_t answersInside_ = 0;  // given inside the player's calls
  std::atomic<int32_t> cachedMs_{0};
  std::string block_;
  HttpBaseSegCache* handle_ = nullptr;
};

#endif
