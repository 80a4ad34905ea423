/* ZVBase: the platform services that the library is built on. Plain C; every function may be called from any thread.
 *
 * Handles are opaque pointers, null means that one could not be made. A Release function takes the address of the
 * caller's variable, destroys the object and sets the variable to null; an address or a variable that is null does
 * nothing. Locks are not recursive. A program that brings its own ZVBase keeps exactly these names and meanings.
 */
#ifndef PLATFORM_ZV_BASE_H
#define PLATFORM_ZV_BASE_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(ZV_BASE_BUILD)
#define ZV_BASE_API __declspec(dllexport)
#elif defined(ZV_BASE_STATIC)
#define ZV_BASE_API
#else
#define ZV_BASE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define ZV_BASE_API __attribute__((visibility("default")))
#else
#define ZV_BASE_API
#endif

/* Lock rules that clang checks (-Wthread-safety); nothing elsewhere. */
#if defined(__clang__)
#define ZV_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZV_THREAD_ATTRIBUTE(x)
#endif
#define ZV_CAPABILITY(name) ZV_THREAD_ATTRIBUTE(capability(name))
#define ZV_ACQUIRES(...) ZV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZV_RELEASES(...) ZV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZV_REQUIRES(...) ZV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZV_EXCLUDES(...) ZV_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

#ifdef __cplusplus
extern "C" {
#endif

struct ZV_CAPABILITY("mutex") ZVMutex;
struct ZV_CAPABILITY("mutex") ZVCondition;
typedef struct ZVMutex ZVMutex;
typedef struct ZVCondition ZVCondition;
typedef struct ZVThread ZVThread;

/* A thread's function; nobody reads its result. */
typedef int32_t (*ZVThreadFunction)(void* argument);

/* A new mutex, or null. */
ZV_BASE_API ZVMutex* ZV_MutexInit(void);
ZV_BASE_API void ZV_MutexLock(ZVMutex* mutex) ZV_ACQUIRES(mutex);
ZV_BASE_API void ZV_MutexUnlock(ZVMutex* mutex) ZV_RELEASES(mutex);
ZV_BASE_API void ZV_MutexRelease(ZVMutex** mutex);

/* A new condition variable with a lock of its own, or null. */
ZV_BASE_API ZVCondition* ZV_ConditionInit(void);
ZV_BASE_API void ZV_ConditionLock(ZVCondition* condition) ZV_ACQUIRES(condition);
ZV_BASE_API void ZV_ConditionUnlock(ZVCondition* condition) ZV_RELEASES(condition);
/* Gives the lock up, waits for a signal, takes the lock again. May return without a signal: test your predicate. */
ZV_BASE_API void ZV_ConditionWait(ZVCondition* condition) ZV_REQUIRES(condition);
/* The same, but returns after ms milliseconds at the latest. */
ZV_BASE_API void ZV_ConditionWaitFor(ZVCondition* condition, int32_t ms) ZV_REQUIRES(condition);
/* Wakes every thread that waits on the condition; the caller holds the lock. */
ZV_BASE_API void ZV_ConditionSignal(ZVCondition* condition) ZV_REQUIRES(condition);
ZV_BASE_API void ZV_ConditionRelease(ZVCondition** condition);

/* A thread that runs function(argument), or null. It is joined once, then released. */
ZV_BASE_API ZVThread* ZV_ThreadInit(ZVThreadFunction function, void* argument);
ZV_BASE_API void ZV_ThreadJoin(ZVThread* thread);
ZV_BASE_API void ZV_ThreadRelease(ZVThread** thread);

/* A block of bytes bytes, or null. ZV_Calloc's bytes are 0. */
ZV_BASE_API void* ZV_Malloc(size_t bytes);
ZV_BASE_API void* ZV_Calloc(size_t bytes);
/* Takes the address of a pointer variable of any type; frees the block it holds and sets it to null. */
ZV_BASE_API void ZV_Free(void* pointerVariable);

/* The calling thread pauses for ms milliseconds; 0 and less return at once. */
ZV_BASE_API void ZV_SleepFor(int32_t ms);
/* Milliseconds of a clock that never goes back; only differences mean something. */
ZV_BASE_API int64_t ZV_ChronoGetTick(void);
/* The value of decimal text: leading blanks and one sign are accepted, the first other character ends it; values beyond
 * 64 bits stop at the nearest end. Null or no digit: 0. */
ZV_BASE_API int64_t ZV_Atoll(const char* text);
/* 0 when the first count characters of both agree, ASCII case ignored; otherwise their difference, as strcmp has it. */
ZV_BASE_API int32_t ZV_Strnicmp(const char* left, const char* right, size_t count);

#ifdef __cplusplus
}
#endif

#endif
