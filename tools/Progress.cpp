#include "Progress.h"

#include <algorithm>
#include <cstdio>

#include "Text.h"
#include "ZVBase.h"

namespace {

constexpr int64_t kUpdateMs = 200;
// How much of the shown speed is that of the last interval: about two seconds are averaged.
constexpr double kNewWeight = 0.2;
// What the library takes for a second of media, and keeps ahead, before it knows length and duration.
constexpr double kUnsizedSecond = 1 << 20;
constexpr double kUnsizedTarget = 5 << 20;

}  // namespace

std::string FormatProgress(const ProgressState& state) {
  std::string line;
  const auto bytes = static_cast<double>(state.bytes);
  if (state.expected > 0) {
    const auto expected = static_cast<double>(state.expected);
    // Rounding up would promise an end that is not there yet.
    const double tenths = static_cast<double>(static_cast<int64_t>(std::min(bytes / expected, 1.0) * 1000));
    line = FormatFixed(tenths / 10, 1) + " %  " + FormatBytes(bytes) + " of " + FormatBytes(expected);
  } else {
    line = FormatBytes(bytes);
  }
  line += "  " + FormatBytes(state.bytesPerSecond) + "/s";
  if (state.expected > 0) {
    const double left = static_cast<double>(std::max<int64_t>(state.expected - state.bytes, 0));
    line += "  " + FormatSeconds(state.bytesPerSecond > 0 ? left / state.bytesPerSecond : -1) + " left";
  }
  if (state.connections > 1) {
    line += "  up to " + std::to_string(state.connections) + " connections";
  } else {
    line += state.connections == 1 ? "  1 connection" : "";
  }
  if (state.segments) {
    line += "  " + std::to_string(state.segments->done) + " of " + std::to_string(state.segments->known) + " segments";
  }
  if (state.ahead) {
    line += "  " + FormatSeconds(static_cast<double>(state.ahead->ms) / 1000);
    line += state.ahead->bytes < 0 ? "" : " (" + FormatBytes(static_cast<double>(state.ahead->bytes)) + ")";
    line += " ahead";
  }
  return line;
}

Ahead EstimateAhead(int32_t ms, int64_t cacheTimeMs, int64_t durationMs, int64_t position, int64_t length) {
  const bool isSized = length > 0 && durationMs > 0;
  const double perSecond =
      isSized ? static_cast<double>(length) * 1000 / static_cast<double>(durationMs) : kUnsizedSecond;
  double bytes = static_cast<double>(ms) / 1000 * perSecond;
  if (ms >= cacheTimeMs) {
    const int64_t shares = isSized && durationMs > cacheTimeMs ? durationMs / cacheTimeMs + 1 : 1;
    bytes = isSized ? static_cast<double>(length) / static_cast<double>(shares) : kUnsizedTarget;
  }
  if (length > 0) {
    bytes = std::min(bytes, static_cast<double>(std::max<int64_t>(length - position, 0)));
  }
  return {ms, static_cast<int64_t>(bytes)};
}

int32_t ConnectionsFor(int64_t remaining, int32_t segmentBytes, int32_t connections) {
  if (remaining < 0) {
    return connections;
  }
  const int64_t segments = remaining / segmentBytes + (remaining % segmentBytes == 0 ? 0 : 1);
  return static_cast<int32_t>(std::min<int64_t>(segments, connections));
}

ProgressLine::ProgressLine(bool isShown, int32_t connections, int32_t segmentBytes)
    : isShown_(isShown),
      connections_(connections),
      segmentBytes_(segmentBytes),
      startMs_(ZV_ChronoGetTick()),
      drawnMs_(startMs_) {}

ProgressLine::~ProgressLine() {
  if (width_ > 0) {
    std::fprintf(stderr, "\r%s\r", std::string(width_, ' ').c_str());
    std::fflush(stderr);
  }
}

bool ProgressLine::IsDue() const {
  return isShown_ && ZV_ChronoGetTick() - drawnMs_ >= kUpdateMs;
}

void ProgressLine::Update(int64_t bytes, int64_t expected) {
  if (!IsDue()) {
    return;
  }
  const int64_t now = ZV_ChronoGetTick();
  const int64_t elapsed = now - drawnMs_;
  const double speed = static_cast<double>(bytes - drawnBytes_) * 1000 / static_cast<double>(elapsed);
  speed_ = drawnBytes_ == 0 ? speed : speed_ + (speed - speed_) * kNewWeight;
  Draw(now, bytes, expected);
}

void ProgressLine::Finish(int64_t bytes, int64_t expected) {
  if (!isShown_) {
    return;
  }
  const int64_t now = ZV_ChronoGetTick();
  speed_ = static_cast<double>(bytes) * 1000 / static_cast<double>(std::max<int64_t>(now - startMs_, 1));
  Draw(now, bytes, expected);
  std::fputc('\n', stderr);
  width_ = 0;
}

void ProgressLine::Draw(int64_t now, int64_t bytes, int64_t expected) {
  ProgressState state;
  state.bytes = bytes;
  state.expected = expected;
  state.bytesPerSecond = speed_;
  state.ahead = ahead_;
  state.segments = segments_;
  state.connections =
      ConnectionsFor(expected < 0 ? -1 : std::max<int64_t>(expected - bytes, 0), segmentBytes_, connections_);
  std::string line = FormatProgress(state);
  const size_t length = line.size();
  line.resize(std::max(length, width_), ' ');
  std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
  width_ = length;
  drawnMs_ = now;
  drawnBytes_ = bytes;
}
