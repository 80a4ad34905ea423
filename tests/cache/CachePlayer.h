// A player on the progressive cache: it knows which byte must come next and checks every one, and after every step the
// invariants of the chain. And the fixture of these tests: an origin, a folder for cache files that must be empty at the
// end, a check that nothing else is left.
#ifndef TESTS_CACHE_CACHE_PLAYER_H
#define TESTS_CACHE_CACHE_PLAYER_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "LogCapture.h"
#include "LumLog.h"
#include "Origin.h"
#include "TestFolder.h"
#include "ZVHttpBaseCache.h"
#include "ZVHttpBaseCache/Cache.h"

namespace cache {

constexpr int32_t kOk = ZV_HTTP_CODE_OK;
constexpr int32_t kFailed = ZV_HTTP_CODE_FAILED;
constexpr int kTimeScale = 20;

// What ReadAll gives when the bytes up to position came, all of them right, and then the end.
std::string EndAt(uint64_t position);

class CachePlayer {
 public:
  explicit CachePlayer(int32_t connections = 1, int32_t retries = 0);
  ~CachePlayer();
  CachePlayer(const CachePlayer&) = delete;
  CachePlayer& operator=(const CachePlayer&) = delete;

  HttpBaseCache* Get() const { return handle_; }
  uint64_t Position() const { return position_; }
  void UseFiles(const std::string& prefix, int32_t cacheTime = 40);
  void UseUrl(const std::string& url) { url_ = url; }
  int32_t Open(const std::string& url);
  // The next Open is expected to lead there.
  void SetRange(int64_t position);
  // SetRange and Open with the same URL.
  int32_t Seek(int64_t position);
  void Release();

  // Reads to the end; what went wrong, or EndAt.
  std::string ReadAll(const origin::Resource& expected, uint32_t readSize = 100000);
  // Reads count bytes; "" when they came and are right. Less at the end of the stream.
  std::string ReadSome(const origin::Resource& expected, uint64_t count, uint32_t readSize = 100000);
  // One call of Read; "" unless a byte is wrong. *result and *n may be null.
  std::string ReadOnce(const origin::Resource& expected, uint32_t size, int32_t* result, uint32_t* n);

  // The first invariant that does not hold, or "".
  std::string Check() const;
  // Asks something about the record under its lock.
  int64_t Ask(const std::function<int64_t(HttpBaseCache*)>& question) const;
  bool WaitFor(const std::function<bool(HttpBaseCache*)>& isReached, int ms = 10000) const;
  // Nothing is fetched and nothing is about to be.
  bool WaitUntilResting(int ms = 10000) const;

  std::vector<int32_t> Codes() const;
  int Count(int32_t code) const;
  bool WaitForCode(int32_t code, int count = 1, int ms = 10000) const;
  std::vector<int32_t> States() const;

  // Called on the thread of the callback; set before Open.
  std::function<void(int32_t code)> onCode;
  std::function<void(int32_t value)> onState;

 private:
  static int32_t TakeCode(void* self, int32_t code);
  static void TakeState(void* self, int32_t state, int32_t value);
  std::string Read(const origin::Resource& expected, uint64_t end, uint32_t readSize);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<int32_t> codes_;
  std::vector<int32_t> states_;
  HttpBaseCache* handle_ = nullptr;
  std::string url_;
  uint64_t position_ = 0;
};

class CacheTest : public testing::Test {
 protected:
  // Lines of the log below lowestLevel are not kept.
  explicit CacheTest(int32_t lowestLevel = LUM_LEVEL_TRACE, int seconds = 180);
  ~CacheTest() override;

  origin::Resource Put(const std::string& target, uint64_t length, uint32_t seed = 0);
  std::string Url(const std::string& target = "/media") const { return server_.Url(target); }
  // The folder with its separator.
  std::string Prefix() const { return folder_ + "/"; }
  int FilesInFolder() const { return files_.CountFiles(); }
  std::vector<std::string> RangesOf(const std::string& target = "/media") const;

 private:
  Leftovers leftovers_{fault_platform::LiveGauges()};
  Watchdog watchdog_;
  TestFolder files_;

 protected:
  const std::string folder_ = files_.Path();
  LogCapture log_;
  origin::Server server_;
};

}  // namespace cache

#endif
