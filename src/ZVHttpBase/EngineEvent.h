// The one event of a handle: whoever changes something that another thread may be waiting for raises it, so that no wait
// has to poll.
//
// A waiter says what it waits for, so that the hot paths (a pushed block, a freed fragment) cost one load while nobody
// does. No wake-up is lost: the waiter counts itself in before it tests its predicate, the raiser changes the state before
// it looks at the count; both with sequential order, or the state under a mutex. The lock is a leaf: nothing is called
// under it.
#pragma once

#include <atomic>
#include <cstdint>

#include "Common/Guard.h"

enum EventKind : int32_t {
  kEventWork,  // for the monitor: a result, an answer, room in the ring buffer, a thread that started, a stop
  kEventIdle,  // for Open, Close and Release: the monitor waits for a task
  kEventData,  // for readers inside the library: bytes arrived, or the download ended
  kEventStop,  // for a retry pause: the handle is closed or released, or the task is stopped
  kEventKinds,
};

struct EngineEvent {
  ZVCondition* cond;
  std::atomic<int32_t> waiters[kEventKinds];
  std::atomic<uint32_t> raised;  // grows under cond's lock; compared by waiters
};

constexpr int32_t kWaitForEver = INT32_MAX;

// False when the condition cannot be made.
bool EventInit(EngineEvent* event);
void EventRelease(EngineEvent* event);
void EventRaise(EngineEvent* event, EventKind kind);

// Waits until the event was raised after `seen` was read, at most ms.
void EventSleep(EngineEvent* event, uint32_t seen, int64_t ms);

// Waits until done() holds, at most ms; gives done(). done() is called without the event's lock.
template <typename Predicate>
bool EventWait(EngineEvent* event, EventKind kind, int64_t ms, Predicate done) {
  event->waiters[kind].fetch_add(1);
  const ScopeGuard countOut([event, kind] { event->waiters[kind].fetch_sub(1); });
  const int64_t start = ZV_ChronoGetTick();
  for (;;) {
    const uint32_t seen = event->raised.load();
    if (done()) {
      return true;
    }
    const int64_t left = ms == kWaitForEver ? kWaitForEver : ms - (ZV_ChronoGetTick() - start);
    if (left <= 0) {
      return false;
    }
    EventSleep(event, seen, left);
  }
}
