// The progress line of a command on a terminal.
#ifndef TOOLS_PROGRESS_H
#define TOOLS_PROGRESS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// What is cached ahead of the reader.
struct Ahead {
  int64_t ms = 0;     // media time
  int64_t bytes = 0;  // -1: not told
};

// How far a playlist has been played.
struct SegmentCount {
  int64_t done = 0;
  int64_t known = 0;
};

// One look at a download.
struct ProgressState {
  int64_t bytes = 0;
  int64_t expected = -1;  // -1: unknown
  double bytesPerSecond = 0;
  int32_t connections = 1;  // most that can be in flight now; 0: not shown
  std::optional<Ahead> ahead;
  std::optional<SegmentCount> segments;
};

// "42.0 %  1.3 MB of 3.1 MB  2.2 MB/s  0:01 left  up to 5 connections  0:12 (1.5 MB) ahead". The library does not tell how many connections
// are in flight, so the line says how many there can be.
std::string FormatProgress(const ProgressState& state);

// The library tells the media time ahead, and cacheTimeMs when as much is cached as it keeps ahead; this is how many bytes
// that is. durationMs and length (of the stream) are 0 or less while unknown.
Ahead EstimateAhead(int32_t ms, int64_t cacheTimeMs, int64_t durationMs, int64_t position, int64_t length);

// The most connections that a remainder keeps busy: each fetches one segment at a time. remaining -1: unknown.
int32_t ConnectionsFor(int64_t remaining, int32_t segmentBytes, int32_t connections);

class ProgressLine {
 public:
  ProgressLine(bool isShown, int32_t connections, int32_t segmentBytes);
  // Wipes the line away.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Whether Update would draw: only then what it shows need be asked for.
  bool IsDue() const;
  void SetAhead(const Ahead& ahead) { ahead_ = ahead; }
  void SetSegments(const SegmentCount& segments) { segments_ = segments; }
  // Draws the line anew, at most five times a second.
  void Update(int64_t bytes, int64_t expected);
  // Draws it a last time, whatever the time, and leaves it there.
  void Finish(int64_t bytes, int64_t expected);

 private:
  void Draw(int64_t now, int64_t bytes, int64_t expected);

  const bool isShown_;
  const int32_t connections_;
  const int32_t segmentBytes_;
  const int64_t startMs_;
  int64_t drawnMs_;
  int64_t drawnBytes_ = 0;
  double speed_ = 0;  // bytes per second, smoothed
  std::optional<Ahead> ahead_;
  std::optional<SegmentCount> segments_;
  size_t width_ = 0;  // of what stands on the line
};

#endif
