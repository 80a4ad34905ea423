// Threads: any. Locks: only `registry` inside creation and release of locks, so that a lock that is used after its
// release is noticed; everything else is counted in atomics, relaxed ones, which order nothing between threads.
#include "FaultPlatform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_set>

// clang-format off
#include "RealPlatformBegin.h"
#include "ZVBase.h"
#include "RealPlatformEnd.h"
#include "ZVBase.h"
// clang-format on

#if defined(__clang__)
#define ZV_UNCHECKED __attribute__((no_thread_safety_analysis))
#else
#define ZV_UNCHECKED
#endif

namespace fault_platform {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
using Counter = std::atomic<int64_t>;

// What is known of one kind of creation. failAt: the number of the next one that fails, counted from FailNth on; 0: none.
struct KindState {
  Counter calls{0};
  Counter live{0};
  Counter sinceArmed{0};
  Counter failAt{0};
  Counter failed{0};
  std::atomic<bool> onward{false};
};

KindState kinds[kKinds];
Counter runningThreads{0};
Counter waits{0};
Counter wakeUps{0};
Counter sleeps{0};

std::atomic<int32_t> timeScale{1};
std::atomic<int64_t> realAnchorMs{0};
std::atomic<int64_t> shownAnchorMs{0};

KindState& StateOf(Kind kind) {
  return kinds[static_cast<int>(kind)];
}

// Counts one creation and decides whether it fails.
bool Fails(Kind kind) {
  KindState& state = StateOf(kind);
  state.calls.fetch_add(1, kRelaxed);
  const int64_t failAt = state.failAt.load(kRelaxed);
  if (failAt == 0) {
    return false;
  }
  const int64_t number = state.sinceArmed.fetch_add(1, kRelaxed) + 1;
  const bool fails = number == failAt || (number > failAt && state.onward.load(kRelaxed));
  if (fails) {
    state.failed.fetch_add(1, kRelaxed);
  }
  return fails;
}

void NoteLive(Kind kind, int64_t change) {
  StateOf(kind).live.fetch_add(change, kRelaxed);
}

[[noreturn]] void Die(const char* function, const char* what) {
  fprintf(stderr, "fault platform: %s: %s\n", function, what);
  fflush(stderr);
  abort();
}

// The locks that exist. Guards against use after release only where the memory was not given out again.
std::mutex registryMutex;
std::unordered_set<const void*>& Registry() {
  static auto* const registry = new std::unordered_set<const void*>;  // never destroyed: threads may outlive main
  return *registry;
}

void Register(const void* lock) {
  std::lock_guard<std::mutex> guard(registryMutex);
  Registry().insert(lock);
}

void Unregister(const void* lock, const char* function) {
  std::lock_guard<std::mutex> guard(registryMutex);
  if (Registry().erase(lock) == 0) {
    Die(function, "releases what is no lock, or no longer");
  }
}

thread_local char threadMark;

// Who holds a lock. The word is relaxed: a thread only looks for itself in it.
class Owner {
 public:
  void CheckFree(const char* function) const {
    CheckAlive(function);
    if (holder_.load(kRelaxed) == &threadMark) {
      Die(function, "this thread holds the lock already");
    }
  }
  void CheckMine(const char* function) const {
    CheckAlive(function);
    if (holder_.load(kRelaxed) != &threadMark) {
      Die(function, "this thread does not hold the lock");
    }
  }
  void Take() { holder_.store(&threadMark, kRelaxed); }
  void GiveBack() { holder_.store(nullptr, kRelaxed); }
  void BeginWait() { waiters_.fetch_add(1, kRelaxed); }
  void EndWait() { waiters_.fetch_sub(1, kRelaxed); }
  void End(const char* function) {
    CheckAlive(function);
    if (holder_.load(kRelaxed) != nullptr || waiters_.load(kRelaxed) != 0) {
      Die(function, "the lock is held or waited on");
    }
    mark_.store(0, kRelaxed);
  }

 private:
  static constexpr uint32_t kAlive = 0x5A4C4F43;

  void CheckAlive(const char* function) const {
    if (mark_.load(kRelaxed) != kAlive) {
      Die(function, "the lock does not exist, or no longer");
    }
  }

  std::atomic<uint32_t> mark_{kAlive};
  std::atomic<int32_t> waiters_{0};
  std::atomic<const char*> holder_{nullptr};
};

int32_t ScaleWait(int32_t ms) {
  const int32_t factor = timeScale.load(kRelaxed);
  return ms <= 0 || factor <= 1 ? ms : (ms + factor - 1) / factor;
}

int64_t ShowTime() {
  const int64_t real = Real_ZV_ChronoGetTick() - realAnchorMs.load(kRelaxed);
  return shownAnchorMs.load(kRelaxed) + real * timeScale.load(kRelaxed);
}

}  // namespace
}  // namespace fault_platform

using namespace fault_platform;  // the functions below are the wrapped platform itself

struct ZVMutex {
  Owner owner;
  Real_ZVMutex* real;
};

struct ZVCondition {
  Owner owner;
  Real_ZVCondition* real;
};

struct ZVThread {
  Real_ZVThread* real;
  ZVThreadFunction function;
  void* argument;
  std::atomic<bool> isJoined{false};
};

namespace {

int32_t RunThread(void* thread) {
  const ZVThread* const self = static_cast<ZVThread*>(thread);
  const int32_t result = self->function(self->argument);
  runningThreads.fetch_sub(1, kRelaxed);
  return result;
}

template <typename Lock, typename Real>
Lock* WrapLock(Kind kind, Real* real) {
  Lock* const lock = real == nullptr ? nullptr : new (std::nothrow) Lock;
  if (lock != nullptr) {
    lock->real = real;
    Register(lock);
    NoteLive(kind, 1);
  }
  return lock;
}

template <typename Lock, typename Real>
void ReleaseLock(Kind kind, Lock** lock, void (*releaseReal)(Real**), const char* function) {
  if (lock == nullptr || *lock == nullptr) {
    return;
  }
  Unregister(*lock, function);
  (*lock)->owner.End(function);
  releaseReal(&(*lock)->real);
  delete *lock;
  *lock = nullptr;
  NoteLive(kind, -1);
}

// A wait gives the lock up and has it again behind.
template <typename Wait>
void WaitOn(ZVCondition* condition, const char* function, Wait wait) {
  condition->owner.CheckMine(function);
  waits.fetch_add(1, kRelaxed);
  condition->owner.BeginWait();
  condition->owner.GiveBack();
  wait();
  condition->owner.Take();
  condition->owner.EndWait();
  wakeUps.fetch_add(1, kRelaxed);
}

void* CountBlock(void* block) {
  NoteLive(Kind::kAllocation, block == nullptr ? 0 : 1);
  return block;
}

}  // namespace

extern "C" {

ZVMutex* ZV_MutexInit(void) {
  return Fails(Kind::kMutex) ? nullptr : WrapLock<ZVMutex>(Kind::kMutex, Real_ZV_MutexInit());
}

ZV_UNCHECKED void ZV_MutexLock(ZVMutex* mutex) {
  mutex->owner.CheckFree(__func__);
  Real_ZV_MutexLock(mutex->real);
  mutex->owner.Take();
}

ZV_UNCHECKED void ZV_MutexUnlock(ZVMutex* mutex) {
  mutex->owner.CheckMine(__func__);
  mutex->owner.GiveBack();
  Real_ZV_MutexUnlock(mutex->real);
}

void ZV_MutexRelease(ZVMutex** mutex) {
  ReleaseLock(Kind::kMutex, mutex, Real_ZV_MutexRelease, __func__);
}

ZVCondition* ZV_ConditionInit(void) {
  return Fails(Kind::kCondition) ? nullptr : WrapLock<ZVCondition>(Kind::kCondition, Real_ZV_ConditionInit());
}

ZV_UNCHECKED void ZV_ConditionLock(ZVCondition* condition) {
  condition->owner.CheckFree(__func__);
  Real_ZV_ConditionLock(condition->real);
  condition->owner.Take();
}

ZV_UNCHECKED void ZV_ConditionUnlock(ZVCondition* condition) {
  condition->owner.CheckMine(__func__);
  condition->owner.GiveBack();
  Real_ZV_ConditionUnlock(condition->real);
}

ZV_UNCHECKED void ZV_ConditionWait(ZVCondition* condition) {
  WaitOn(condition, __func__, [condition]() ZV_UNCHECKED { Real_ZV_ConditionWait(condition->real); });
}

ZV_UNCHECKED void ZV_ConditionWaitFor(ZVCondition* condition, int32_t ms) {
  WaitOn(condition, __func__, [=]() ZV_UNCHECKED { Real_ZV_ConditionWaitFor(condition->real, ScaleWait(ms)); });
}

ZV_UNCHECKED void ZV_ConditionSignal(ZVCondition* condition) {
  condition->owner.CheckMine(__func__);
  Real_ZV_ConditionSignal(condition->real);
}

void ZV_ConditionRelease(ZVCondition** condition) {
  ReleaseLock(Kind::kCondition, condition, Real_ZV_ConditionRelease, __func__);
}

ZVThread* ZV_ThreadInit(ZVThreadFunction function, void* argument) {
  ZVThread* thread = Fails(Kind::kThread) ? nullptr : new (std::nothrow) ZVThread;
  if (thread == nullptr) {
    return nullptr;
  }
  thread->function = function;
  thread->argument = argument;
  runningThreads.fetch_add(1, kRelaxed);
  thread->real = Real_ZV_ThreadInit(RunThread, thread);
  if (thread->real == nullptr) {
    runningThreads.fetch_sub(1, kRelaxed);
    delete thread;
    return nullptr;
  }
  NoteLive(Kind::kThread, 1);
  return thread;
}

void ZV_ThreadJoin(ZVThread* thread) {
  if (thread == nullptr) {
    return;
  }
  if (thread->isJoined.exchange(true, kRelaxed)) {
    Die(__func__, "the thread has been joined before");
  }
  Real_ZV_ThreadJoin(thread->real);
}

void ZV_ThreadRelease(ZVThread** thread) {
  if (thread == nullptr || *thread == nullptr) {
    return;
  }
  if (!(*thread)->isJoined.load(kRelaxed)) {
    Die(__func__, "the thread has not been joined");
  }
  Real_ZV_ThreadRelease(&(*thread)->real);
  delete *thread;
  *thread = nullptr;
  NoteLive(Kind::kThread, -1);
}

void* ZV_Malloc(size_t bytes) {
  return Fails(Kind::kAllocation) ? nullptr : CountBlock(Real_ZV_Malloc(bytes));
}

void* ZV_Calloc(size_t bytes) {
  return Fails(Kind::kAllocation) ? nullptr : CountBlock(Real_ZV_Calloc(bytes));
}

void ZV_Free(void* pointerVariable) {
  if (pointerVariable != nullptr && *static_cast<void**>(pointerVariable) != nullptr) {
    NoteLive(Kind::kAllocation, -1);
  }
  Real_ZV_Free(pointerVariable);
}

void ZV_SleepFor(int32_t ms) {
  sleeps.fetch_add(1, kRelaxed);
  Real_ZV_SleepFor(ScaleWait(ms));
}

int64_t ZV_ChronoGetTick(void) {
  return ShowTime();
}

int64_t ZV_Atoll(const char* text) {
  return Real_ZV_Atoll(text);
}

int32_t ZV_Strnicmp(const char* left, const char* right, size_t count) {
  return Real_ZV_Strnicmp(left, right, count);
}

}  // extern "C"

namespace fault_platform {

const char* NameOf(Kind kind) {
  constexpr const char* kNames[kKinds] = {"allocation", "mutex", "condition", "thread"};
  return kNames[static_cast<int>(kind)];
}

void FailNth(Kind kind, int64_t n, bool onward) {
  KindState& state = StateOf(kind);
  state.failAt.store(0, kRelaxed);
  state.sinceArmed.store(0, kRelaxed);
  state.failed.store(0, kRelaxed);
  state.onward.store(onward, kRelaxed);
  state.failAt.store(n, kRelaxed);
}

void FailNothing() {
  for (KindState& state : kinds) {
    state.failAt.store(0, kRelaxed);
  }
}

int64_t Failed(Kind kind) {
  return StateOf(kind).failed.load(kRelaxed);
}

int64_t Calls(Kind kind) {
  return StateOf(kind).calls.load(kRelaxed);
}

int64_t Live(Kind kind) {
  return StateOf(kind).live.load(kRelaxed);
}

int64_t RunningThreads() {
  return runningThreads.load(kRelaxed);
}

int64_t Waits() {
  return waits.load(kRelaxed);
}

int64_t WakeUps() {
  return wakeUps.load(kRelaxed);
}

int64_t Sleeps() {
  return sleeps.load(kRelaxed);
}

void ResetCounts() {
  for (KindState& state : kinds) {
    state.calls.store(0, kRelaxed);
  }
  waits.store(0, kRelaxed);
  wakeUps.store(0, kRelaxed);
  sleeps.store(0, kRelaxed);
}

std::vector<Gauge> LiveGauges() {
  std::vector<Gauge> gauges;
  for (int i = 0; i < kKinds; ++i) {
    const Kind kind = static_cast<Kind>(i);
    gauges.push_back({std::string("live objects of kind ") + NameOf(kind), [kind] { return Live(kind); }});
  }
  return gauges;
}

void SetTimeScale(int32_t factor) {
  const int64_t now = ShowTime();
  realAnchorMs.store(Real_ZV_ChronoGetTick(), kRelaxed);
  shownAnchorMs.store(now, kRelaxed);
  timeScale.store(factor, kRelaxed);
}

void AdvanceClock(int64_t ms) {
  shownAnchorMs.fetch_add(ms, kRelaxed);
}

void Reset() {
  FailNothing();
  ResetCounts();
  SetTimeScale(1);
}

}  // namespace fault_platform
