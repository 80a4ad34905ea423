// A player on the segment cache: it knows which byte of which segment must come next and checks every one. And the fixture
// of these tests: an origin, a folder for cache files that must be empty at the end, a check that nothing else is left.
#ifndef TESTS_SEG_SEG_PLAYER_H
#define TESTS_SEG_SEG_PLAYER_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "LogCapture.h"
#include "LumLog.h"
#include "Origin.h"
#include "TestFolder.h"
#include "ZVHttpBaseSegCache.h"
#include "ZVHttpBaseSegCache/SegCache.h"

namespace seg {

constexpr int32_t kOk = ZV_HTTP_CODE_OK;
constexpr int32_t kFailed = ZV_HTTP_CODE_FAILED;
constexpr int32_t kUnreachable = ZV_HTTP_CODE_UNREACHABLE;
constexpr int kTimeScale = 20;
// A sanitizer makes the threads of a handle slow to start: what is repeated often is then repeated less.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

// One segment as it is listed, and what it must deliver.
struct Segment {
  std::string target;
  uint64_t length = 0;  // of what is to be read
  uint32_t seed = 0;
  uint64_t first = 0;  // position of its first byte in the resource
  bool isRange = false;
  int32_t duration = 1000;
  int32_t seq = 0;
};

enum class Kind { kOnDemand, kLive };

class SegPlayer {
 public:
  explicit SegPlayer(int32_t workers = 1);
  ~SegPlayer();
  SegPlayer(const SegPlayer&) = delete;
  SegPlayer& operator=(const SegPlayer&) = delete;

  HttpBaseSegCache* Get() const { return handle_; }
  void UseFiles(const std::string& prefix, Kind kind = Kind::kOnDemand, int32_t cacheTime = 40);
  void SetList(int32_t segmentNum);
  int32_t Add(const std::string& url, const Segment& segment);
  void Release();

  int32_t Open(const std::string& url);
  // The same, and everything that is read from now on is the segment's, from its first byte.
  int32_t Open(const std::string& url, const Segment& segment);
  uint64_t Position() const { return position_; }
  void SetPosition(uint64_t position) { position_ = position; }
  // One call of Read; "" unless a byte is wrong. *result and *n may be null.
  std::string ReadOnce(int32_t size, int32_t* result = nullptr, uint32_t* n = nullptr);
  // Reads until the end of the segment: "", or what went wrong.
  std::string ReadAll(int32_t readSize = 100000, int ms = 30000);
  // Reads until that many bytes of the segment have been read.
  std::string ReadTo(uint64_t position, int32_t readSize = 100000, int ms = 30000);
  // Open and ReadAll.
  std::string Play(const std::string& url, const Segment& segment);

  // The first invariant that does not hold, or "".
  std::string Check() const;
  // Asks something about the record under its mutex.
  int64_t Ask(const std::function<int64_t(HttpBaseSegCache*)>& question) const;
  bool WaitFor(const std::function<bool(HttpBaseSegCache*)>& isReached, int ms = 10000) const;
  // Until the segment at that place is in that state.
  bool WaitForState(int32_t index, int32_t state, int ms = 10000) const;
  int32_t StateOf(int32_t index) const;
  // Nothing is fetched any more.
  bool WaitUntilResting(int ms = 10000) const;

  std::vector<int32_t> Codes() const;
  int Count(int32_t code) const;
  void ForgetCodes();
  bool WaitForCode(int32_t code, int count = 1, int ms = 10000) const;
  bool WaitForAnyCode(int ms = 10000) const;
  // Reports of the cache state callback: type and value.
  std::vector<std::pair<int32_t, int32_t>> States() const;

  // Called on the thread of the callback; set before Open.
  std::function<void(int32_t code)> onCode;
  std::function<void(int32_t type, int32_t value)> onState;

 private:
  static int32_t TakeCode(void* self, int32_t code);
  static void TakeState(void* self, int32_t type, int32_t value);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<int32_t> codes_;
  std::vector<std::pair<int32_t, int32_t>> states_;
  HttpBaseSegCache* handle_ = nullptr;
  Segment segment_;
  uint64_t position_ = 0;
};

class SegTest : public testing::Test {
 protected:
  // Lines of the log below lowestLevel are not kept.
  explicit SegTest(int32_t lowestLevel = LUM_LEVEL_TRACE, int seconds = 180);
  ~SegTest() override;

  // count segments of that length, /s0, /s1, ..., each with a pattern of its own.
  std::vector<Segment> PutSegments(int count, uint64_t length = 200000, int32_t duration = 1000);
  Segment PutSegment(int number, uint64_t length, int32_t duration = 1000);
  std::string Url(const Segment& segment) const { return server_.Url(segment.target); }
  // A player with those segments listed.
  std::unique_ptr<SegPlayer> NewPlayer(const std::vector<Segment>& segments, int32_t workers = 1,
                                       Kind kind = Kind::kOnDemand, int32_t cacheTime = 40);
  std::string Prefix() const { return folder_ + "/"; }
  int FilesInFolder() const { return files_.CountFiles(); }
  int RequestsOf(const Segment& segment) const { return static_cast<int>(server_.LogOf(segment.target).size()); }

 private:
  Leftovers leftovers_{fault_platform::LiveGauges()};
  Watchdog watchdog_;
  TestFolder files_;

 protected:
  const std::string folder_ = files_.Path();
  LogCapture log_;
  origin::Server server_;
};

}  // namespace seg

#endif
