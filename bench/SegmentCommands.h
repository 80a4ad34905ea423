// The measurements of the segment cache. Each gives what zvbench prints and throws when it could not be made.
#ifndef BENCH_SEGMENT_COMMANDS_H
#define BENCH_SEGMENT_COMMANDS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Opens and reads one after the other: {bytes, seconds, firstByteMs}.
nlohmann::json MeasureSegments(const std::vector<std::string>& urls, int32_t workers);

// Milliseconds from Open to the first byte of a segment that is cached, and of one that nobody has asked for yet:
// {cached, uncached}.
nlohmann::json MeasureSegmentOpen(const std::vector<std::string>& urls, int32_t repeat);

// Milliseconds from Open of an uncached segment until its request has come, while every worker waits for a silent server.
nlohmann::json MeasureSilentServer(int32_t workers, int32_t repeat);

// Milliseconds that Release takes, with five workers in each of their states.
nlohmann::json MeasureSegmentRelease(int32_t repeat);

// Memory and threads before, with count handles, with their local caches on, and after each has played the segments.
nlohmann::json MeasureSegmentHandles(const std::vector<std::string>& urls, int count);

// Context switches per second of the handle's threads when every segment is cached.
nlohmann::json MeasureSegmentIdle(const std::vector<std::string>& urls, double seconds);

#endif
