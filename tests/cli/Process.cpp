#include "Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>

namespace {

// Far beyond what the slowest sanitizer needs: only a hang reaches it.
constexpr int64_t kDeadlineMs = 60000;

int64_t NowMs() {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The two ends of a channel from the child to us.
struct Channel {
  int ours = -1;
  int theirs = -1;
};

Channel MakeChannel(bool isTerminal) {
  Channel channel;
  std::array<int, 2> ends{};
  if (isTerminal) {
    EXPECT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
  } else {
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  }
  channel = {ends[0], ends[1]};
  fcntl(channel.ours, F_SETFD, FD_CLOEXEC);
  return channel;
}

// Between fork and exec of a process with threads only plain system calls are safe.
[[noreturn]] void RunChild(const ProcessSetup& setup, char* const* arguments, int output, int error) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGINT, SIG_DFL);
  signal(SIGPIPE, SIG_DFL);
  if (setup.mostFileBytes > 0) {
    const rlimit limit = {setup.mostFileBytes, setup.mostFileBytes};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (dup2(input, 0) < 0 || dup2(output, 1) < 0 || dup2(error, 2) < 0) {
    _exit(126);
  }
  if (setup.closeOutput) {
    close(1);
  }
  if (!setup.directory.empty() && chdir(setup.directory.c_str()) != 0) {
    _exit(126);
  }
  execv(arguments[0], arguments);
  _exit(127);
}

// Appends what there is; false at the end of the channel.
bool Drain(int descriptor, std::string* text) {
  std::array<char, 65536> block{};
  const ssize_t count = read(descriptor, block.data(), block.size());
  if (count <= 0) {
    return false;  // a pseudo terminal ends with EIO
  }
  text->append(block.data(), static_cast<size_t>(count));
  return true;
}

void CloseEnd(int* descriptor) {
  if (*descriptor >= 0) {
    close(*descriptor);
    *descriptor = -1;
  }
}

}  // namespace

Process::Process(const ProcessSetup& setup) {
  const Channel output = MakeChannel(false);
  const Channel error = MakeChannel(setup.errorIsTerminal);
  std::vector<std::string> copies = setup.arguments;
  std::vector<char*> arguments;
  arguments.reserve(copies.size() + 1);
  for (std::string& copy : copies) {
    arguments.push_back(copy.data());
  }
  arguments.push_back(nullptr);
  child_ = fork();
  if (child_ == 0) {
    RunChild(setup, arguments.data(), output.theirs, error.theirs);
  }
  close(output.theirs);
  close(error.theirs);
  outputPipe_ = output.ours;
  errorPipe_ = error.ours;
}

Process::~Process() {
  if (!isReaped_ && child_ > 0) {
    kill(child_, SIGKILL);
    waitpid(child_, &status_, 0);
  }
  CloseEnd(&outputPipe_);
  CloseEnd(&errorPipe_);
}

void Process::Signal(int number) const {
  if (!isReaped_ && child_ > 0) {
    kill(child_, number);
  }
}

void Process::CloseOutput() {
  CloseEnd(&outputPipe_);
}

void Process::ReadSome(int timeoutMs) {
  // poll passes over negative descriptors.
  std::array<pollfd, 2> ends = {{{outputPipe_, POLLIN, 0}, {errorPipe_, POLLIN, 0}}};
  if (poll(ends.data(), ends.size(), timeoutMs) <= 0) {
    return;
  }
  if (ends[0].revents != 0 && !Drain(outputPipe_, &result_.output)) {
    CloseEnd(&outputPipe_);
  }
  if (ends[1].revents != 0 && !Drain(errorPipe_, &result_.error)) {
    CloseEnd(&errorPipe_);
  }
}

bool Process::AwaitOutput(size_t bytes) {
  const int64_t until = NowMs() + kDeadlineMs;
  while (result_.output.size() < bytes && outputPipe_ >= 0 && NowMs() < until) {
    ReadSome(100);
  }
  return result_.output.size() >= bytes;
}

std::string Process::AwaitLine() {
  const int64_t until = NowMs() + kDeadlineMs;
  while (result_.output.find('\n') == std::string::npos && outputPipe_ >= 0 && NowMs() < until) {
    ReadSome(100);
  }
  const size_t end = result_.output.find('\n');
  return end == std::string::npos ? "" : result_.output.substr(0, end);
}

bool Process::Reap(int64_t untilMs) {
  while (!isReaped_ && NowMs() < untilMs) {
    isReaped_ = waitpid(child_, &status_, WNOHANG) == child_;
    if (!isReaped_) {
      usleep(1000);
    }
  }
  return isReaped_;
}

ProcessResult Process::Wait() {
  const int64_t until = NowMs() + kDeadlineMs;
  while ((outputPipe_ >= 0 || errorPipe_ >= 0) && NowMs() < until) {
    ReadSome(100);
  }
  if (!Reap(until)) {
    ADD_FAILURE() << "the program hangs; so far it printed: " << result_.error;
    kill(child_, SIGKILL);
    waitpid(child_, &status_, 0);
    isReaped_ = true;
    return result_;
  }
  if (WIFEXITED(status_)) {
    result_.exitCode = WEXITSTATUS(status_);
  } else {
    ADD_FAILURE() << "ended by signal " << WTERMSIG(status_) << ": " << result_.error;
  }
  return result_;
}

ProcessResult RunProcess(const ProcessSetup& setup) {
  return Process(setup).Wait();
}
