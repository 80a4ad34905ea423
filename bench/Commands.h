// One function per measurement. Each gives what zvbench prints; each throws when it could not be made.
#ifndef BENCH_COMMANDS_H
#define BENCH_COMMANDS_H

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace CLI {
class App;
}

using Command = std::function<nlohmann::json()>;

// Add the subcommands of the caches; parsing one sets *chosen.
void AddCacheCommands(CLI::App& app, Command* chosen);
void AddSegmentCommands(CLI::App& app, Command* chosen);

struct FetchOptions {
  std::string url;
  int32_t connections = 1;
  int32_t segmentBytes = 0;  // 0 leaves the library's default
  uint32_t bufferBytes = 65536;
  bool write = false;  // the bytes go to standard output, and the figures to standard error
};

// Reads the whole of one URL in order and drops the bytes: {bytes, seconds, firstByteMs}.
nlohmann::json MeasureFetch(const FetchOptions& options);

// Milliseconds from Open to the first byte out of Read, a new handle and connection each time.
nlohmann::json MeasureFirstByte(const std::string& url, int repeat);

// Milliseconds that Close takes in five states of a download.
nlohmann::json MeasureClose(int repeat);

// Milliseconds from the start of the Read that frees a fragment of a full buffer to the first byte that was not in it.
nlohmann::json MeasureResume(int repeat);

// Memory and threads before, with count idle handles, and after each has fetched url (when it is not empty).
nlohmann::json MeasureHandles(int count, const std::string& url);

// Context switches per second of the threads of one handle that was never opened.
nlohmann::json MeasureIdle(double seconds);

// Milliseconds of Init and Release together.
nlohmann::json MeasureInitRelease(int repeat);

#endif
