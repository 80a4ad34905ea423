#include "WalkReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace flow::walk {
namespace {

constexpr int32_t kAskAgain = 3000;
constexpr size_t kSoughtBytes = 16;

int Count(const std::vector<int32_t>& codes, int32_t code) {
  return static_cast<int>(std::count(codes.begin(), codes.end(), code));
}

bool HasFailed(const std::vector<int32_t>& codes) {
  return Count(codes, ZV_HTTP_CODE_FAILED) + Count(codes, ZV_HTTP_CODE_UNREACHABLE) > 0;
}

std::string Join(const std::vector<int32_t>& codes) {
  std::string text;
  for (const int32_t code : codes) {
    text += " " + std::to_string(code);
  }
  return text;
}

}  // namespace

void Listener::Begin() {
  const std::lock_guard<std::mutex> guard(mutex_);
  isWelcome_ = true;
  codes_.clear();
  questions_ = 0;
}

void Listener::End() {
  const std::lock_guard<std::mutex> guard(mutex_);
  isWelcome_ = false;
}

std::vector<int32_t> Listener::Codes() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return codes_;
}

int32_t Listener::TakeCode(void* self, int32_t code) {
  Listener* const listener = static_cast<Listener*>(self);
  const std::lock_guard<std::mutex> guard(listener->mutex_);
  if (!listener->isWelcome_) {
    ADD_FAILURE() << "code " << code << " after the end of its download";
  }
  listener->codes_.push_back(code);
  return 0;
}

int32_t Listener::AnswerRetry(void* self, int32_t* value, int32_t) {
  Listener* const listener = static_cast<Listener*>(self);
  const std::lock_guard<std::mutex> guard(listener->mutex_);
  *value = ++listener->questions_ % 3 == 0 ? 0 : kAskAgain;
  return 0;
}

bool Checker::Fits(const Stream& stream, const char* bytes, size_t n) {
  if (delivered_ + n > stream.count) {
    return false;
  }
  right_.resize(n);
  stream.resource.read(stream.first + delivered_, right_.data(), n);
  return memcmp(right_.data(), bytes, n) == 0;
}

std::string Checker::Take(const char* bytes, size_t n) {
  if (n == 0) {
    return "";
  }
  if (delivered_ == 0) {
    streams_ = script_.RightStreams();
  }
  const std::vector<Stream> before = streams_;
  std::erase_if(streams_, [&](const Stream& stream) { return !Fits(stream, bytes, n); });
  if (streams_.empty()) {
    streams_ = before;
    return DescribeWrong(bytes, n);
  }
  delivered_ += n;
  return "";
}

// Says where the bytes belong, if anywhere.
std::string Checker::DescribeWrong(const char* bytes, size_t n) const {
  std::string text = std::to_string(n) + " wrong bytes after " + std::to_string(delivered_) + ";";
  for (const Stream& stream : streams_) {
    text += " right: " + std::to_string(stream.count) + " from " + std::to_string(stream.first) + " code " +
            std::to_string(stream.errorCode) + ";";
  }
  std::vector<char> all(plan_.length);
  script_.Media().read(0, all.data(), all.size());
  for (size_t at = 0; at + kSoughtBytes <= n; at += kSoughtBytes) {
    const auto found = std::search(all.begin(), all.end(), bytes + at, bytes + at + kSoughtBytes);
    if (found == all.end() || at == 0 || at + 2 * kSoughtBytes > n) {
      text += " at " + std::to_string(delivered_ + at) + " stand those of " +
              (found == all.end() ? "nowhere" : std::to_string(found - all.begin())) + ";";
    }
    if (found == all.end()) {
      break;
    }
  }
  return text;
}

std::string Checker::CheckCodes(const std::vector<int32_t>& codes) const {
  const bool hasMedia = delivered_ > 0 && !streams_.empty() && streams_.front().errorCode == 0;
  if (Count(codes, ZV_HTTP_CODE_OK) > 1 || (hasMedia && Count(codes, ZV_HTTP_CODE_OK) == 0)) {
    return "200 was not reported once;";
  }
  const bool mustSucceed = plan_.mood != Mood::kAnything && AskedPiece(plan_).count > 0;
  return mustSucceed && HasFailed(codes) ? "failed although it could have succeeded;" : "";
}

std::string Checker::TakeEnd(const std::vector<int32_t>& codes) {
  if (delivered_ == 0) {
    streams_ = script_.RightStreams();
  }
  const bool isComplete = std::any_of(streams_.begin(), streams_.end(), [&](const Stream& stream) {
    return stream.count == delivered_ && Count(codes, stream.errorCode == 0 ? ZV_HTTP_CODE_OK : stream.errorCode) == 1;
  });
  std::string wrong = CheckCodes(codes);
  if (!isComplete && !HasFailed(codes)) {
    wrong += " ended early and no failure was reported;";
  }
  return wrong.empty() ? "" : wrong + " " + std::to_string(delivered_) + " bytes, codes" + Join(codes);
}

}  // namespace flow::walk
