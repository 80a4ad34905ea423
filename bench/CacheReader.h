// A player on the progressive cache, with a folder of its own for the cache files. One thread.
#ifndef BENCH_CACHE_READER_H
#define BENCH_CACHE_READER_H

#include <ZVHttpBaseCache.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "Support.h"

// How much is kept ahead of the player.
enum class Ahead {
  kDefault,       // 5 MiB, brought to the end of a cache file: the media's duration is not known
  kFortySeconds,  // of the media's duration
  kEverything,
};

struct CacheReaderOptions {
  std::string url;
  Ahead ahead = Ahead::kDefault;
  int32_t durationMs = 0;  // for kFortySeconds
};

class CacheReader {
 public:
  // The handle with its file cache on; throws when it cannot be made.
  explicit CacheReader(const CacheReaderOptions& options);
  ~CacheReader();
  CacheReader(const CacheReader&) = delete;
  CacheReader& operator=(const CacheReader&) = delete;

  void Open();
  // Closes, sets the range and opens. True when it was answered inside the call: from the cache.
  bool Seek(int64_t position);
  // One Read. False at the end of the stream; throws after a failure. *count may be 0.
  bool Look(void* buffer, uint32_t size, uint32_t* count);
  // Reads until count bytes have come, the stream's end at the latest; gives how many have come.
  int64_t ReadOn(int64_t count);
  // Looks until the first byte comes.
  void AwaitFirstByte();

  // Whether everything that is kept ahead is there, by the measure of the buffering time.
  bool IsFull() const;
  void AwaitFull() const;
  int64_t Length() const { return ZV_HttpBaseCacheGetContentLength(handle_); }

 private:
  static int32_t TakeCode(void* self, int32_t code);
  void Check() const;

  ScratchFolder folder_;
  const CacheReaderOptions options_;
  std::atomic<int32_t> failureCode_{0};
  const std::thread::id player_ = std::this_thread::get_id();
  int32_t answersInside_ = 0;  // given inside the player's calls
  std::string block_;
  int64_t position_ = 0;
  HttpBaseCache* handle_ = nullptr;
};

#endif
