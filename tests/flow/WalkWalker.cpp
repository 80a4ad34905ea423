#include "WalkWalker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <thread>
#include <utility>

#include "Deadline.h"
#include "ZVBase.h"
#include "ZVHttpBase/Records.h"

namespace flow::walk {
namespace {

constexpr uint64_t kStepsPerOrigin = 40;
constexpr uint64_t kWalkerApart = 0x9E3779B97F4A7C15ULL;
constexpr uint64_t kStepApart = 0xD6E8FEB86659FD93ULL;
constexpr int64_t kEmptyReadPauseUs = 50;
constexpr int kEmptyReadsToRelease = 20;  // stalled answers go on after so many
constexpr uint64_t kReadsPerCheck = 50;

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string DescribeLog(const std::vector<origin::Request>& log) {
  std::ostringstream text;
  for (const origin::Request& request : log) {
    text << request.target << " connection " << request.connection << "." << request.onConnection << " "
         << request.range << ": " << request.status << ", " << request.bodySent << " bytes, "
         << (request.ended ? (request.complete ? "done" : "left") : "under way") << "\n";
  }
  return text.str();
}

}  // namespace

Walker::Walker(uint64_t seed, int number, int64_t firstStep) : seed_(seed), number_(number), index_(firstStep) {}

Walker::~Walker() {
  ZV_HttpBaseRelease(&handle_);
}

void Walker::Walk(int64_t seconds) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  for (bool isGood = true; isGood && Clock::now() < end; ++index_, ++steps_) {
    BeginStep();
    Dice dice(plan_.seed + 1);
    const std::string wrong = MakeStep(&dice);
    isGood = wrong.empty();
    EXPECT_TRUE(isGood) << wrong << "\n" << Describe() << DescribeLog(server_->Log());
  }
  if (handle_ != nullptr) {
    ZV_HttpBaseRelease(&handle_);
  }
  server_.reset();
  isBack_.store(true);
}

void Walker::BeginStep() {
  const uint64_t index = static_cast<uint64_t>(index_.load());
  const Plan plan = MakePlan(seed_ + static_cast<uint64_t>(number_ + 1) * kWalkerApart + index * kStepApart);
  const std::lock_guard<std::mutex> guard(mutex_);
  plan_ = plan;
  script_ = std::make_shared<Script>(plan, "/s" + std::to_string(index));
  stepStartMs_.store(NowMs());
}

int64_t Walker::SecondsInStep() const {
  return (NowMs() - stepStartMs_.load()) / 1000;
}

std::string Walker::Describe() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::ostringstream text;
  text << "ZV_SEED=" << seed_ << ", walker " << number_ << ", step " << index_.load() << ": " << plan_.Describe()
       << "\n";
  return text.str() + (script_ == nullptr ? "" : script_->Describe());
}

void Walker::RenewOrigin(Dice* dice) {
  if (server_ == nullptr || static_cast<uint64_t>(index_.load()) % kStepsPerOrigin == 0) {
    ZV_HttpBaseRelease(&handle_);
    server_ = std::make_unique<origin::Server>(origin::Options{.https = dice->OneIn(4) && origin::kHasTls});
  }
  if (handle_ == nullptr) {
    listener_ = std::make_unique<Listener>();
    handle_ = ZV_HttpBaseInit(Listener::TakeCode, listener_.get());
  }
  const std::string target = "/s" + std::to_string(index_.load());
  server_->ClearLog();
  server_->Handle([script = script_, target](const origin::Request& request) {
    // What the step before has asked for may still be on its way.
    return request.target == target || request.target == target + "r" ? script->Answer(request) : origin::Status(404);
  });
  server_->Put(target, script_->Media());
  server_->Put(target + "r", script_->Media());
}

void Walker::ApplySettings() {
  ZV_HttpBaseSetDownloadThreadNum(handle_, plan_.connections);
  ZV_HttpBaseSetDownloadSegLen(handle_, plan_.segLen);
  ZV_HttpBaseSetRange(handle_, plan_.start, plan_.end);
  ZV_HttpBaseSetNeedDownloadComplete(handle_, plan_.whole ? 0 : -1);
  ZV_HttpBaseSetRetryTimes(handle_, plan_.retries);
  ZV_HttpBaseSetRetryDelay(handle_, 0);
  ZV_HttpBaseSetMsgCallBack(handle_, plan_.asksAboutRetries ? Listener::AnswerRetry : nullptr);
}

std::string Walker::MakeStep(Dice* dice) {
  RenewOrigin(dice);
  if (handle_ == nullptr) {
    return "no handle";
  }
  ApplySettings();
  isClosing_.store(false);
  emptyReads_ = 0;
  listener_->Begin();
  openedAt_ = Clock::now();
  if (ZV_HttpBaseOpen(handle_, server_->Url("/s" + std::to_string(index_.load())).c_str()) != 0) {
    return "Open was refused";
  }
  Checker checker(plan_, *script_);
  mayMeddle_.store(true);
  std::thread meddler;
  if (plan_.isMeddledWith || plan_.ending == Ending::kCloseElsewhere) {
    meddler = std::thread([this] { Meddle(plan_.seed + 2); });
  }
  std::string wrong = ReadToEnding(dice, &checker);
  if (plan_.ending != Ending::kCloseElsewhere) {
    mayMeddle_.store(false);
  }
  if (meddler.joinable()) {
    meddler.join();
  }
  bytes_ += static_cast<int64_t>(checker.Delivered());
  const std::string wrongAfter = EndStep();
  return wrong + wrongAfter;
}

int64_t Walker::MicrosecondsOpen() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - openedAt_).count();
}

bool Walker::IsTimeToEnd(const Checker& checker) const {
  const bool isDue = checker.Delivered() >= plan_.endAfterBytes || MicrosecondsOpen() >= plan_.endAfterUs;
  return isDue && (plan_.ending == Ending::kClose || plan_.ending == Ending::kRelease);
}

std::string Walker::ReadToEnding(Dice* dice, Checker* checker) {
  while (!IsTimeToEnd(*checker)) {
    bool isEnd = false;
    const std::string wrong = ReadOnce(dice, checker, &isEnd);
    if (!wrong.empty()) {
      return wrong;
    }
    if (isEnd) {
      // Whoever closes says so before: then the end means nothing, and the codes may be cut short.
      const std::string wrongEnd = checker->TakeEnd(listener_->Codes());
      return isClosing_.load() ? "" : wrongEnd;
    }
  }
  return "";
}

std::string Walker::ReadOnce(Dice* dice, Checker* checker, bool* isEnd) {
  const uint32_t size = static_cast<uint32_t>(dice->Spread(plan_.mostReadBytes));
  if (buffer_.size() < size) {
    buffer_.resize(size);
  }
  uint32_t n = 0;
  const int32_t result = ZV_HttpBaseRead(handle_, buffer_.data(), size, &n);
  if (result < 0 || n > size) {
    return "Read gave " + std::to_string(result) + " and " + std::to_string(n) + " bytes";
  }
  *isEnd = result == 0;
  std::string wrong = checker->Take(buffer_.data(), n);
  if (dice->OneIn(kReadsPerCheck)) {
    const char* const broken = ZVIner_CheckRingBuffer(&handle_->ringBuffer);
    wrong += broken == nullptr ? "" : broken;
  }
  Dawdle(dice, n);
  return wrong;
}

void Walker::Dawdle(Dice* dice, uint32_t read) {
  if (plan_.pauseOneIn > 0 && dice->OneIn(plan_.pauseOneIn)) {
    std::this_thread::sleep_for(std::chrono::microseconds(dice->Spread(20000)));
  }
  if (read > 0) {
    return;
  }
  SleepMicroseconds(kEmptyReadPauseUs);
  if (++emptyReads_ % kEmptyReadsToRelease == 0) {
    server_->ReleaseStalls();
  }
}

void Walker::Meddle(uint64_t seed) {
  Dice dice(seed);
  while (mayMeddle_.load()) {
    if (plan_.ending == Ending::kCloseElsewhere && MicrosecondsOpen() >= plan_.endAfterUs) {
      isClosing_.store(true);
      EXPECT_EQ(ZV_HttpBaseClose(handle_), 0);
      listener_->End();
      return;
    }
    if (plan_.isMeddledWith) {
      CallSetter(&dice);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(dice.Below(300)));
  }
}

void Walker::CallSetter(Dice* dice) {
  char* value = nullptr;
  switch (dice->Below(14)) {
    case 0:
      return ZV_HttpBaseSetUserAgent(handle_, "walker/1");
    case 1:
      return ZV_HttpBaseCleanUserAgent(handle_);
    case 2:
    case 3:
      return ZV_HttpBaseSetReqHeader(handle_, "X-Walk: on");
    case 4:
      return ZV_HttpBaseCleanReqHeader(handle_);
    case 5:
    case 6:
      return ZV_HttpBaseSetRespKey(handle_, dice->OneIn(2) ? "content-type" : "X-None");
    case 7:
      return ZV_HttpBaseCleanRespKey(handle_);
    case 8:
      ZV_HttpBaseGetRespbyKey(handle_, "content-type", &value);
      return ZV_Free(&value);
    case 9:
      if (const char* const url = ZV_HttpBaseGetRedirectURL(handle_)) {
        EXPECT_EQ(std::string(url).substr(0, 4), "http");
      }
      return;
    case 10:
      EXPECT_GE(ZV_HttpBaseGetContentLength(handle_) + ZV_HttpBaseGetDownSpeed(handle_), -2);
      return;
    case 11:
      ZV_HttpBaseSetDevice(handle_, "127.0.0.1");
      return ZV_HttpBaseCleanDevice(handle_);
    default:
      return CallNextSetter(dice);
  }
}

// Those that a download takes at its start or at a failure: no matter to one that runs.
void Walker::CallNextSetter(Dice* dice) {
  if (!script_->HasBegun()) {
    return;
  }
  const bool mayFail = plan_.mood == Mood::kAnything;
  switch (dice->Below(6)) {
    case 0:
      return ZV_HttpBaseSetRange(handle_, dice->Between(-1, 1000), dice->Between(-1, 1000));
    case 1:
      return ZV_HttpBaseSetNeedDownloadComplete(handle_, dice->OneIn(2) ? 0 : -1);
    case 2:
      ZV_HttpBaseSetDownloadSegLen(handle_, static_cast<int32_t>(dice->Between(204800, 716800)));
      return;
    case 3:
      ZV_HttpBaseSetDownloadThreadNum(handle_, static_cast<int32_t>(dice->Between(1, 5)));
      return;
    case 4:
      return ZV_HttpBaseSetRetryDelay(handle_, static_cast<int32_t>(dice->Below(1000)));
    default:
      if (mayFail) {
        ZV_HttpBaseSetRetryTimes(handle_, static_cast<int32_t>(dice->Below(6)));
        ZV_HttpBaseSetMsgCallBack(handle_, dice->OneIn(2) ? Listener::AnswerRetry : nullptr);
      }
  }
}

std::string Walker::EndStep() {
  std::string wrong;
  if (const char* const broken = ZVIner_CheckRingBuffer(&handle_->ringBuffer)) {
    wrong = broken;
  }
  if (plan_.ending == Ending::kRelease) {
    ZV_HttpBaseRelease(&handle_);
    listener_->End();
    return handle_ == nullptr ? wrong : wrong + " Release did not forget the handle";
  }
  if (plan_.ending != Ending::kCloseElsewhere && ZV_HttpBaseClose(handle_) != 0) {
    return wrong + " Close was refused";
  }
  listener_->End();
  return wrong + CheckAfterEnd();
}

std::string Walker::CheckAfterEnd() {
  uint32_t n = 0;
  char byte = 0;
  if (ZV_HttpBaseRead(handle_, &byte, 1, &n) != 0 || n != 0) {
    return "Read after Close gives something";
  }
  if (ZV_HttpBaseGetOpenFlag(handle_) != -1) {
    return "open after Close";
  }
  const char* const broken = ZVIner_CheckRingBuffer(&handle_->ringBuffer);
  return broken == nullptr ? "" : broken;
}

}  // namespace flow::walk
