// Entering and leaving the cache: the lock, the calls that are made after it, who may call what. Every thread.
#include <algorithm>

#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

// The handle whose own thread, or whose callback, is running here.
thread_local const HttpBaseCache* cacheOfThisThread = nullptr;

void Note(HttpBaseCache* cache, const CallOut& call) ZV_REQUIRES(cache->cacheCondition) {
  if (cache->calls.count < kCalls) {
    cache->calls.calls[cache->calls.count++] = call;
  }
}

// What the calls need, taken under the lock: afterwards the handle may be gone.
struct TakenCalls {
  HttpBaseMsgCallback msgCallback;
  void* userData;
  CallList list;
};

TakenCalls TakeCalls(HttpBaseCache* cache) ZV_REQUIRES(cache->cacheCondition) {
  const TakenCalls taken = {cache->msgCallback, cache->userData, cache->calls};
  cache->calls.count = 0;
  return taken;
}

void MakeCalls(const HttpBaseCache* cache, const TakenCalls& taken) {
  if (taken.list.count == 0) {
    return;
  }
  const HttpBaseCache* const outer = cacheOfThisThread;
  cacheOfThisThread = cache;
  for (int32_t i = 0; i < taken.list.count; ++i) {
    const CallOut& call = taken.list.calls[i];
    if (call.state != nullptr) {
      call.state(taken.userData, ZV_CACHE_STATE_BUFFERED, call.value);
    } else {
      taken.msgCallback(taken.userData, call.value);
    }
  }
  cacheOfThisThread = outer;
}

}  // namespace

CacheGuard::CacheGuard(HttpBaseCache* cache) : cache_(cache) {
  TakeLock(cache);
}

CacheGuard::~CacheGuard() {
  LeaveLock(cache_);
}

void TakeLock(HttpBaseCache* cache) {
  ZV_ConditionLock(cache->cacheCondition);
}

void LeaveLock(HttpBaseCache* cache) {
  const TakenCalls taken = TakeCalls(cache);
  ZV_ConditionUnlock(cache->cacheCondition);
  MakeCalls(cache, taken);
}

void WaitOn(HttpBaseCache* cache) {
  if (cache->calls.count == 0) {
    ZV_ConditionWait(cache->cacheCondition);
    return;
  }
  LeaveLock(cache);
  TakeLock(cache);
}

void WaitOnFor(HttpBaseCache* cache, int32_t ms) {
  if (cache->calls.count == 0) {
    ZV_ConditionWaitFor(cache->cacheCondition, ms);
    return;
  }
  LeaveLock(cache);
  TakeLock(cache);
}

void NoteMessage(HttpBaseCache* cache, int32_t code) {
  if (cache->msgCallback != nullptr) {
    Note(cache, {nullptr, code});
  }
}

void NoteState(HttpBaseCache* cache, int32_t value) {
  const HttpBaseCacheStateCallback callback = cache->cacheStateCallback.load();
  if (callback != nullptr) {
    Note(cache, {callback, value});
  }
}

void WakeCacheThread(HttpBaseCache* cache) {
  cache->threadWanted.store(1);
  ZV_ConditionSignal(cache->cacheCondition);
  ZVIner_WakeReaders(cache->httpBase);
}

bool IsOwnThread(const HttpBaseCache* cache) {
  return cacheOfThisThread == cache || ZVIner_IsOwnThread(cache->httpBase) != 0;
}

void EnterCacheThread(const HttpBaseCache* cache) {
  cacheOfThisThread = cache;
}

bool MayStop(const char* name, const HttpBaseCache* cache) {
  if (IsOwnThread(cache)) {
    LOG_ERROR_AS(name, "%s called from a callback of the handle, refused");
    return false;
  }
  return true;
}

int32_t ClampToInt32(int64_t value) {
  return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}
