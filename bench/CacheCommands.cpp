#include "CacheCommands.h"

#include <CLI/CLI.hpp>

#include "Commands.h"

namespace {

struct Arguments {
  std::string url;
  int64_t bytes = 1 << 30;
  int64_t rate = 20 << 20;
  int repeat = 20;
  int count = 1;
  uint32_t seed = 1;
  double seconds = 3;
  bool flag = false;
};

Arguments arguments;

// Names the command; the options that it takes are added to what this gives.
CLI::App* Add(CLI::App& app, const char* name, const char* text, Command* chosen, Command run) {
  CLI::App* const command = app.add_subcommand(name, text);
  command->callback([chosen, run = std::move(run)] { *chosen = run; });
  return command;
}

CLI::App* AddWithUrl(CLI::App& app, const char* name, const char* text, Command* chosen, Command run) {
  CLI::App* const command = Add(app, name, text, chosen, std::move(run));
  command->add_option("url", arguments.url)->required();
  return command;
}

void AddSeeks(CLI::App& app, Command* chosen) {
  CLI::App* const seek = AddWithUrl(app, "seek", "Seeks outside and inside of what is cached", chosen,
                                    [] { return MeasureSeeks(arguments.url, arguments.repeat, arguments.flag); });
  seek->add_option("--repeat", arguments.repeat)->check(CLI::PositiveNumber);
  seek->add_flag("--paused", arguments.flag, "From a transfer that rests on a full cache");
  Add(app, "cached-seek", "Seeks that need no request", chosen, [] { return MeasureCachedSeeks(arguments.repeat); })
      ->add_option("--repeat", arguments.repeat)
      ->check(CLI::PositiveNumber);
  CLI::App* const session = Add(app, "session", "Bytes fetched twice by a player that jumps about", chosen,
                                [] { return MeasureSession(arguments.seed, arguments.repeat, arguments.rate); });
  session->add_option("--seed", arguments.seed);
  session->add_option("--rate", arguments.rate, "Bytes per second of the line")->check(CLI::PositiveNumber);
  session->add_option("--seeks", arguments.repeat)->check(CLI::PositiveNumber);
}

}  // namespace

void AddCacheCommands(CLI::App& app, Command* chosen) {
  Add(app, "disk", "Sequential writing where the cache files go", chosen, [] { return MeasureDisk(arguments.bytes); })
      ->add_option("--bytes", arguments.bytes)
      ->check(CLI::PositiveNumber);
  AddWithUrl(app, "fill", "Fill the cache", chosen, [] {
    return MeasureFill(arguments.url, arguments.flag);
  })->add_flag("--read", arguments.flag, "And read it");
  AddWithUrl(app, "read-latency", "Read while the cache fills", chosen,
             [] { return MeasureReadLatency(arguments.url); });
  AddSeeks(app, chosen);
  AddWithUrl(app, "cache-idle", "Wake-ups of a cache at rest", chosen,
             [] { return MeasureCacheIdle(arguments.url, arguments.seconds); })
      ->add_option("--seconds", arguments.seconds)
      ->check(CLI::PositiveNumber);
  AddWithUrl(app, "cache-handles", "Memory and threads of caches", chosen,
             [] { return MeasureCacheHandles(arguments.url, arguments.count); })
      ->add_option("--count", arguments.count)
      ->check(CLI::PositiveNumber);
}
