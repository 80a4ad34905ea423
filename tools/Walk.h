// A random walk through a stream, told in lines that two programs can be compared by.
//
// The walk follows from its seed and the stream alone. Its numbers are those of std::mt19937_64, which the standard fixes;
// of each only the remainder by the number of choices is used.
#ifndef TOOLS_WALK_H
#define TOOLS_WALK_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "CachedStream.h"
#include "Output.h"

struct WalkPlan {
  uint64_t seed = 0;
  uint32_t steps = 100;
};

// Reads "SEED" or "SEED,STEPS", decimal digits alone.
std::optional<WalkPlan> ParseWalk(std::string_view text);

// Each step reads some bytes and writes one line: {"step":…,"action":…,"position":…,"length":…,"crc32":"…"}. Before it
// reads, the action "seek" goes to another place of the whole stream, "pause" waits; after the end of the stream every
// step seeks. *bytes counts what was read. The stream is open.
Outcome RunWalk(const WalkPlan& plan, CachedStream* stream, Output* output, int64_t* bytes);

#endif
