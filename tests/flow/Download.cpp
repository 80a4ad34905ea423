#include "Download.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>

namespace flow {
namespace {

constexpr int kReadMs = 30000;
constexpr int kTestSeconds = 120;
constexpr size_t kMostTextBytes = 2000;  // a message of a failing test shows no media
constexpr size_t kShownLogBytes = 2500;
constexpr uint64_t kEverything = std::numeric_limits<uint64_t>::max();

// "" when the bytes are those of the resource, else what differs.
std::string Compare(const origin::Resource& expected, uint64_t position, const std::vector<char>& bytes, size_t n) {
  if (position + n > expected.length) {
    return "byte " + std::to_string(expected.length) + " is behind the end";
  }
  std::vector<char> right(n);
  expected.read(position, right.data(), n);
  const auto differs = std::mismatch(right.begin(), right.end(), bytes.begin());
  return differs.first == right.end()
             ? ""
             : "byte " + std::to_string(position + static_cast<uint64_t>(differs.first - right.begin())) + " is wrong";
}

// Waits a little where nothing has arrived. False behind the deadline.
bool KeepWaiting(const Stopwatch& watch) {
  SleepMicroseconds(100);
  return watch.Ms() < kReadMs;
}

}  // namespace

int64_t StopLimitMs() {
  const char* const factor = getenv("ZV_DEADLINE_FACTOR");
  return 1000 * std::max<int64_t>(factor == nullptr ? 1 : atoll(factor), 1);
}

std::string Right(uint64_t count) {
  return std::to_string(count) + " right bytes, end";
}

Download::Download(int32_t connections, int32_t retries) {
  handle_ = ZV_HttpBaseInit(TakeCode, this);
  if (handle_ == nullptr) {
    throw std::runtime_error("no handle");
  }
  ZV_HttpBaseSetDownloadThreadNum(handle_, connections);
  ZV_HttpBaseSetDownloadSegLen(handle_, kSegLen);
  ZV_HttpBaseSetRetryTimes(handle_, retries);
  ZV_HttpBaseSetRetryDelay(handle_, 0);
}

Download::~Download() {
  ZV_HttpBaseRelease(&handle_);
}

void Download::Open(const std::string& url) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    codes_.clear();
  }
  ASSERT_EQ(ZV_HttpBaseOpen(handle_, url.c_str()), 0);
}

void Download::Close() {
  const Stopwatch watch;
  ASSERT_EQ(ZV_HttpBaseClose(handle_), 0);
  EXPECT_LT(watch.Ms(), StopLimitMs());
}

void Download::Release() {
  const Stopwatch watch;
  ZV_HttpBaseRelease(&handle_);
  EXPECT_LT(watch.Ms(), StopLimitMs());
  EXPECT_EQ(handle_, nullptr);
}

std::string Download::ReadAll(const origin::Resource& expected, uint64_t first, uint32_t readSize) {
  return Read(expected, first, kEverything, readSize, true);
}

std::string Download::ReadSome(const origin::Resource& expected, uint64_t first, uint64_t count, uint32_t readSize) {
  return Read(expected, first, count, readSize, false);
}

std::string Download::Read(const origin::Resource& expected, uint64_t first, uint64_t count, uint32_t readSize,
                           bool toEnd) {
  const Stopwatch watch;
  std::vector<char> buffer(readSize);
  uint64_t done = 0;
  while (done < count) {
    uint32_t n = 0;
    const uint32_t size = static_cast<uint32_t>(std::min<uint64_t>(readSize, count - done));
    const int32_t result = ZV_HttpBaseRead(handle_, buffer.data(), size, &n);
    const std::string wrong = n > 0 ? Compare(expected, first + done, buffer, n) : "";
    if (!wrong.empty() || result < 0) {
      return wrong + " (result " + std::to_string(result) + ")";
    }
    done += n;
    if (result == 0 && (toEnd || done < count)) {
      return Right(done);
    }
    if (n == 0 && !KeepWaiting(watch)) {
      return "no end after " + std::to_string(done) + " bytes";
    }
  }
  return "";
}

std::string Download::ReadText() {
  const Stopwatch watch;
  std::string text;
  std::vector<char> buffer(65536);
  for (;;) {
    uint32_t n = 0;
    const int32_t result = ZV_HttpBaseRead(handle_, buffer.data(), static_cast<uint32_t>(buffer.size()), &n);
    text.append(buffer.data(), n);
    if (result != 1) {
      return text.size() <= kMostTextBytes ? text : std::to_string(text.size()) + " bytes";
    }
    if (n == 0 && !KeepWaiting(watch)) {
      return text + " and no end";
    }
  }
}

std::vector<int32_t> Download::Codes() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return codes_;
}

int Download::Count(int32_t code) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(std::count(codes_.begin(), codes_.end(), code));
}

bool Download::WaitForCode(int32_t code, int ms) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(ms),
                           [&] { return std::find(codes_.begin(), codes_.end(), code) != codes_.end(); });
}

int Download::RetryQuestions() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return retryQuestions_;
}

void Download::AskAboutRetries() {
  ZV_HttpBaseSetMsgCallBack(handle_, AnswerRetry);
}

int32_t Download::TakeCode(void* self, int32_t code) {
  Download* const download = static_cast<Download*>(self);
  if (download->onCode) {
    download->onCode(code);
  }
  const std::lock_guard<std::mutex> guard(download->mutex_);
  download->codes_.push_back(code);
  download->changed_.notify_all();
  return 0;
}

int32_t Download::AnswerRetry(void* self, int32_t* value, int32_t zero) {
  Download* const download = static_cast<Download*>(self);
  EXPECT_EQ(*value, 0);
  EXPECT_EQ(zero, 0);
  int n = 0;
  {
    const std::lock_guard<std::mutex> guard(download->mutex_);
    n = ++download->retryQuestions_;
  }
  *value = download->onRetry(n);
  return 0;
}

FlowTest::FlowTest() : watchdog_(kTestSeconds, testing::UnitTest::GetInstance()->current_test_info()->name()) {
  fault_platform::SetTimeScale(kTimeScale);
}

FlowTest::~FlowTest() {
  fault_platform::Reset();
  if (HasFailure()) {
    const std::string text = log_.Text();
    const size_t from = text.size() > kShownLogBytes ? text.size() - kShownLogBytes : 0;
    printf("---- end of the log ----\n%s\n", text.c_str() + from);
  }
}

origin::Resource FlowTest::Put(const std::string& target, uint64_t length, uint32_t seed) {
  const origin::Resource resource = origin::PatternResource(length, seed);
  server_.Put(target, resource);
  return resource;
}

std::vector<std::string> FlowTest::RangesOf(const std::string& target) const {
  std::vector<origin::Request> requests = server_.LogOf(target);
  std::stable_sort(requests.begin(), requests.end(),
                   [](const origin::Request& a, const origin::Request& b) { return a.first < b.first; });
  std::vector<std::string> ranges;
  for (const origin::Request& request : requests) {
    ranges.push_back(request.range.empty() ? "" : request.range.substr(strlen("bytes=")));
  }
  return ranges;
}

origin::Resource Lines(uint64_t length) {
  origin::Resource resource;
  resource.length = length;
  resource.contentType = "text/plain";
  resource.read = [](uint64_t pos, char* out, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      const uint64_t p = pos + i;
      out[i] = p % 64 == 63 ? '\n' : static_cast<char>('a' + p / 64 % 26);
    }
    return true;
  };
  return resource;
}

}  // namespace flow
