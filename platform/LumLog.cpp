// The log sink: a threshold, one callback, nothing by default.
//
// Threads: any. Locks: none is held while the callback runs. A message registers itself in `inFlight` before it looks at
// the receiver, so whoever replaces the receiver can wait until the old one is no longer in use.
#include "LumLog.h"

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

constexpr int kTextBytes = 2048;

struct Receiver {
  LumLogCallback callback;
  void* userData;
};

std::atomic<int32_t> threshold{LUM_LEVEL_TRACE};
std::atomic<Receiver*> current{nullptr};
std::atomic<int32_t> inFlight{0};

// Two slots suffice: a slot is written only when it is not `current` and no message is in flight.
Receiver slots[2];
std::mutex setMutex;

// Not the wait of the counter itself: on Windows the standard library's own can miss its wake-up.
std::mutex landedMutex;
std::condition_variable landed;

void LeaveFlight() {
  if (inFlight.fetch_sub(1) == 1) {
    { std::lock_guard<std::mutex> guard(landedMutex); }
    landed.notify_all();
  }
}

void WaitUntilNothingIsInFlight() {
  std::unique_lock<std::mutex> lock(landedMutex);
  landed.wait(lock, [] { return inFlight.load() == 0; });
}

}  // namespace

extern "C" int32_t LumLog(int32_t level, const char* moduleTag, const char* sourcePath, int32_t line,
                          const char* format, ...) {
  if (current.load(std::memory_order_relaxed) == nullptr || level < threshold.load(std::memory_order_relaxed)) {
    return 0;
  }
  inFlight.fetch_add(1);
  const Receiver* receiver = current.load();
  int32_t length = 0;
  if (receiver != nullptr) {
    char text[kTextBytes];
    va_list arguments;
    va_start(arguments, format);
    length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    receiver->callback(receiver->userData, level, moduleTag, sourcePath, line, text);
  }
  LeaveFlight();
  return length < 0 ? 0 : length;
}

extern "C" void LumLogSetLevel(int32_t level) {
  threshold.store(level);
}

extern "C" void LumLogSetCallback(LumLogCallback callback, void* userData) {
  std::lock_guard<std::mutex> guard(setMutex);
  Receiver* const next = current.load() == &slots[0] ? &slots[1] : &slots[0];
  // Without a receiver new messages do not register for long, so the wait below ends however much is logged.
  current.store(nullptr);
  WaitUntilNothingIsInFlight();
  if (callback != nullptr) {
    *next = Receiver{callback, userData};
    current.store(next);
  }
}
