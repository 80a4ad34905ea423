#include "Signals.h"

#include <csignal>

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

// The program's only global state: the signal that asked to stop, 0 before.
volatile std::sig_atomic_t g_signal = 0;

#if defined(_WIN32)

void HandleStop(int number) {
  g_signal = number;
  // Windows forgets the handler when it has run.
  std::signal(number, HandleStop);
}

#else

// A stop that arrives between the look at the flag and a write that blocks would not end that write; the alarm that
// follows it does, again and again.
constexpr unsigned kNudgeSeconds = 1;

void HandleStop(int number) {
  if (number != SIGALRM) {
    g_signal = number;
  }
  alarm(kNudgeSeconds);
}

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGALRM);
  return set;
}

#endif

}  // namespace

#if defined(_WIN32)

void InstallSignalHandlers() {
  std::signal(SIGINT, HandleStop);
  std::signal(SIGTERM, HandleStop);
}

SignalsForMainThreadOnly::SignalsForMainThreadOnly() = default;
SignalsForMainThreadOnly::~SignalsForMainThreadOnly() = default;

#else

void InstallSignalHandlers() {
  struct sigaction action = {};
  action.sa_handler = HandleStop;
  // Without SA_RESTART, so that a write that blocks comes back.
  sigaction(SIGALRM, &action, nullptr);
  for (const int number : {SIGINT, SIGTERM}) {
    struct sigaction former = {};
    // A program started in the background by a shell ignores SIGINT, and shall go on doing so.
    if (sigaction(number, nullptr, &former) == 0 && former.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

SignalsForMainThreadOnly::SignalsForMainThreadOnly() {
  const sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

SignalsForMainThreadOnly::~SignalsForMainThreadOnly() {
  const sigset_t set = StopSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

#endif

bool IsInterrupted() {
  return g_signal != 0;
}

Outcome InterruptedOutcome() {
  const int number = g_signal;
  Outcome outcome;
  outcome.exitCode = static_cast<ExitCode>(128 + number);
  outcome.error = number == SIGTERM ? "terminated" : "interrupted";
  return outcome;
}
