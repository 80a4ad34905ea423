// One download as a player sees it, and the fixture of the flow tests: an origin, a log, and a check that nothing is left.
//
// The platform's clock runs faster here, so that pauses between attempts take no time worth mentioning.
#ifndef TESTS_FLOW_DOWNLOAD_H
#define TESTS_FLOW_DOWNLOAD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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
#include "Origin.h"
#include "ZVHttpBase.h"

namespace flow {

constexpr int32_t kSegLen = 204800;  // the smallest, so that few bytes make many ranges
constexpr int kTimeScale = 20;
// How long stopping may take. Milliseconds are usual; the machine may be busy, and slow (ZV_DEADLINE_FACTOR).
int64_t StopLimitMs();

constexpr int32_t kOk = ZV_HTTP_CODE_OK;
constexpr int32_t kRedirected = ZV_HTTP_CODE_REDIRECTED;
constexpr int32_t kFailed = ZV_HTTP_CODE_FAILED;
constexpr int32_t kUnreachable = ZV_HTTP_CODE_UNREACHABLE;

// What ReadAll gives when the count of bytes came, all of them right, and then the end.
std::string Right(uint64_t count);

// A handle and what its callbacks were told.
class Download {
 public:
  // No pause between attempts but the shortest, no retries unless told.
  explicit Download(int32_t connections = 1, int32_t retries = 0);
  ~Download();
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;

  HttpBase* Get() const { return handle_; }
  void Open(const std::string& url);
  // Both fail the test when they take too long.
  void Close();
  void Release();

  // Reads to the end and compares every byte with those of expected from position first on. readSize: of one call.
  std::string ReadAll(const origin::Resource& expected, uint64_t first = 0, uint32_t readSize = 65536);
  // The same until count bytes are there; "" when they are, and right.
  std::string ReadSome(const origin::Resource& expected, uint64_t first, uint64_t count, uint32_t readSize = 65536);
  // What Read delivers up to its end, when it is short; otherwise its length.
  std::string ReadText();

  std::vector<int32_t> Codes() const;
  int Count(int32_t code) const;
  bool WaitForCode(int32_t code, int ms = 10000) const;
  int RetryQuestions() const;

  // Called on the thread of the callback, before the code is recorded. Set before Open.
  std::function<void(int32_t code)> onCode;
  // The answer to the n-th question of the retry callback, n from 1; install it with AskAboutRetries.
  std::function<int32_t(int n)> onRetry;
  void AskAboutRetries();

 private:
  static int32_t TakeCode(void* self, int32_t code);
  static int32_t AnswerRetry(void* self, int32_t* value, int32_t zero);
  std::string Read(const origin::Resource& expected, uint64_t first, uint64_t count, uint32_t readSize, bool toEnd);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<int32_t> codes_;
  int retryQuestions_ = 0;
  HttpBase* handle_ = nullptr;
};

class FlowTest : public testing::Test {
 protected:
  FlowTest();
  ~FlowTest() override;

  // Puts length bytes of the pattern under the target.
  origin::Resource Put(const std::string& target, uint64_t length, uint32_t seed = 0);
  // The Range headers that the target was asked for, by position; "" for a request without one.
  std::vector<std::string> RangesOf(const std::string& target) const;

 private:
  // First, so that it looks last.
  Leftovers leftovers_{fault_platform::LiveGauges()};
  Watchdog watchdog_;

 protected:
  LogCapture log_;
  origin::Server server_;
};

// Text as a body that compresses well: line after line.
origin::Resource Lines(uint64_t length);

// Milliseconds since it was made.
class Stopwatch {
 public:
  int64_t Ms() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace flow

#endif
