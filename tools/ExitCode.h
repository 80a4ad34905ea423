// How a command ended: what the shell gets and what the error line says.
#ifndef TOOLS_EXIT_CODE_H
#define TOOLS_EXIT_CODE_H

#include <cstdint>
#include <string>

// The exit codes of zvhttp. They are part of its interface: scripts test them, and --help lists them.
enum class ExitCode : int {
  kOk = 0,
  kInternal = 1,          // memory ran out, or a fault of the program
  kBadArguments = 2,      // nothing was attempted
  kTransferFailed = 3,    // the URL, the network, or fewer or other bytes than promised
  kHttpError = 4,         // the server answered with an error status
  kOutputFailed = 5,      // the output cannot be made or written
  kInterrupted = 128 + 2  // plus the difference of the signals: 130 after SIGINT, 143 after SIGTERM
};

// The end of a command. error is one line without the program's name, empty when all went well.
struct Outcome {
  ExitCode exitCode = ExitCode::kOk;
  int32_t messageCode = 0;  // the library's code that tells why: an HTTP status, 11111 or 22222; 0 without one
  std::string error;

  bool IsOk() const { return exitCode == ExitCode::kOk; }
};

// The word for an exit code in the output of --json.
inline const char* StatusWord(ExitCode code) {
  switch (code) {
    case ExitCode::kOk:
      return "ok";
    case ExitCode::kInternal:
      return "internal";
    case ExitCode::kBadArguments:
      return "badArguments";
    case ExitCode::kTransferFailed:
      return "transferFailed";
    case ExitCode::kHttpError:
      return "httpError";
    case ExitCode::kOutputFailed:
      return "outputFailed";
    case ExitCode::kInterrupted:
      break;
  }
  return "interrupted";
}

#endif
