// Entering and leaving the segment cache: the mutex, what is done after it, who may call what. Every thread.
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

// The handle whose own thread, or whose callback, is running here.
thread_local const HttpBaseSegCache* segCacheOfThisThread = nullptr;

// Raised after the state was changed; a worker reads its counter before it looks at the state, so no wake-up is lost.
void Wake(HttpBaseSegCache* cache, int32_t worker) {
  {
    const ConditionGuard guard(cache->conditions[worker]);
    cache->threadArgs[worker]->wakeUps.fetch_add(1);
    ZV_ConditionSignal(cache->conditions[worker]);
  }
  ZVIner_WakeReaders(cache->streams[worker]->httpBase);
}

void CallOut(const HttpBaseSegCache* cache, const SegCall& call) {
  if (cache->released.load() != 0) {
    return;
  }
  const HttpBaseSegCache* const outer = segCacheOfThisThread;
  segCacheOfThisThread = cache;
  if (call.state != nullptr && call.value != 0 && !IsLocal(cache)) {
    // Cached time that was noted just before the local cache was left.
  } else if (call.state != nullptr) {
    call.state(cache->userData, call.type, call.value);
  } else {
    cache->msgCallback(cache->userData, call.value);
  }
  segCacheOfThisThread = outer;
}

void Note(HttpBaseSegCache* cache, const SegCall& call) ZV_REQUIRES(cache->mutex) {
  if (cache->notes.callCount < kMostCalls) {
    cache->notes.calls[cache->notes.callCount++] = call;
  }
}

}  // namespace

SegGuard::SegGuard(HttpBaseSegCache* cache) : cache_(cache) {
  ZV_MutexLock(cache->mutex);
}

SegGuard::~SegGuard() {
  SegNotes notes = cache_->notes;
  cache_->notes.wakeMask = 0;
  cache_->notes.callCount = 0;
  cache_->notes.fileCount = 0;
  ZV_MutexUnlock(cache_->mutex);
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    if ((notes.wakeMask >> worker & 1U) != 0) {
      Wake(cache_, worker);
    }
  }
  for (int32_t i = 0; i < notes.callCount; ++i) {
    CallOut(cache_, notes.calls[i]);
  }
  for (int32_t i = 0; i < notes.fileCount; ++i) {
    ZV_HttpBaseCacheFileReleaseCacheFile(&notes.files[i]);
  }
}

void NoteMessage(HttpBaseSegCache* cache, int32_t code) {
  if (cache->msgCallback != nullptr) {
    Note(cache, {nullptr, 0, code});
  }
}

void NoteState(HttpBaseSegCache* cache, int32_t type, int32_t value) {
  const HttpBaseSegCacheStateCallback callback = cache->cacheStateCallback.load();
  if (callback != nullptr) {
    Note(cache, {callback, type, value});
  }
}

void NoteWake(HttpBaseSegCache* cache, int32_t worker) {
  if (cache->threadArgs[worker] != nullptr) {
    cache->notes.wakeMask |= 1U << worker;
  }
}

void NoteLostFile(HttpBaseSegCache* cache, HttpBaseCacheFile* file) {
  if (cache->notes.fileCount < kMostLostFiles) {
    cache->notes.files[cache->notes.fileCount++] = file;
  } else {
    ZV_HttpBaseCacheFileReleaseCacheFile(&file);
  }
}

void CallPlayer(const HttpBaseSegCache* cache, int32_t code) {
  if (cache->msgCallback != nullptr) {
    CallOut(cache, {nullptr, 0, code});
  }
}

void EnterSegCacheThread(const HttpBaseSegCache* cache) {
  segCacheOfThisThread = cache;
}

bool MayStop(const char* name, const HttpBaseSegCache* cache) {
  if (segCacheOfThisThread == cache) {
    LOG_ERROR_AS(name, "%s called from a callback of the handle, refused");
    return false;
  }
  return true;
}

void SleepUntilWoken(HttpBaseSegCache* cache, int32_t worker, uint32_t seen) {
  const ConditionGuard guard(cache->conditions[worker]);
  while (cache->threadArgs[worker]->wakeUps.load() == seen) {
    ZV_ConditionWait(cache->conditions[worker]);
  }
}

void SleepUntilWokenFor(HttpBaseSegCache* cache, int32_t worker, uint32_t seen, int32_t ms) {
  const ConditionGuard guard(cache->conditions[worker]);
  if (cache->threadArgs[worker]->wakeUps.load() == seen) {
    ZV_ConditionWaitFor(cache->conditions[worker], ms);
  }
}
