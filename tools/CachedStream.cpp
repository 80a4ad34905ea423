#include "CachedStream.h"

#include <algorithm>

#include "Pause.h"
#include "Text.h"

namespace {

constexpr int32_t kDefaultRetries = 2;
// The cache asks a server that gives an error status again after a second; a status is heard more than once before.
constexpr int64_t kSameStatusMs = 500;
// The answer's code is told before or with its first bytes; a body without one is no answer.
constexpr int64_t kAnswerMs = 10000;
constexpr uint32_t kMostAtOnceBytes = 1U << 30;

CachedStream::Look Failed(const Outcome& outcome) {
  CachedStream::Look look;
  look.isEnd = true;
  look.outcome = outcome;
  return look;
}

}  // namespace

CachedStream::CachedStream(const CommonOptions& options, const CacheOptions& cacheOptions)
    : options_(options), cacheOptions_(cacheOptions) {}

Outcome CachedStream::Make() {
  owner_.emplace(OnMessage, this);
  handle_ = owner_->Get();
  if (handle_ == nullptr) {
    return {ExitCode::kInternal, 0, "cannot make a cache"};
  }
  ApplyOptions(handle_, options_);
  std::string error;
  if (!folder_.Open(cacheOptions_.folder, &error)) {
    PrintError(error + "; reading on without cache files");
    return {};
  }
  const SignalsForMainThreadOnly guard;
  const LocalCacheParam param = {cacheOptions_.cacheTime, folder_.Prefix().c_str()};
  ZV_HttpBaseCacheSetLocalCache(handle_, &param);
  if (cacheOptions_.durationMs) {
    ZV_HttpBaseCacheSetDuration(handle_, &*cacheOptions_.durationMs);
  }
  return {};
}

Outcome CachedStream::GoTo(int64_t position) {
  const SignalsForMainThreadOnly guard;
  calledAt_ = std::chrono::steady_clock::now();
  if (isOpen_) {
    ZV_HttpBaseCacheClose(handle_);
  }
  messages_.isAnswered = false;
  messages_.errorStatus = 0;
  messages_.failureCode = 0;
  isFromCache_ = false;
  if (isOpen_ || position > 0) {
    ZV_HttpBaseCacheSetRange(handle_, position, -1);
  }
  isOpen_ = true;
  isFirstAwaited_ = true;
  start_ = position;
  position_ = position;
  if (ZV_HttpBaseCacheOpen(handle_, options_.url.c_str()) != 0) {
    return {ExitCode::kInternal, 0, "cannot start the download"};
  }
  return {};
}

CachedStream::Look CachedStream::Read(char* buffer, size_t size) {
  Look look;
  const auto room = static_cast<uint32_t>(std::min<size_t>(size, kMostAtOnceBytes));
  const int32_t more = ZV_HttpBaseCacheRead(handle_, buffer, room, &look.count);
  if ((look.count > 0 || more != 1) && !AwaitAnswer()) {
    // Without its file cache a handle delivers the body of an error as well.
    const Outcome outcome = JudgeMessages(messages_, options_.url, 0);
    return Failed(outcome.IsOk() ? TransferFailed("no usable answer") : outcome);
  }
  if (look.count > 0) {
    CountFirstByte();
    statusCount_ = 0;
    position_ += look.count;
  } else if (more == 1 && IsFailureFinal()) {
    return Failed(JudgeMessages(messages_, options_.url, position_ - start_));
  }
  if (more != 1) {
    look.isEnd = true;
    look.outcome = JudgeEnd();
  }
  return look;
}

CachedStream::Look CachedStream::ReadFully(char* buffer, size_t size) {
  Look sum;
  Pause pause;
  while (sum.count < size && !sum.isEnd) {
    if (IsInterrupted()) {
      sum.outcome = InterruptedOutcome();
      break;
    }
    const Look look = Read(buffer + sum.count, size - sum.count);
    sum.count += look.count;
    sum.isEnd = look.isEnd;
    sum.outcome = look.outcome;
    if (look.count > 0) {
      pause.Reset();
    } else if (!look.isEnd) {
      pause.Sleep();
    }
  }
  return sum;
}

int64_t CachedStream::Length() const {
  const int64_t length = ZV_HttpBaseCacheGetContentLength(handle_);
  return length > 0 ? length : -1;
}

Ahead CachedStream::BufferedAhead() const {
  int32_t ms = 0;
  ZV_HttpBaseCacheGetBufferingTime(handle_, &ms);
  const int64_t cacheTimeMs = int64_t{std::max(cacheOptions_.cacheTime, kDefaultCacheTime)} * 1000;
  return EstimateAhead(ms, cacheTimeMs, cacheOptions_.durationMs.value_or(0), position_, Length());
}

void CachedStream::FillReport(Report* report) const {
  report->seeks = seeks_;
  if (!seeks_.empty()) {
    report->firstByteMs = static_cast<int64_t>(seeks_.front().firstByteMs);
  }
  if (handle_ == nullptr) {
    return;
  }
  report->contentLength = Length();
  if (const char* url = ZV_HttpBaseCacheGetRedirectURL(handle_); url != nullptr) {
    report->redirectUrl = url;
  }
  for (const std::string& key : options_.headerKeys) {
    report->headers.emplace_back(key, ResponseHeader(handle_, key));
  }
}

// On the player's thread only inside Open and Read: what is answered there has needed no server.
int32_t CachedStream::OnMessage(void* self, int32_t code) {
  auto* stream = static_cast<CachedStream*>(self);
  if (code == ZV_HTTP_CODE_OK && std::this_thread::get_id() == stream->player_) {
    stream->isFromCache_ = true;
  }
  return ReceiveMessage(&stream->messages_, code);
}

void CachedStream::CountFirstByte() {
  if (isFirstAwaited_) {
    isFirstAwaited_ = false;
    const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - calledAt_;
    seeks_.push_back({position_, passed.count(), isFromCache_});
  }
}

// Whether the status that the bytes belong to is one of success.
bool CachedStream::AwaitAnswer() const {
  const int64_t until = ZV_ChronoGetTick() + kAnswerMs;
  Pause pause;
  while (!messages_.isAnswered && !HasComplaint(messages_) && !IsInterrupted() && ZV_ChronoGetTick() < until) {
    pause.Sleep();
  }
  return messages_.isAnswered;
}

// Nothing has come: whether something has been told that nothing will make good for. In the middle of the stream the
// cache asks again after an error status, for as long as it is read.
bool CachedStream::IsFailureFinal() {
  const bool hasFailed = messages_.failureCode != 0;
  if (!hasFailed && messages_.isAnswered) {
    return IsStatusFinal();
  }
  if (hasFailed && statusCount_ > 0) {
    messages_.errorStatus = status_;  // the failure follows from it
  }
  return HasComplaint(messages_);
}

bool CachedStream::IsStatusFinal() {
  const int32_t status = messages_.errorStatus.exchange(0);
  if (status == 0) {
    return false;
  }
  status_ = status;
  const int64_t now = ZV_ChronoGetTick();
  if (statusCount_ == 0 || now - statusMs_ >= kSameStatusMs) {
    statusCount_ += 1;
    statusMs_ = now;
  }
  const int32_t retries = options_.retries.value_or(kDefaultRetries);
  if (retries < 0 || statusCount_ <= retries) {
    return false;
  }
  messages_.errorStatus = status;
  return true;
}

// The stream has ended: whether everything that was promised has come.
Outcome CachedStream::JudgeEnd() const {
  const int64_t length = Length();
  const bool isShort = length > 0 && position_ < length;
  if (messages_.failureCode != 0 || isShort) {
    const Outcome outcome = JudgeMessages(messages_, options_.url, position_ - start_);
    return outcome.IsOk()
               ? TransferFailed("short: " + std::to_string(position_) + " of " + std::to_string(length) + " bytes")
               : outcome;
  }
  if (length > 0 && position_ > length) {
    return TransferFailed("more bytes than the server announced");
  }
  return {};
}
