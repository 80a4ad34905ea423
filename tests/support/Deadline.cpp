#include "Deadline.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

#if !defined(_WIN32)
#include <unistd.h>
#include <csignal>
#endif

namespace {

// The signal handler may use nothing but plain memory and write.
char watchdogMessage[256];
size_t watchdogBytes = 0;

#if !defined(_WIN32)
void EndProgram(int) {
  if (write(STDERR_FILENO, watchdogMessage, watchdogBytes) < 0) {
    _exit(1);
  }
  abort();
}

void SetAlarm(unsigned seconds) {
  struct sigaction action = {};
  action.sa_handler = seconds > 0 ? EndProgram : SIG_DFL;
  action.sa_flags = SA_RESTART;
  alarm(0);
  sigaction(SIGALRM, &action, nullptr);
  alarm(seconds);
}
#else
void SetAlarm(unsigned) {}
#endif

int DeadlineFactor() {
  const char* const text = getenv("ZV_DEADLINE_FACTOR");
  const int factor = text == nullptr ? 1 : atoi(text);
  return factor < 1 ? 1 : factor;
}

}  // namespace

void SleepMicroseconds(int64_t us) {
#if defined(_WIN32)
  us = std::max<int64_t>(us, 1000);
#endif
  std::this_thread::sleep_for(std::chrono::microseconds(us));
}

bool WaitUntil(const std::function<bool()>& isReached, int ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!isReached()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return isReached();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

Watchdog::Watchdog(int seconds, const std::string& name) {
  const int length = snprintf(watchdogMessage, sizeof watchdogMessage, "watchdog: %s has not ended within %d s\n",
                              name.c_str(), seconds * DeadlineFactor());
  watchdogBytes =
      length < static_cast<int>(sizeof watchdogMessage) ? static_cast<size_t>(length) : sizeof watchdogMessage - 1;
  SetAlarm(static_cast<unsigned>(seconds * DeadlineFactor()));
}

Watchdog::~Watchdog() {
  SetAlarm(0);
}

uint64_t Seed(const std::string& name) {
  const char* const given = getenv("ZV_SEED");
  const uint64_t seed = given != nullptr ? strtoull(given, nullptr, 10) : std::random_device{}();
  printf("seed of %s: %llu (repeat with ZV_SEED)\n", name.c_str(), static_cast<unsigned long long>(seed));
  fflush(stdout);
  return seed;
}
