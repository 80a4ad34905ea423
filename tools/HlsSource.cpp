#include "HlsSource.h"

#include <algorithm>

#include "Signals.h"
#include "ZVBase.h"

namespace {

// Loads in a row that may fail before the playlist is given up.
constexpr int kMostFailures = 5;
constexpr int64_t kLookMs = 50;

}  // namespace

HlsSource::HlsSource(const HlsSourceOptions& options)
    : options_(options), url_(options.common.url), fetcher_(options.common) {}

HlsSource::~HlsSource() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isStopped_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) {
    thread_.join();
  }
}

Outcome HlsSource::Load() {
  Playlist playlist;
  Outcome outcome = LoadOnce(IsInterrupted, &playlist);
  if (outcome.IsOk() && playlist.IsMaster()) {
    outcome = Choose(playlist);
    if (outcome.IsOk()) {
      outcome = LoadOnce(IsInterrupted, &playlist);
    }
    if (outcome.IsOk() && playlist.IsMaster()) {
      outcome = About(TransferFailed("a master playlist inside another"));
    }
  }
  if (!outcome.IsOk()) {
    return outcome;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  list_.Merge(playlist);
  targetMs_ = playlist.targetDurationMs;
  loads_ += 1;
  return {};
}

Outcome HlsSource::LoadOnce(const std::function<bool()>& isStopped, Playlist* playlist) {
  const Fetched fetched = fetcher_.Fetch({url_}, kMostPlaylistBytes, isStopped);
  if (!fetched.outcome.IsOk()) {
    return About(fetched.outcome);
  }
  std::string error;
  std::optional<Playlist> parsed = ParsePlaylist(fetched.bytes, fetched.url, &error);
  if (!parsed) {
    return About({ExitCode::kTransferFailed, 0, error});
  }
  *playlist = std::move(*parsed);
  return {};
}

// The command's own URL stands before every error anyway.
Outcome HlsSource::About(Outcome outcome) const {
  const bool isAboutTransfer =
      outcome.exitCode == ExitCode::kTransferFailed || outcome.exitCode == ExitCode::kHttpError;
  if (isAboutTransfer && url_ != options_.common.url) {
    outcome.error = "playlist " + url_ + ": " + outcome.error;
  }
  return outcome;
}

Outcome HlsSource::Choose(const Playlist& master) {
  const std::vector<Variant>& variants = master.variants;
  if (options_.variant) {
    if (*options_.variant >= static_cast<int64_t>(variants.size())) {
      return {ExitCode::kBadArguments, 0,
              "there is no variant " + std::to_string(*options_.variant) + ", only 0 to " +
                  std::to_string(variants.size() - 1)};
    }
    url_ = variants[static_cast<size_t>(*options_.variant)].url;
    return {};
  }
  url_ = std::max_element(variants.begin(), variants.end(), [](const Variant& left, const Variant& right) {
           return left.bandwidth < right.bandwidth;
         })->url;
  return {};
}

void HlsSource::KeepLoading() {
  // Loads are repeated anyway, at the playlist's own pace.
  fetcher_.StopRetrying();
  const SignalsForMainThreadOnly guard;
  thread_ = std::thread([this] { Run(); });
}

HlsSource::State HlsSource::Now() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {list_.Oldest(), list_.End(), list_.IsEnded(), loads_, failure_};
}

// The mutex is held.
bool HlsSource::IsOver() const {
  return list_.IsEnded() || !failure_.IsOk();
}

void HlsSource::AwaitLoad(int64_t loads, int64_t ms) const {
  const int64_t until = ZV_ChronoGetTick() + ms;
  std::unique_lock<std::mutex> lock(mutex_);
  // Signals wake nobody here, so they are looked for.
  while (loads_ <= loads && !IsOver() && !IsInterrupted() && ZV_ChronoGetTick() < until) {
    changed_.wait_for(lock, std::chrono::milliseconds(std::min(kLookMs, ms)));
  }
}

std::optional<HlsSegment> HlsSource::FindFrom(int64_t sequence) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const HlsSegment* const segment = list_.FindFrom(sequence);
  return segment == nullptr ? std::nullopt : std::optional(*segment);
}

std::vector<HlsSegment> HlsSource::TakeMoved() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return list_.TakeMoved();
}

void HlsSource::DropBefore(int64_t sequence) {
  const std::lock_guard<std::mutex> lock(mutex_);
  list_.DropBefore(sequence);
}

// ---- The thread ----

bool HlsSource::Rest(int64_t untilMs) {
  std::unique_lock<std::mutex> lock(mutex_);
  for (int64_t now = ZV_ChronoGetTick(); now < untilMs && !isStopped_; now = ZV_ChronoGetTick()) {
    changed_.wait_for(lock, std::chrono::milliseconds(untilMs - now));
  }
  return !isStopped_;
}

Outcome HlsSource::Reload(bool* isNew) {
  const int64_t until = ZV_ChronoGetTick() + int64_t{options_.liveWaitSeconds} * 1000;
  Playlist playlist;
  Outcome outcome = LoadOnce([this, until] { return isStopped_ || ZV_ChronoGetTick() > until; }, &playlist);
  if (outcome.IsOk() && playlist.IsMaster()) {
    outcome = About(TransferFailed("it has become a master playlist"));
  }
  if (!outcome.IsOk()) {
    return outcome;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    *isNew = list_.Merge(playlist);
    loads_ += 1;
  }
  changed_.notify_all();
  targetMs_ = playlist.targetDurationMs;
  return {};
}

// A playlist that has changed is loaded again after its target duration, one that has not after half of it.
void HlsSource::Run() {
  int64_t loadedMs = ZV_ChronoGetTick();
  int64_t newMs = loadedMs;
  bool isNew = true;
  int failures = 0;
  while (Rest(loadedMs + (isNew ? targetMs_ : targetMs_ / 2))) {
    loadedMs = ZV_ChronoGetTick();
    isNew = false;
    Outcome outcome = Reload(&isNew);
    failures = outcome.IsOk() ? 0 : failures + 1;
    newMs = isNew ? loadedMs : newMs;
    if (outcome.IsOk() && ZV_ChronoGetTick() - newMs > int64_t{options_.liveWaitSeconds} * 1000) {
      outcome =
          About(TransferFailed("it has brought nothing new for " + std::to_string(options_.liveWaitSeconds) + " s"));
      failures = kMostFailures;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (failures >= kMostFailures) {
      failure_ = outcome;
    }
    if (IsOver()) {
      break;
    }
  }
  changed_.notify_all();
}
