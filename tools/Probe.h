// zvhttp probe: how long the first byte takes after opening a stream and after a seek.
#ifndef TOOLS_PROBE_H
#define TOOLS_PROBE_H

#include <cstdint>

#include "CommonOptions.h"
#include "ExitCode.h"

struct ProbeOptions {
  CommonOptions common;
  int64_t offset = 0;           // where the seek goes
  int64_t readBytes = 1000000;  // read before it
  int32_t idleMs = 0;           // without a Read before it
  bool direct = false;          // the downloader alone, without the cache
};

// Prints "first_ms=X seek_ms=Y", or one error line.
ExitCode RunProbe(const ProbeOptions& options);

#endif
