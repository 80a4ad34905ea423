// The playlist of `zvhttp hls`: found, loaded, and while it is live loaded again and again by a thread of its own, so that
// a reader who is held up misses nothing.
#ifndef TOOLS_HLS_SOURCE_H
#define TOOLS_HLS_SOURCE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CommonOptions.h"
#include "ExitCode.h"
#include "Fetch.h"
#include "HlsList.h"

struct HlsSourceOptions {
  CommonOptions common;
  std::optional<int32_t> variant;  // place in the master playlist; without it the one of the highest bandwidth
  int32_t liveWaitSeconds = 60;    // a live playlist that brings nothing new for so long has failed
};

// All functions for the main thread.
class HlsSource {
 public:
  // What the playlist says at this moment.
  struct State {
    int64_t oldest = 0;  // first number that is listed
    int64_t end = 0;     // behind the last
    bool isEnded = false;
    int64_t loads = 0;  // successful ones
    Outcome failure;    // why it is not loaded any more
  };

  // The options must outlive it.
  explicit HlsSource(const HlsSourceOptions& options);
  // Joins the thread.
  ~HlsSource();
  HlsSource(const HlsSource&) = delete;
  HlsSource& operator=(const HlsSource&) = delete;

  // Loads it for the first time, through a master playlist where there is one.
  Outcome Load();
  // Loads it again and again from now on, until it has ended.
  void KeepLoading();

  // Where the media playlist is.
  const std::string& Url() const { return url_; }
  State Now() const;
  // Waits until more than so many loads have succeeded, or nothing more will come; no longer than ms.
  void AwaitLoad(int64_t loads, int64_t ms) const;

  // As the functions of HlsList.
  std::optional<HlsSegment> FindFrom(int64_t sequence) const;
  std::vector<HlsSegment> TakeMoved();
  void DropBefore(int64_t sequence);

 private:
  Outcome LoadOnce(const std::function<bool()>& isStopped, Playlist* playlist);
  Outcome About(Outcome outcome) const;
  Outcome Choose(const Playlist& master);
  bool IsOver() const;
  void Run();
  // False when the thread is to end.
  bool Rest(int64_t untilMs);
  Outcome Reload(bool* isNew);

  const HlsSourceOptions& options_;
  std::string url_;
  Fetcher fetcher_;  // the main thread's until KeepLoading, then the thread's
  std::atomic<bool> isStopped_{false};
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  HlsList list_;             // under mutex_
  Outcome failure_;          // under mutex_
  int64_t loads_ = 0;        // under mutex_
  int32_t targetMs_ = 1000;  // the main thread's until KeepLoading, then the thread's
  std::thread thread_;
};

#endif
