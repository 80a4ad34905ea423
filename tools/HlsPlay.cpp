#include "HlsPlay.h"

#include <algorithm>

#include "Pause.h"
#include "Text.h"

namespace {

constexpr size_t kBufferBytes = 1 << 20;
// So much is collected before it is written while more keeps coming.
constexpr size_t kWriteBytes = 256 << 10;
constexpr size_t kMostMapBytes = 64 << 20;
constexpr int64_t kAwaitMs = 200;
// For the next load of a live playlist, which may tell what has become of a segment that cannot be had.
constexpr int64_t kNextLoadMs = 10000;
constexpr int64_t kSampleMs = 1000;
constexpr size_t kMostSamples = 2000;
constexpr int32_t kDefaultRetries = 2;
constexpr int32_t kDefaultRetryDelayMs = 3000;
constexpr int32_t kFirstServerError = 500;

bool IsAboutTransfer(const Outcome& outcome) {
  return outcome.exitCode == ExitCode::kTransferFailed || outcome.exitCode == ExitCode::kHttpError;
}

Outcome About(const std::string& what, Outcome outcome) {
  if (IsAboutTransfer(outcome)) {
    outcome.error = what + ": " + outcome.error;
  }
  return outcome;
}

std::string SegmentName(const HlsSegment& segment) {
  return "segment " + std::to_string(segment.sequence) + " (" + segment.part.url + ")";
}

}  // namespace

HlsPlayer::HlsPlayer(const HlsOptions& options, HlsSource* source, Output* output, ProgressLine* progress,
                     Report* report)
    : options_(options),
      source_(*source),
      output_(*output),
      progress_(*progress),
      report_(*report),
      figures_(*report->playlist),
      startMs_(ZV_ChronoGetTick()),
      buffer_(kBufferBytes) {}

Outcome HlsPlayer::Play() {
  isLive_ = !source_.Now().isEnded;
  figures_.isLive = isLive_;
  figures_.url = source_.Url();
  Outcome outcome = ChooseStart();
  if (outcome.IsOk()) {
    outcome = MakeCache();
  }
  if (isLive_ && outcome.IsOk()) {
    source_.KeepLoading();
  }
  while (outcome.IsOk() && !output_.IsReaderGone()) {
    std::optional<HlsSegment> segment;
    outcome = AwaitNext(&segment);
    if (!outcome.IsOk() || !segment) {
      break;
    }
    outcome = PlaySegment(*segment);
    if (outcome.IsOk()) {
      figures_.segments += output_.IsReaderGone() ? 0 : 1;
      figures_.discontinuities += segment->isDiscontinuous ? 1 : 0;
      next_ = segment->sequence + 1;
    } else if (isLive_ && IsAboutTransfer(outcome) && HasLeft(*segment)) {
      SkipTo(std::max(source_.Now().oldest, segment->sequence + 1));
      outcome = {};
    } else {
      outcome = About(SegmentName(*segment), outcome);
    }
    source_.DropBefore(next_);
  }
  Sample();
  TellProgress();
  figures_.loads = source_.Now().loads;
  return outcome;
}

Outcome HlsPlayer::ChooseStart() {
  const HlsSource::State state = source_.Now();
  if (state.isEnded && state.oldest == state.end) {
    return TransferFailed("the playlist has no segments");
  }
  if (options_.start && state.isEnded && *options_.start >= state.end) {
    return {ExitCode::kBadArguments, 0,
            "there is no segment " + std::to_string(*options_.start) + ", only " + std::to_string(state.oldest) +
                " to " + std::to_string(state.end - 1)};
  }
  next_ = state.oldest;
  if (isLive_) {
    next_ = std::max(state.oldest, state.end - options_.liveEdge);
  }
  next_ = options_.start.value_or(next_);
  source_.DropBefore(next_);
  return {};
}

Outcome HlsPlayer::MakeCache() {
  const HlsSource::State state = source_.Now();
  listed_ = next_;
  cache_.reset();
  cache_.emplace(options_.source.common, options_.segments);
  return cache_->Make(next_, state.isEnded ? state.end - next_ : 0);
}

// Waits for the segment that is to be read next. None: the playlist has ended.
Outcome HlsPlayer::AwaitNext(std::optional<HlsSegment>* segment) {
  while (!IsInterrupted()) {
    // Asked for before the segments, so that none of an ended playlist is missed.
    const HlsSource::State state = source_.Now();
    *segment = source_.FindFrom(next_);
    if (*segment) {
      SkipTo((*segment)->sequence);
      return {};
    }
    if (state.isEnded || !state.failure.IsOk()) {
      return state.isEnded ? Outcome{} : state.failure;
    }
    source_.AwaitLoad(state.loads, kAwaitMs);
    Show();
  }
  return InterruptedOutcome();
}

// The reader has been too slow, or began too early.
void HlsPlayer::SkipTo(int64_t sequence) {
  if (sequence > next_) {
    PrintError("the playlist has moved on: segment " + std::to_string(next_) +
               (sequence - next_ == 1 ? " is" : " to " + std::to_string(sequence - 1) + " are") +
               " left out, going on at " + std::to_string(sequence));
    figures_.skipped += sequence - next_;
    next_ = sequence;
  }
}

// As soon as they are known: the workers may begin with such a segment at any time.
void HlsPlayer::MoveSegments() {
  for (const HlsSegment& segment : source_.TakeMoved()) {
    if (segment.sequence < listed_) {
      cache_->Move(segment);
    }
  }
}

// The cache looks at its list when a segment is opened.
void HlsPlayer::ListSegments() {
  MoveSegments();
  std::optional<HlsSegment> segment = source_.FindFrom(listed_);
  while (segment && CachedSegments::FindRefusal(*segment).IsOk() && cache_->Add(*segment)) {
    listed_ = segment->sequence + 1;
    segment = source_.FindFrom(listed_);
  }
}

Outcome HlsPlayer::PlaySegment(HlsSegment segment) {
  int64_t done = 0;
  Outcome outcome = TrySegment(segment, &done);
  for (int attempts = 1; MayTryAgain(outcome, attempts, &segment); ++attempts) {
    // A cache that has met an error of the server fetches nothing any more, and knows the old URL.
    outcome = MakeCache();
    if (outcome.IsOk()) {
      outcome = TrySegment(segment, &done);
    }
  }
  return outcome;
}

// Errors of the server may pass, and a live playlist may tell another URL by now. Failures of the connection have been
// tried again by the cache itself.
bool HlsPlayer::MayTryAgain(const Outcome& outcome, int attempts, HlsSegment* segment) {
  if (!IsAboutTransfer(outcome)) {
    return false;
  }
  if (isLive_) {
    source_.AwaitLoad(source_.Now().loads, kNextLoadMs);
  }
  const std::optional<HlsSegment> listed = source_.FindFrom(segment->sequence);
  const bool isMoved = listed && listed->sequence == segment->sequence && listed->part.url != segment->part.url;
  if (isMoved) {
    *segment = *listed;
  } else if (outcome.messageCode < kFirstServerError || outcome.exitCode != ExitCode::kHttpError) {
    return false;
  } else {
    SleepUnlessInterrupted(options_.source.common.retryDelayMs.value_or(kDefaultRetryDelayMs));
  }
  const int32_t retries = options_.source.common.retries.value_or(kDefaultRetries);
  return (retries < 0 || attempts <= retries) && !IsInterrupted();
}

// done: bytes of it that have been written, by this or an earlier try.
Outcome HlsPlayer::TrySegment(const HlsSegment& segment, int64_t* done) {
  ListSegments();
  if (listed_ <= segment.sequence) {
    const Outcome refusal = CachedSegments::FindRefusal(segment);
    return refusal.IsOk() ? Outcome{ExitCode::kInternal, 0, "a segment cannot be listed"} : refusal;
  }
  Outcome outcome = cache_->Open(segment);
  Sample();
  if (outcome.IsOk()) {
    outcome = WriteMap(segment);
  }
  return outcome.IsOk() && !output_.IsReaderGone() ? CopySegment(done) : outcome;
}

Outcome HlsPlayer::WriteMap(const HlsSegment& segment) {
  if (!segment.map || segment.map == map_) {
    return {};
  }
  if (!mapFetcher_) {
    mapFetcher_.emplace(options_.source.common);
  }
  const Fetched fetched = mapFetcher_->Fetch(*segment.map, kMostMapBytes, IsInterrupted);
  if (!fetched.outcome.IsOk()) {
    return About("its map " + segment.map->url, fetched.outcome);
  }
  map_ = segment.map;
  return Write(fetched.bytes.data(), fetched.bytes.size());
}

Outcome HlsPlayer::CopySegment(int64_t* done) {
  int64_t repeated = *done;
  Pause pause;
  held_ = 0;
  while (!IsInterrupted()) {
    const CachedSegments::Look look = cache_->Read(buffer_.data() + held_, buffer_.size() - held_);
    if (look.count > 0 && !report_.firstByteMs) {
      report_.firstByteMs = ZV_ChronoGetTick() - startMs_;
    }
    held_ += look.count;
    LeaveOut(&repeated);
    if (held_ > 0 && (look.count == 0 || look.isEnd || held_ >= kWriteBytes)) {
      if (Outcome outcome = WriteHeld(done); !outcome.IsOk() || output_.IsReaderGone()) {
        return outcome;
      }
    }
    if (look.isEnd) {
      return look.outcome;
    }
    MoveSegments();
    Show();
    if (look.count > 0) {
      pause.Reset();
    } else {
      pause.Sleep();
    }
  }
  return InterruptedOutcome();
}

// Bytes that an earlier try has written.
void HlsPlayer::LeaveOut(int64_t* repeated) {
  const auto known = static_cast<size_t>(std::min<int64_t>(*repeated, static_cast<int64_t>(held_)));
  if (known > 0) {
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(known),
              buffer_.begin() + static_cast<std::ptrdiff_t>(held_), buffer_.begin());
    *repeated -= static_cast<int64_t>(known);
    held_ -= known;
  }
}

Outcome HlsPlayer::WriteHeld(int64_t* done) {
  Outcome outcome = Write(buffer_.data(), held_);
  *done += static_cast<int64_t>(held_);
  held_ = 0;
  return outcome;
}

Outcome HlsPlayer::Write(const char* bytes, size_t count) {
  std::string error;
  if (!output_.Write(bytes, count, &error)) {
    if (IsInterrupted()) {
      return InterruptedOutcome();
    }
    return output_.IsReaderGone() ? Outcome{} : Outcome{ExitCode::kOutputFailed, 0, error};
  }
  report_.bytes += static_cast<int64_t>(count);
  return {};
}

// Whether a segment that cannot be had is in the playlist no longer.
bool HlsPlayer::HasLeft(const HlsSegment& segment) const {
  return source_.Now().oldest > segment.sequence && !IsInterrupted();
}

void HlsPlayer::Show() {
  if (ZV_ChronoGetTick() - sampledMs_ >= kSampleMs) {
    Sample();
  }
  if (progress_.IsDue()) {
    TellProgress();
    progress_.Update(report_.bytes, -1);
  }
}

void HlsPlayer::TellProgress() {
  progress_.SetAhead({cache_ ? cache_->AheadMs() : 0, -1});
  progress_.SetSegments({figures_.segments, figures_.segments + std::max<int64_t>(source_.Now().end - next_, 0)});
}

// However long it plays, the samples are bounded and spread over the whole time.
void HlsPlayer::Sample() {
  sampledMs_ = ZV_ChronoGetTick();
  if (!cache_ || samplesOffered_++ % sampleStep_ != 0) {
    return;
  }
  std::vector<AheadSample>& samples = figures_.ahead;
  if (samples.size() == kMostSamples) {
    for (size_t i = 0; i < kMostSamples / 2; ++i) {
      samples[i] = samples[2 * i];
    }
    samples.resize(kMostSamples / 2);
    sampleStep_ *= 2;
  }
  samples.push_back({sampledMs_ - startMs_, cache_->AheadMs()});
}
