// zvhttp serve: a small web server on 127.0.0.1 for trying things out.
#ifndef TOOLS_SERVE_H
#define TOOLS_SERVE_H

#include <cstdint>
#include <string>
#include <vector>

#include "ExitCode.h"

struct ServeOptions {
  std::string directory;               // empty: only the patterns
  uint16_t port = 0;                   // 0: a free one
  bool https = false;                  // with a certificate that is made at start
  bool quiet = false;                  // no line per request
  std::vector<uint64_t> patternBytes;  // synthetic resources, /pattern/BYTES each
};

// Serves until SIGINT or SIGTERM, which are its ordinary end.
ExitCode RunServe(const ServeOptions& options);

#endif
