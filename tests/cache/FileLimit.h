// A disk that is full: while it lives, the system refuses what lies behind a limit in any file.
#ifndef TESTS_CACHE_FILE_LIMIT_H
#define TESTS_CACHE_FILE_LIMIT_H

#include <sys/resource.h>

#include <csignal>

namespace cache {

class FileLimit {
 public:
  explicit FileLimit(rlim_t limit) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now = {limit, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  ~FileLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_ = {};
  void (*handler_)(int);
};

}  // namespace cache

#endif
