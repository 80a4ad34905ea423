// Runs a program as a child process: feeds it nothing, collects what it prints, and never waits without a deadline.
#ifndef TESTS_CLI_PROCESS_H
#define TESTS_CLI_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

struct ProcessSetup {
  std::vector<std::string> arguments;  // the first is the program
  std::string directory;               // to run in; empty: this process's
  uint64_t mostFileBytes = 0;          // RLIMIT_FSIZE; 0: none
  bool errorIsTerminal = false;        // standard error is a pseudo terminal
  bool closeOutput = false;            // standard output is closed
};

struct ProcessResult {
  int exitCode = -1;  // -1 when it was ended by a signal
  std::string output;
  std::string error;
};

// Lives no longer than its object: the destructor kills it.
class Process {
 public:
  explicit Process(const ProcessSetup& setup);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void Signal(int number) const;
  // Closes our end of its standard output, as a reader that has seen enough does.
  void CloseOutput();
  // Waits until it has printed that much on standard output (without taking it); false at the deadline.
  bool AwaitOutput(size_t bytes);
  // Waits for the end of the first line on standard output and gives it without the line end; empty at the deadline.
  std::string AwaitLine();
  // Waits for its end. At the deadline it is killed and the test fails.
  ProcessResult Wait();

 private:
  void ReadSome(int timeoutMs);
  bool Reap(int64_t untilMs);

  pid_t child_ = -1;
  int outputPipe_ = -1;
  int errorPipe_ = -1;
  bool isReaped_ = false;
  int status_ = 0;
  ProcessResult result_;
};

// Runs it to its end.
ProcessResult RunProcess(const ProcessSetup& setup);

#endif
