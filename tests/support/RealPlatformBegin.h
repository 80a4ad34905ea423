// Between this header and RealPlatformEnd.h, platform/ZVBase is called Real_ZV_... with types of its own, so that the
// platform of the tests can wrap it under the published names. No include guard: the pair may be used again.
#define ZVMutex Real_ZVMutex
#define ZVCondition Real_ZVCondition
#define ZVThread Real_ZVThread
#define ZVThreadFunction Real_ZVThreadFunction
#define ZV_MutexInit Real_ZV_MutexInit
#define ZV_MutexLock Real_ZV_MutexLock
#define ZV_MutexUnlock Real_ZV_MutexUnlock
#define ZV_MutexRelease Real_ZV_MutexRelease
#define ZV_ConditionInit Real_ZV_ConditionInit
#define ZV_ConditionLock Real_ZV_ConditionLock
#define ZV_ConditionUnlock Real_ZV_ConditionUnlock
#define ZV_ConditionWait Real_ZV_ConditionWait
#define ZV_ConditionWaitFor Real_ZV_ConditionWaitFor
#define ZV_ConditionSignal Real_ZV_ConditionSignal
#define ZV_ConditionRelease Real_ZV_ConditionRelease
#define ZV_ThreadInit Real_ZV_ThreadInit
#define ZV_ThreadJoin Real_ZV_ThreadJoin
#define ZV_ThreadRelease Real_ZV_ThreadRelease
#define ZV_Malloc Real_ZV_Malloc
#define ZV_Calloc Real_ZV_Calloc
#define ZV_Free Real_ZV_Free
#define ZV_SleepFor Real_ZV_SleepFor
#define ZV_ChronoGetTick Real_ZV_ChronoGetTick
#define ZV_Atoll Real_ZV_Atoll
#define ZV_Strnicmp Real_ZV_Strnicmp
