// Waiting for conditions, ending tests that hang, and seeds of random tests.
#ifndef TESTS_SUPPORT_DEADLINE_H
#define TESTS_SUPPORT_DEADLINE_H

#include <cstdint>
#include <functional>
#include <string>

// Tests isReached each millisecond until it gives true; false when it has not within ms.
bool WaitUntil(const std::function<bool()>& isReached, int ms = 10000);

// Sleeps that long. Windows counts in milliseconds and cuts off the rest, so that shorter sleeps would be none: there it is
// at least one.
void SleepMicroseconds(int64_t us);

// Aborts the program, with the name in the message, when it lives longer than that. One at a time; uses the alarm
// signal, so it needs no thread. Time is multiplied by ZV_DEADLINE_FACTOR of the environment (slow machines,
// sanitizers).
class Watchdog {
 public:
  Watchdog(int seconds, const std::string& name);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
};

// The seed of a random test: ZV_SEED of the environment, else a new one. Prints it with the name.
uint64_t Seed(const std::string& name);

#endif
