// zvbench: one measurement per run, its figures as one line of JSON.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "Commands.h"

namespace {

struct Arguments {
  FetchOptions fetch;
  std::string url;
  int repeat = 20;
  int count = 1;
  double seconds = 3;
};

void AddFetch(CLI::App& app, Arguments& arguments, Command& chosen) {
  CLI::App* command = app.add_subcommand("fetch", "Read a whole URL in order and drop the bytes");
  command->add_option("url", arguments.fetch.url)->required();
  command->add_option("-n,--connections", arguments.fetch.connections)->check(CLI::Range(1, 5));
  command->add_option("--segment", arguments.fetch.segmentBytes, "Bytes of one range");
  command->add_option("--buffer", arguments.fetch.bufferBytes, "Bytes asked of one Read")->check(CLI::PositiveNumber);
  command->add_flag("--write", arguments.fetch.write, "Bytes to standard output, figures to standard error");
  command->callback([&] { chosen = [&] { return MeasureFetch(arguments.fetch); }; });
}

// A measurement that needs a number of repetitions, and a URL when withUrl.
void AddRepeated(CLI::App& app, const char* name, const char* text, Arguments& arguments, Command& chosen, bool withUrl,
                 Command run) {
  CLI::App* command = app.add_subcommand(name, text);
  command->add_option("--repeat", arguments.repeat)->check(CLI::PositiveNumber);
  if (withUrl) {
    command->add_option("url", arguments.url)->required();
  }
  command->callback([&chosen, run = std::move(run)] { chosen = run; });
}

void AddHandles(CLI::App& app, Arguments& arguments, Command& chosen) {
  CLI::App* handles = app.add_subcommand("handles", "Memory and threads of handles");
  handles->add_option("--count", arguments.count)->check(CLI::PositiveNumber);
  handles->add_option("--url", arguments.url, "What each handle fetches after that");
  handles->callback([&] { chosen = [&] { return MeasureHandles(arguments.count, arguments.url); }; });
  CLI::App* idle = app.add_subcommand("idle", "Wake-ups of an idle handle");
  idle->add_option("--seconds", arguments.seconds)->check(CLI::PositiveNumber);
  idle->callback([&] { chosen = [&] { return MeasureIdle(arguments.seconds); }; });
}

int Run(const Command& command, bool toStandardError) {
  try {
    std::fprintf(toStandardError ? stderr : stdout, "%s\n", command().dump().c_str());
    return std::fflush(nullptr) == 0 ? 0 : 1;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "zvbench: %s\n", problem.what());
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Measures the downloader and the caches; prints JSON");
  app.require_subcommand(1);
  Arguments arguments;
  Command chosen;
  AddFetch(app, arguments, chosen);
  AddRepeated(app, "first-byte", "Open to the first byte", arguments, chosen, true,
              [&] { return MeasureFirstByte(arguments.url, arguments.repeat); });
  AddRepeated(app, "close", "Close in five states", arguments, chosen, false,
              [&] { return MeasureClose(arguments.repeat); });
  AddRepeated(app, "resume", "Going on after a pause", arguments, chosen, false,
              [&] { return MeasureResume(arguments.repeat); });
  AddRepeated(app, "init", "Init and Release", arguments, chosen, false,
              [&] { return MeasureInitRelease(arguments.repeat); });
  AddHandles(app, arguments, chosen);
  AddCacheCommands(app, &chosen);
  AddSegmentCommands(app, &chosen);
  CLI11_PARSE(app, argc, argv);
  return Run(chosen, arguments.fetch.write);
}
