// zvhttp hls: plays a playlist through the segment cache into a file or to standard output.
#ifndef TOOLS_HLS_H
#define TOOLS_HLS_H

#include <cstdint>
#include <optional>
#include <string>

#include "CachedSegments.h"
#include "ExitCode.h"
#include "HlsSource.h"

struct HlsOptions {
  HlsSourceOptions source;
  SegmentOptions segments;
  std::string output = "-";      // "-" is standard output
  std::optional<int64_t> start;  // number of the first segment
  int32_t liveEdge = 3;          // without start, how many segments before its end a live playlist is begun
};

// Prints what there is to print and returns how it went. A reader of standard output that has seen enough is a good end.
ExitCode RunHls(const HlsOptions& options);

#endif
