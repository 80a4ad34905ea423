// zvhttp stream: reads a URL through the progressive cache into a file or to standard output.
#ifndef TOOLS_STREAM_H
#define TOOLS_STREAM_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CachedStream.h"
#include "CommonOptions.h"
#include "ExitCode.h"
#include "Walk.h"

struct StreamOptions {
  CommonOptions common;
  CacheOptions cache;
  std::string output = "-";      // "-" is standard output
  std::vector<int64_t> seeks;    // gone to in turn; what is written begins at the last
  std::optional<WalkPlan> walk;  // instead of the stream, what a walk through it finds is written
};

// Prints what there is to print and returns how it went. A reader of standard output that has seen enough is a good end.
ExitCode RunStream(const StreamOptions& options);

#endif
