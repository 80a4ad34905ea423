// Waiting for bytes without a busy loop.
#ifndef TOOLS_PAUSE_H
#define TOOLS_PAUSE_H

#include <algorithm>
#include <cstdint>

#include "Signals.h"
#include "ZVBase.h"

// Sleeps between two looks at a stream that has nothing: longer each time, up to a bound that keeps the library's buffer
// from running full meanwhile.
class Pause {
 public:
  void Reset() { waitMs_ = kShortestMs; }
  void Sleep() {
    ZV_SleepFor(waitMs_);
    waitMs_ = std::min(waitMs_ + 1, kLongestMs);
  }

 private:
  static constexpr int32_t kShortestMs = 1;
  static constexpr int32_t kLongestMs = 5;
  int32_t waitMs_ = kShortestMs;
};

// Sleeps that long, or until a signal asks to stop.
inline void SleepUnlessInterrupted(int64_t ms) {
  constexpr int64_t kLookMs = 50;
  const int64_t until = ZV_ChronoGetTick() + ms;
  for (int64_t left = ms; left > 0 && !IsInterrupted(); left = until - ZV_ChronoGetTick()) {
    ZV_SleepFor(static_cast<int32_t>(std::min(left, kLookMs)));
  }
}

#endif
