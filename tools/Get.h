// zvhttp get: fetches a URL into a file or to standard output.
#ifndef TOOLS_GET_H
#define TOOLS_GET_H

#include <optional>
#include <string>

#include "CommonOptions.h"
#include "ExitCode.h"
#include "RangeText.h"

struct GetOptions {
  CommonOptions common;
  std::optional<std::string> output;  // "-" is standard output; without it the URL names the file
  ByteRange range;
  bool whole = false;  // fetch everything into memory before the first byte is written
};

// Prints what there is to print and returns how it went.
ExitCode RunGet(const GetOptions& options);

#endif
