#include "SegmentCommands.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <stdexcept>

#include "Commands.h"

namespace {

struct Arguments {
  std::string list;
  int workers = 5;
  int repeat = 20;
  int count = 1;
  double seconds = 3;
};

Arguments arguments;

std::vector<std::string> Urls() {
  std::ifstream in(arguments.list);
  std::vector<std::string> urls;
  std::string line;
  while (std::getline(in, line)) {
    urls.push_back(line);
  }
  if (urls.empty()) {
    throw std::runtime_error("no URLs in " + arguments.list);
  }
  return urls;
}

CLI::App* Add(CLI::App& app, const char* name, const char* text, Command* chosen, Command run) {
  CLI::App* const command = app.add_subcommand(name, text);
  command->callback([chosen, run = std::move(run)] { *chosen = run; });
  return command;
}

CLI::App* AddWithList(CLI::App& app, const char* name, const char* text, Command* chosen, Command run) {
  CLI::App* const command = Add(app, name, text, chosen, std::move(run));
  command->add_option("list", arguments.list, "File of URLs, one a line")->required();
  return command;
}

void AddWorkers(CLI::App* command) {
  command->add_option("--workers", arguments.workers)->check(CLI::Range(1, 5));
}

void AddRepeat(CLI::App* command) {
  command->add_option("--repeat", arguments.repeat)->check(CLI::PositiveNumber);
}

}  // namespace

void AddSegmentCommands(CLI::App& app, Command* chosen) {
  AddWorkers(AddWithList(app, "segments", "Play segments in order", chosen,
                         [] { return MeasureSegments(Urls(), arguments.workers); }));
  AddRepeat(AddWithList(app, "segment-open", "Open to the first byte", chosen,
                        [] { return MeasureSegmentOpen(Urls(), arguments.repeat); }));
  CLI::App* const silent = Add(app, "segment-silent", "Open while the workers wait for a silent server", chosen,
                               [] { return MeasureSilentServer(arguments.workers, arguments.repeat); });
  AddWorkers(silent);
  AddRepeat(silent);
  AddRepeat(Add(app, "segment-release", "Release with workers in every state", chosen,
                [] { return MeasureSegmentRelease(arguments.repeat); }));
  AddWithList(app, "segment-handles", "Memory and threads", chosen,
              [] { return MeasureSegmentHandles(Urls(), arguments.count); })
      ->add_option("--count", arguments.count)
      ->check(CLI::PositiveNumber);
  AddWithList(app, "segment-idle", "Wake-ups of a cache at rest", chosen,
              [] { return MeasureSegmentIdle(Urls(), arguments.seconds); })
      ->add_option("--seconds", arguments.seconds)
      ->check(CLI::PositiveNumber);
}
