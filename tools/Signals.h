// Interruption by SIGINT and SIGTERM: the handler only raises a flag, and the commands look at it.
#ifndef TOOLS_SIGNALS_H
#define TOOLS_SIGNALS_H

#include "ExitCode.h"

// Installs the handlers, once, before any thread is made. Broken pipes and the limit of file sizes become errors of
// write instead of signals.
void InstallSignalHandlers();

bool IsInterrupted();

// The end of a command that was interrupted: exit code 128 plus the signal.
Outcome InterruptedOutcome();

// While it lives, threads that are made start with SIGINT and SIGTERM blocked, so that the signals keep going to the
// main thread and end a write of it that blocks.
class SignalsForMainThreadOnly {
 public:
  SignalsForMainThreadOnly();
  ~SignalsForMainThreadOnly();
  SignalsForMainThreadOnly(const SignalsForMainThreadOnly&) = delete;
  SignalsForMainThreadOnly& operator=(const SignalsForMainThreadOnly&) = delete;
};

#endif
