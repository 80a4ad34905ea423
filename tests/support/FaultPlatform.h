// The platform of the tests: every function of platform/ZVBase.h over the real implementation, with faults on order,
// counts, a clock that can be told to run faster, and checks of lock use that end the program with a message.
//
// Link zvbase_test before or instead of ZVBase. Settings are for the thread of the test, made while no other thread
// uses the platform (the fault of a kind may be armed at any time). Counting uses no lock, so it hides no race from
// ThreadSanitizer.
//
// A lock taken twice by one thread, given back by another, signalled or waited on without being held, released while
// held, or used after its release, and a thread released before it was joined, abort.
#ifndef TESTS_SUPPORT_FAULT_PLATFORM_H
#define TESTS_SUPPORT_FAULT_PLATFORM_H

#include <cstdint>
#include <vector>

#include "Gauge.h"

namespace fault_platform {

enum class Kind { kAllocation, kMutex, kCondition, kThread };
constexpr int kKinds = 4;
const char* NameOf(Kind kind);

// ---- Faults ----
// The n-th creation of that kind from now on (n from 1) fails, and with onward every one after it.
void FailNth(Kind kind, int64_t n, bool onward = false);
// No kind fails any more.
void FailNothing();
// How many creations of the kind have failed since its FailNth: 0 tells a fault loop that it is through.
int64_t Failed(Kind kind);

// ---- Counts ----
// Creations of the kind that were asked for since ResetCounts.
int64_t Calls(Kind kind);
// What exists now.
int64_t Live(Kind kind);
// Threads whose function has not returned yet.
int64_t RunningThreads();
// Waits (with and without a limit) that have begun, and that have returned, since ResetCounts.
int64_t Waits();
int64_t WakeUps();
int64_t Sleeps();
// Counts of calls, waits and wake-ups begin at 0 again; what lives goes on being counted.
void ResetCounts();
// Live objects of every kind, for Leftovers.
std::vector<Gauge> LiveGauges();

// ---- Clock ----
// The clock, limited waits and sleeps run factor times faster than real time; 1 is real time. 0 stops the clock (waits
// and sleeps then take their real time): with AdvanceClock a test says what time it is.
void SetTimeScale(int32_t factor);
void AdvanceClock(int64_t ms);

// Everything as at the start of the program: no fault, real time, counts at 0. For the end of a test.
void Reset();

}  // namespace fault_platform

#endif
