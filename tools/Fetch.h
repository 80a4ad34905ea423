// Small resources, playlists for one, fetched into memory with a downloader.
#ifndef TOOLS_FETCH_H
#define TOOLS_FETCH_H

#include <functional>
#include <string>

#include "CommonOptions.h"
#include "ExitCode.h"
#include "Handles.h"
#include "Messages.h"
#include "Playlist.h"

struct Fetched {
  Outcome outcome;
  std::string bytes;
  std::string url;  // where redirects have led
};

// Made on the main thread, then used by one thread at a time. Keeps its connection for the next fetch.
class Fetcher {
 public:
  // The options must outlive it.
  explicit Fetcher(const CommonOptions& options);
  Fetcher(const Fetcher&) = delete;
  Fetcher& operator=(const Fetcher&) = delete;

  // Waits for the part, most bytes of it at most. Ends early, with whatever outcome, when isStopped says so.
  Fetched Fetch(const MediaPart& part, size_t most, const std::function<bool()>& isStopped);
  // Failures are reported at once from now on.
  void StopRetrying();

 private:
  Outcome Receive(const MediaPart& part, size_t most, const std::function<bool()>& isStopped, std::string* bytes);
  Outcome Conclude(const MediaPart& part, std::string* bytes) const;

  Messages messages_;
  const DownloaderOwner owner_;
};

#endif
