// The measurements of the progressive cache. Each gives what zvbench prints and throws when it could not be made.
#ifndef BENCH_CACHE_COMMANDS_H
#define BENCH_CACHE_COMMANDS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

// Writes bytes to one file where the cache files go, a block at a time as the cache does, each flushed to the system:
// {bytes, seconds, syncedSeconds}; the latter when they have reached the disk as well.
nlohmann::json MeasureDisk(int64_t bytes);

// Opens the URL with everything kept ahead, until the cache holds it: {bytes, seconds}. With reads, until it has been
// read to its end as fast as it comes.
nlohmann::json MeasureFill(const std::string& url, bool reads);

// Milliseconds of each Read of a player at media pace while the cache fills at full speed, with how many gave nothing.
nlohmann::json MeasureReadLatency(const std::string& url);

// Milliseconds from the seek's Open to its first byte: {uncached, cached}. paused: the transfer rests on a full cache
// before each seek, else it is running.
nlohmann::json MeasureSeeks(const std::string& url, int repeat, bool paused);

// Seeks within one stretch of cached bytes: milliseconds, and how many requests the server saw because of them, while
// the transfer is running and when everything has been fetched: {running: {.., requests}, complete: {..}}.
nlohmann::json MeasureCachedSeeks(int repeat);

// A player that jumps about, over a line of that many bytes a second: what the server sent, and what of it it had sent
// before.
nlohmann::json MeasureSession(uint32_t seed, int seeks, int64_t bytesPerSecond);

// Context switches per second of the handle's threads: {paused, complete}.
nlohmann::json MeasureCacheIdle(const std::string& url, double seconds);

// Memory and threads before, with count handles, with their file caches on, and after each has played the URL.
nlohmann::json MeasureCacheHandles(const std::string& url, int count);

#endif
