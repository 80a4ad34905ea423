// The event of a handle. Runs on every thread; takes only its own lock.
#include "ZVHttpBase/EngineEvent.h"

bool EventInit(EngineEvent* event) {
  event->cond = ZV_ConditionInit();
  return event->cond != nullptr;
}

void EventRelease(EngineEvent* event) {
  ZV_ConditionRelease(&event->cond);
}

void EventRaise(EngineEvent* event, EventKind kind) {
  if (event->waiters[kind].load() == 0) {
    return;
  }
  const ConditionGuard guard(event->cond);
  event->raised.fetch_add(1);
  ZV_ConditionSignal(event->cond);
}

void EventSleep(EngineEvent* event, uint32_t seen, int64_t ms) {
  const ConditionGuard guard(event->cond);
  if (event->raised.load() != seen) {
    return;
  }
  if (ms >= kWaitForEver) {
    ZV_ConditionWait(event->cond);
  } else {
    ZV_ConditionWaitFor(event->cond, static_cast<int32_t>(ms));
  }
}
