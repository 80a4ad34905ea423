// What a command tells about a finished download: the table of --stats and the object of --json.
#ifndef TOOLS_REPORT_H
#define TOOLS_REPORT_H

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CommonOptions.h"
#include "ExitCode.h"

// One place that a stream was opened at or taken to.
struct SeekFigure {
  int64_t position = 0;
  double firstByteMs = 0;  // from the call to the first byte out of Read
  bool isCached = false;   // answered without a request
};

struct AheadSample {
  int64_t ms = 0;       // since the start
  int32_t aheadMs = 0;  // media time cached ahead then
};

// What a command that plays a playlist tells beside.
struct PlaylistFigures {
  std::string url;  // of the media playlist
  bool isLive = false;
  int32_t workers = 1;
  int64_t loads = 0;     // of the media playlist
  int64_t segments = 0;  // read to their end
  int64_t skipped = 0;   // gone before they were read
  int64_t discontinuities = 0;
  std::vector<AheadSample> ahead;
};

struct Report {
  std::string url;
  int64_t bytes = 0;
  double seconds = 0;                  // from Open to the last byte
  std::optional<int64_t> firstByteMs;  // from Open to the first byte out of Read
  int64_t contentLength = -1;          // as the library gives it
  int32_t connections = 1;
  std::optional<std::string> redirectUrl;
  std::vector<std::pair<std::string, std::optional<std::string>>> headers;
  std::optional<std::vector<SeekFigure>> seeks;  // of commands that seek
  std::optional<PlaylistFigures> playlist;
};

void PrintStats(const Report& report, std::FILE* stream);

// One object on one line. False when it cannot be written.
bool PrintJson(const Report& report, const Outcome& outcome, std::FILE* stream);

// Everything that a command prints at its end: what the options ask for, and the error line. toStandardError when
// standard output is taken. The outcome can become worse by it.
void TellEnd(const CommonOptions& options, const Report& report, bool toStandardError, Outcome* outcome);

#endif
