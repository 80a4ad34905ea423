// Guards for locks and for undoing: what is taken in a scope is given back at its end.
#pragma once

#include <utility>

#include "ZVBase.h"

#define ZV_GUARDED_BY(...) ZV_THREAD_ATTRIBUTE(guarded_by(__VA_ARGS__))
#define ZV_ACQUIRED_BEFORE(...) ZV_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define ZV_SCOPED_LOCK ZV_THREAD_ATTRIBUTE(scoped_lockable)
#define ZV_ASSERTS(...) ZV_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
#define ZV_UNCHECKED ZV_THREAD_ATTRIBUTE(no_thread_safety_analysis)

class ZV_SCOPED_LOCK MutexGuard {
 public:
  explicit MutexGuard(ZVMutex* mutex) ZV_ACQUIRES(mutex) : mutex_(mutex) { ZV_MutexLock(mutex_); }
  ~MutexGuard() ZV_RELEASES() { ZV_MutexUnlock(mutex_); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  ZVMutex* mutex_;
};

class ZV_SCOPED_LOCK ConditionGuard {
 public:
  explicit ConditionGuard(ZVCondition* condition) ZV_ACQUIRES(condition) : condition_(condition) {
    ZV_ConditionLock(condition_);
  }
  ~ConditionGuard() ZV_RELEASES() { ZV_ConditionUnlock(condition_); }
  ConditionGuard(const ConditionGuard&) = delete;
  ConditionGuard& operator=(const ConditionGuard&) = delete;

 private:
  ZVCondition* condition_;
};

// Tells the analysis what a callback knows: the thread that it runs on holds the lock.
inline void AssertHeld(ZVCondition* condition) ZV_ASSERTS(condition) {
  (void)condition;
}

// Runs an action at the end of the scope unless it is dismissed.
template <typename Action>
class ScopeGuard {
 public:
  explicit ScopeGuard(Action action) : action_(std::move(action)) {}
  ~ScopeGuard() {
    if (armed_) {
      action_();
    }
  }
  void Dismiss() { armed_ = false; }
  ScopeGuard(const ScopeGuard&) = delete;
  ScopeGuard& operator=(const ScopeGuard&) = delete;

 private:
  Action action_;
  bool armed_ = true;
};
