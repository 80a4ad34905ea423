// The platform services over the C++ standard library.
#include "ZVBase.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

struct ZVMutex {
  std::mutex mutex;
};

struct ZVCondition {
  std::mutex mutex;
  std::condition_variable variable;
};

struct ZVThread {
  std::thread thread;
};

// The bodies below implement the locks, so the lock analysis has nothing to say about them.
#if defined(__clang__)
#define ZV_UNCHECKED __attribute__((no_thread_safety_analysis))
#else
#define ZV_UNCHECKED
#endif

namespace {

template <typename Object>
void Destroy(Object** object) {
  if (object != nullptr) {
    delete *object;
    *object = nullptr;
  }
}

char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

extern "C" {

ZVMutex* ZV_MutexInit(void) {
  return new (std::nothrow) ZVMutex;
}

ZV_UNCHECKED void ZV_MutexLock(ZVMutex* mutex) {
  mutex->mutex.lock();
}

ZV_UNCHECKED void ZV_MutexUnlock(ZVMutex* mutex) {
  mutex->mutex.unlock();
}

void ZV_MutexRelease(ZVMutex** mutex) {
  Destroy(mutex);
}

ZVCondition* ZV_ConditionInit(void) {
  return new (std::nothrow) ZVCondition;
}

ZV_UNCHECKED void ZV_ConditionLock(ZVCondition* condition) {
  condition->mutex.lock();
}

ZV_UNCHECKED void ZV_ConditionUnlock(ZVCondition* condition) {
  condition->mutex.unlock();
}

ZV_UNCHECKED void ZV_ConditionWait(ZVCondition* condition) {
  std::unique_lock<std::mutex> held(condition->mutex, std::adopt_lock);
  condition->variable.wait(held);
  held.release();
}

ZV_UNCHECKED void ZV_ConditionWaitFor(ZVCondition* condition, int32_t ms) {
  std::unique_lock<std::mutex> held(condition->mutex, std::adopt_lock);
  condition->variable.wait_for(held, std::chrono::milliseconds(ms));
  held.release();
}

ZV_UNCHECKED void ZV_ConditionSignal(ZVCondition* condition) {
  condition->variable.notify_all();
}

void ZV_ConditionRelease(ZVCondition** condition) {
  Destroy(condition);
}

ZVThread* ZV_ThreadInit(ZVThreadFunction function, void* argument) {
  ZVThread* thread = new (std::nothrow) ZVThread;
  if (thread == nullptr) {
    return nullptr;
  }
  try {
    thread->thread = std::thread(function, argument);
  } catch (const std::exception&) {  // no resources for a thread, or for its start record
    Destroy(&thread);
  }
  return thread;
}

void ZV_ThreadJoin(ZVThread* thread) {
  if (thread != nullptr && thread->thread.joinable()) {
    thread->thread.join();
  }
}

void ZV_ThreadRelease(ZVThread** thread) {
  Destroy(thread);
}

void* ZV_Malloc(size_t bytes) {
  return malloc(bytes);
}

void* ZV_Calloc(size_t bytes) {
  return calloc(1, bytes);
}

void ZV_Free(void* pointerVariable) {
  if (pointerVariable == nullptr) {
    return;
  }
  void* block;
  memcpy(&block, pointerVariable, sizeof block);
  free(block);
  block = nullptr;
  memcpy(pointerVariable, &block, sizeof block);
}

void ZV_SleepFor(int32_t ms) {
  if (ms > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }
}

int64_t ZV_ChronoGetTick(void) {
  const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count();
}

int64_t ZV_Atoll(const char* text) {
  return text == nullptr ? 0 : strtoll(text, nullptr, 10);
}

int32_t ZV_Strnicmp(const char* left, const char* right, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const char l = LowerAscii(left[i]);
    const char r = LowerAscii(right[i]);
    if (l != r || l == '\0') {
      return static_cast<unsigned char>(l) - static_cast<unsigned char>(r);
    }
  }
  return 0;
}

}  // extern "C"
