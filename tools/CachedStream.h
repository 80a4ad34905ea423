// A stream through the progressive cache, as a player uses it: opened or taken to a place, read, and judged. The main
// thread only.
#ifndef TOOLS_CACHED_STREAM_H
#define TOOLS_CACHED_STREAM_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CacheFolder.h"
#include "CommonOptions.h"
#include "ExitCode.h"
#include "Handles.h"
#include "Messages.h"
#include "Progress.h"
#include "Report.h"

constexpr int32_t kDefaultCacheTime = 40;

struct CacheOptions {
  std::optional<std::string> folder;  // without it a private one
  int32_t cacheTime = kDefaultCacheTime;
  std::optional<int32_t> durationMs;
};

class CachedStream {
 public:
  CachedStream(const CommonOptions& options, const CacheOptions& cacheOptions);
  CachedStream(const CachedStream&) = delete;
  CachedStream& operator=(const CachedStream&) = delete;

  // Makes the handle and its cache. A cache folder of the user's that cannot be used costs a warning, not the stream.
  Outcome Make();
  // Opens the stream, or takes it, at that place.
  Outcome GoTo(int64_t position);

  // What one look at the stream gave. While it goes on and count is 0, nothing has come yet: wait before the next look.
  struct Look {
    uint32_t count = 0;
    bool isEnd = false;  // outcome says whether it is a good one
    Outcome outcome;
  };
  Look Read(char* buffer, size_t size);
  // Reads until size bytes have come or the stream ends or fails; count says how many.
  Look ReadFully(char* buffer, size_t size);

  int64_t Position() const { return position_; }
  // -1 while unknown.
  int64_t Length() const;
  Ahead BufferedAhead() const;
  // What has been found out so far; its bytes and times are the command's.
  void FillReport(Report* report) const;

 private:
  static int32_t OnMessage(void* self, int32_t code);
  void CountFirstByte();
  bool AwaitAnswer() const;
  bool IsFailureFinal();
  bool IsStatusFinal();
  Outcome JudgeEnd() const;

  const CommonOptions& options_;
  const CacheOptions& cacheOptions_;
  const std::thread::id player_ = std::this_thread::get_id();
  Messages messages_;
  std::atomic<bool> isFromCache_{false};  // an answer came inside a call of the player's
  CacheFolder folder_;                    // outlives the handle, whose files are in it
  std::optional<CacheOwner> owner_;
  HttpBaseCache* handle_ = nullptr;
  bool isOpen_ = false;
  int64_t start_ = 0;  // where the last GoTo went
  int64_t position_ = 0;
  std::chrono::steady_clock::time_point calledAt_;  // the last GoTo
  bool isFirstAwaited_ = false;                     // no byte has come since
  std::vector<SeekFigure> seeks_;
  int32_t statusCount_ = 0;  // error statuses in the middle of the stream since the last byte
  int32_t status_ = 0;       // the last of them
  int64_t statusMs_ = 0;     // the last one counted
};

#endif
