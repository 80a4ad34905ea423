// The progress line of a command on a terminal.
#ifndef TOOLS_PROGRESS_H
#define TOOLS_PROGRESS_H

#include <cstddef>
#include <cstdint>
#include <string>

// One look at a download.
struct ProgressState {
  int64_t bytes = 0;
  int64_t expected = -1;  // -1: unknown
  double bytesPerSecond = 0;
  int32_t connections = 1;  // most that can be in flight now
};

// "42.0 %  1.3 MB of 3.1 MB  2.2 MB/s  0:01 left  up to 5 connections". The library does not tell how many connections
// are in flight, so the line says how many there can be.
std::string FormatProgress(const ProgressState& state);

// The most connections that a remainder keeps busy: each fetches one segment at a time. remaining -1: unknown.
int32_t ConnectionsFor(int64_t remaining, int32_t segmentBytes, int32_t connections);

class ProgressLine {
 public:
  ProgressLine(bool isShown, int32_t connections, int32_t segmentBytes);
  // Wipes the line away.
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

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
  size_t width_ = 0;  // of what stands on the line
};

#endif
