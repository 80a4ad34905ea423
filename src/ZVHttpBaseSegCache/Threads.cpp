// Who of the five workers works, their start and their end. Every thread.
#include <new>

#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCache/LogNames.h"
#include "ZVHttpBaseSegCache/SegCache.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

bool IsUsable(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex) {
  return cache->threads[worker] != nullptr && cache->threadIsLost[worker] == 0;
}

bool IsInUse(HttpBaseSegCache* cache, int32_t worker) ZV_REQUIRES(cache->mutex) {
  return IsUsable(cache, worker) && cache->threadInUse[worker] != 0;
}

bool MakeThreadArg(HttpBaseSegCache* cache, int32_t worker) {
  void* const memory = ZV_Calloc(sizeof(SegCacheThreadArg));
  if (memory == nullptr) {
    return false;
  }
  SegCacheThreadArg* const arg = new (memory) SegCacheThreadArg();
  arg->cache = cache;
  arg->index = worker;
  cache->threadArgs[worker] = arg;
  return true;
}

bool StartThread(HttpBaseSegCache* cache, int32_t worker) {
  const SegGuard guard(cache);  // the worker waits here until its thread is known
  cache->threads[worker] = ZV_ThreadInit(SegCacheThread, cache->threadArgs[worker]);
  return cache->threads[worker] != nullptr;
}

ZVThread* TakeThread(HttpBaseSegCache* cache, int32_t worker) {
  const SegGuard guard(cache);
  ZVThread* const thread = cache->threads[worker];
  cache->threads[worker] = nullptr;
  return thread;
}

}  // namespace

void ZV_HttpBaseSegCacheNotifyAllThread(HttpBaseSegCache* cache) {
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    if (!IsInUse(cache, worker)) {
      continue;
    }
    if (cache->threadState[worker] == 0) {
      NoteWake(cache, worker);
    }
    if (cache->firstSegmentCached == 0) {
      LOG_TRACE("%s only notify one thread to down load the first segment");
      return;
    }
  }
}

void ZV_HttpBaseSegCacheUseThread(HttpBaseSegCache* cache, int32_t worker) {
  cache->threadInUse[worker] = 1;
  cache->usingThreadNum += 1;
  if (cache->threadState[worker] == 0) {
    NoteWake(cache, worker);
  }
}

void LeaveUse(HttpBaseSegCache* cache, int32_t worker) {
  cache->threadInUse[worker] = 0;
  cache->usingThreadNum -= 1;
  cache->threadState[worker] = 0;
  ZV_HttpBaseSegCacheNotifyAllThread(cache);
}

void UseThreadsUpToMax(HttpBaseSegCache* cache) {
  const int32_t most = cache->maxThreadNum.load();
  for (int32_t worker = 0; worker < kWorkers && cache->usingThreadNum < most; ++worker) {
    if (IsUsable(cache, worker) && cache->threadInUse[worker] == 0) {
      ZV_HttpBaseSegCacheUseThread(cache, worker);
    }
  }
}

void StopWorkers(HttpBaseSegCache* cache) {
  cache->abortCacheThread.store(1);
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    NoteWake(cache, worker);
  }
}

int32_t ZV_HttpBaseSegCacheThreadInit(HttpBaseSegCache* cache, int32_t worker) {
  ScopeGuard undo([cache, worker] { FreeWorker(cache, worker); });
  cache->conditions[worker] = ZV_ConditionInit();
  if (cache->conditions[worker] == nullptr || !MakeThreadArg(cache, worker)) {
    return 1;
  }
  cache->streams[worker] = ZV_HttpBaseSegCacheStreamInit(HttpBaseSegCache_Callback_Impl, cache, worker);
  if (cache->streams[worker] == nullptr) {
    LOG_ERROR("%s %d ZV_HttpBaseInit failed for no memory", worker);
    return 1;
  }
  ZVIner_SetStrictRange(cache->streams[worker]->httpBase, 1);
  if (!StartThread(cache, worker)) {
    return 1;
  }
  undo.Dismiss();
  return 0;
}

void JoinWorkers(HttpBaseSegCache* cache) {
  for (int32_t worker = 0; worker < kWorkers; ++worker) {
    ZVThread* thread = TakeThread(cache, worker);
    if (thread != nullptr) {
      ZV_ThreadJoin(thread);
      ZV_ThreadRelease(&thread);
    }
  }
}

// Its thread has been joined, or never was.
void FreeWorker(HttpBaseSegCache* cache, int32_t worker) {
  if (cache->streams[worker] != nullptr) {
    ZV_HttpBaseSegCacheStreamRelease(&cache->streams[worker]);
  }
  if (cache->threadArgs[worker] != nullptr) {
    ZV_Free(&cache->threadArgs[worker]->url);
    cache->threadArgs[worker]->~SegCacheThreadArg();
    ZV_Free(&cache->threadArgs[worker]);
  }
  ZV_ConditionRelease(&cache->conditions[worker]);
}

extern "C" void ZV_HttpBaseSegCacheSetThreadNumber(HttpBaseSegCache* cache, int32_t threadNum) {
  if (!HasParams(__func__, cache != nullptr)) {
    return;
  }
  LOG_TRACE("%s Enter threadNum=%d", threadNum);
  if (threadNum <= 0) {
    LOG_ERROR("%s threadNum illegal");
    return;
  }
  cache->maxThreadNum.store(std::min(threadNum, kWorkers));
  if (IsLocal(cache)) {
    const SegGuard guard(cache);
    UseThreadsUpToMax(cache);
  }
  LOG_TRACE("%s Exit with threadNum=%d", cache->maxThreadNum.load());
}
