// The segment cache as a player uses it: segments are listed, opened one after another, read, and judged. The main thread
// only.
#ifndef TOOLS_CACHED_SEGMENTS_H
#define TOOLS_CACHED_SEGMENTS_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "CacheFolder.h"
#include "CommonOptions.h"
#include "ExitCode.h"
#include "Handles.h"
#include "HlsList.h"
#include "Messages.h"

struct SegmentOptions {
  std::optional<std::string> folder;  // without it a private one
  int32_t cacheTime = 40;             // seconds
  int32_t workers = 5;
};

class CachedSegments {
 public:
  // The options must outlive it.
  CachedSegments(const CommonOptions& options, const SegmentOptions& segmentOptions);
  CachedSegments(const CachedSegments&) = delete;
  CachedSegments& operator=(const CachedSegments&) = delete;

  // Makes the handle and its list, for segments from that number on: count of them, or a live list when it is 0. A cache
  // folder of the user's that cannot be used costs a warning.
  Outcome Make(int64_t firstSequence, int64_t count);
  // Appends a segment; to be called in their order. False when there is no room now.
  bool Add(const HlsSegment& segment);
  // Gives a listed segment its new URL.
  void Move(const HlsSegment& segment);
  // What the cache cannot do with the segment, if so.
  static Outcome FindRefusal(const HlsSegment& segment);

  // Begins to read a listed segment, from its first byte. What is still open is closed.
  Outcome Open(const HlsSegment& segment);
  // What one look at it gave. While it goes on and count is 0, nothing has come yet: wait before the next look.
  struct Look {
    uint32_t count = 0;
    bool isEnd = false;  // outcome says whether it is a good one
    Outcome outcome;
  };
  Look Read(char* buffer, size_t size);

  // Media time that is cached ahead of the reader.
  int32_t AheadMs() const { return aheadMs_; }

 private:
  static int32_t OnMessage(void* self, int32_t code);
  static void OnState(void* self, int32_t state, int32_t value);
  Outcome Judge() const;
  bool AwaitAnswer() const;

  const CommonOptions& options_;
  const SegmentOptions& segmentOptions_;
  Messages messages_;
  std::atomic<int32_t> aheadMs_{0};
  std::atomic<bool> isGivenUp_{false};  // the library has left its cache files
  CacheFolder folder_;                  // outlives the handle, whose files are in it
  std::optional<SegmentCacheOwner> owner_;
  HttpBaseSegCache* handle_ = nullptr;
  int64_t firstSequence_ = 0;
  bool isDirect_ = false;  // without cache files
  bool isOpen_ = false;
  std::string url_;       // of the segment being read
  int64_t position_ = 0;  // in it
};

#endif
