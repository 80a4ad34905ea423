// A disk that is full: while it lives, the system refuses what lies behind a limit in any file. Windows has no such limit;
// tests that need it begin with ZV_NEEDS_FILE_LIMIT().
#ifndef TESTS_SUPPORT_FILE_LIMIT_H
#define TESTS_SUPPORT_FILE_LIMIT_H

#include <cstdint>

#if defined(_WIN32)

constexpr bool kHasFileLimit = false;

class FileLimit {
 public:
  static constexpr uint64_t kNone = UINT64_MAX;
  explicit FileLimit(uint64_t /*limit*/) {}
  ~FileLimit() {}  // NOLINT(modernize-use-equals-default): an object that is only made must not look unused
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;
};

#else

#include <sys/resource.h>

#include <csignal>

constexpr bool kHasFileLimit = true;

class FileLimit {
 public:
  static constexpr uint64_t kNone = RLIM_INFINITY;
  explicit FileLimit(uint64_t limit) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now = {limit, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  ~FileLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  rlimit before_ = {};
  void (*handler_)(int);
};

#endif

#define ZV_NEEDS_FILE_LIMIT() \
  if (!kHasFileLimit)         \
  GTEST_SKIP() << "the system cannot limit the size of a file"

#endif
