// What the kernel counts for this process.
#ifndef BENCH_PROCESS_H
#define BENCH_PROCESS_H

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>

// {residentKib, threads}. The threads of new handles are still touching memory: the figure counts once it has stood still.
nlohmann::json SteadyFigures();

// Waits until no other thread of the process has run for that long.
void AwaitQuiet(std::chrono::milliseconds quiet = std::chrono::milliseconds(50));

// {switches, perSecond}: context switches of all threads but the calling one, which sleeps meanwhile.
nlohmann::json WakeUps(double seconds);

#endif
