#include "CachedSegments.h"

#include <algorithm>
#include <array>
#include <limits>

#include "Pause.h"
#include "Text.h"

namespace {

constexpr int32_t kMost32 = std::numeric_limits<int32_t>::max();
constexpr uint32_t kMostAtOnceBytes = 1U << 30;
// The answer's code is told before or with its first bytes; a body without one is no answer.
constexpr int64_t kAnswerMs = 10000;

// The cache knows segments by their URLs and overlooks what follows the last "?". A fragment, which is never sent, makes
// every one of them another.
std::string NameOf(const HlsSegment& segment) {
  return segment.part.url + "#" + std::to_string(segment.sequence) + "?";
}

}  // namespace

CachedSegments::CachedSegments(const CommonOptions& options, const SegmentOptions& segmentOptions)
    : options_(options), segmentOptions_(segmentOptions) {}

Outcome CachedSegments::Make(int64_t firstSequence, int64_t count) {
  firstSequence_ = firstSequence;
  owner_.emplace(OnMessage, this);
  handle_ = owner_->Get();
  if (handle_ == nullptr) {
    return {ExitCode::kInternal, 0, "cannot make a segment cache"};
  }
  ApplyOptions(handle_, options_);
  std::string error;
  if (!folder_.Open(segmentOptions_.folder, &error)) {
    PrintError(error + "; reading on without cache files");
    isDirect_ = true;
    return {};
  }
  const SignalsForMainThreadOnly guard;
  ZV_HttpBaseSegCacheSetCacheStateCallback(handle_, OnState);
  ZV_HttpBaseSegCacheSetThreadNumber(handle_, segmentOptions_.workers);
  const LocalCacheParam param = {segmentOptions_.cacheTime, folder_.Prefix().c_str()};
  ZV_HttpBaseSegCacheSetLocalCache(handle_, &param, count > 0 ? 1 : 0);
  const std::array<char, ZV_SEG_CACHE_LIST_INFO_BYTES> listInfo{};
  ZV_HttpBaseSegCacheSetList(handle_, listInfo.data(), static_cast<int32_t>(std::min<int64_t>(count, kMost32)), 0);
  return {};
}

bool CachedSegments::Add(const HlsSegment& segment) {
  if (isDirect_) {
    return true;
  }
  const MediaPart& part = segment.part;
  return ZV_HttpBaseSegCacheAddSegment(handle_, NameOf(segment).c_str(), segment.durationMs, part.IsRange() ? 1 : 0,
                                       static_cast<int32_t>(part.first),
                                       static_cast<int32_t>(std::max<int64_t>(part.length, 0)),
                                       static_cast<int32_t>(segment.sequence - firstSequence_)) == 0;
}

void CachedSegments::Move(const HlsSegment& segment) {
  if (!isDirect_) {
    ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle_, NameOf(segment).c_str(), 0,
                                        static_cast<int32_t>(segment.sequence - firstSequence_));
  }
}

Outcome CachedSegments::FindRefusal(const HlsSegment& segment) {
  if (segment.part.IsRange() && segment.part.first + segment.part.length > kMost32) {
    return TransferFailed("byte ranges behind 2 GiB are not supported");
  }
  return {};
}

Outcome CachedSegments::Open(const HlsSegment& segment) {
  const SignalsForMainThreadOnly guard;
  if (isOpen_) {
    ZV_HttpBaseSegCacheClose(handle_);
  }
  isOpen_ = true;
  messages_.isAnswered = false;
  messages_.errorStatus = 0;
  messages_.failureCode = 0;
  url_ = segment.part.url;
  position_ = 0;
  if (segment.part.IsRange()) {
    ZV_HttpBaseSegCacheSetRange(handle_, segment.part.first, segment.part.first + segment.part.length - 1);
  }
  if (ZV_HttpBaseSegCacheOpen(handle_, NameOf(segment).c_str()) != 0) {
    return {ExitCode::kInternal, 0, "cannot start the download"};
  }
  return {};
}

CachedSegments::Look CachedSegments::Read(char* buffer, size_t size) {
  if (isGivenUp_ && !isDirect_) {
    PrintError("cache files cannot be written; reading on without them");
    isDirect_ = true;
  }
  Look look;
  const auto room = static_cast<int32_t>(std::min<size_t>(size, kMostAtOnceBytes));
  const int32_t more = ZV_HttpBaseSegCacheRead(handle_, buffer, room, &look.count);
  // Without cache files the body of an error is delivered as well, and a failure looks like an end.
  const bool isUnjudged = isDirect_ && (look.count > 0 || more == 0) && position_ == 0;
  const bool isRefused = isUnjudged && !AwaitAnswer();
  if (isRefused || more < 0 || (look.count == 0 && more == 1 && HasComplaint(messages_)) ||
      (isDirect_ && more == 0 && messages_.failureCode != 0)) {
    return {0, true, Judge()};
  }
  position_ += look.count;
  look.isEnd = more == 0;
  return look;
}

int32_t CachedSegments::OnMessage(void* self, int32_t code) {
  return ReceiveMessage(&static_cast<CachedSegments*>(self)->messages_, code);
}

void CachedSegments::OnState(void* self, int32_t state, int32_t value) {
  auto* segments = static_cast<CachedSegments*>(self);
  if (state == ZV_SEG_CACHE_STATE_BUFFERED) {
    segments->aheadMs_ = value;
  } else if (state == ZV_SEG_CACHE_STATE_GIVEN_UP) {
    segments->isGivenUp_ = true;
  }
}

Outcome CachedSegments::Judge() const {
  const Outcome outcome = JudgeMessages(messages_, url_, position_);
  return outcome.IsOk() ? TransferFailed("no usable answer") : outcome;
}

// Whether the status that the bytes belong to is one of success.
bool CachedSegments::AwaitAnswer() const {
  const int64_t until = ZV_ChronoGetTick() + kAnswerMs;
  Pause pause;
  while (!messages_.isAnswered && !HasComplaint(messages_) && !IsInterrupted() && ZV_ChronoGetTick() < until) {
    pause.Sleep();
  }
  return messages_.isAnswered;
}
