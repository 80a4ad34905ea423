// How long Release takes. The five workers are brought into one state, which is confirmed by what the server saw.
#include <functional>
#include <thread>

#include "ScriptedServer.h"
#include "SegmentCommands.h"
#include "SegmentReader.h"

namespace {

constexpr int32_t kWorkers = 5;
// The server knows that a request has come a little before the worker is at rest.
constexpr auto kSettleTime = std::chrono::milliseconds(5);

struct ReleaseState {
  const char* name;
  const char* target;  // of the segments behind the first
  std::function<bool(const ServerCounters&)> isReached;
};

std::vector<std::string> Urls(const ScriptedServer& server, const std::string& target) {
  std::vector<std::string> urls = {server.Url("/small")};
  for (int32_t i = 0; i < kWorkers; ++i) {
    urls.push_back(server.Url(target + "?" + std::to_string(i)));
  }
  return urls;
}

double ReleaseTime(SegmentReader& reader) {
  const auto start = Clock::now();
  reader.Release();
  return MillisecondsSince(start);
}

double ReleaseOnce(const ReleaseState& state) {
  ScriptedServer server;
  SegmentReader reader({Urls(server, state.target), kWorkers});
  reader.Open(0);
  reader.ReadAll();
  AwaitThat(std::string("the workers are ") + state.name, [&] { return state.isReached(server.Counters()); });
  std::this_thread::sleep_for(kSettleTime);
  return ReleaseTime(reader);
}

double ReleaseResting() {
  ScriptedServer server;
  SegmentReader reader({Urls(server, "/small"), kWorkers});
  reader.Open(0);
  reader.ReadAll();
  reader.AwaitCached(kWorkers);
  return ReleaseTime(reader);
}

double ReleaseUnopened() {
  const ScriptedServer server;
  SegmentReader reader({Urls(server, "/small"), kWorkers});
  return ReleaseTime(reader);
}

nlohmann::json Repeat(int32_t repeat, const std::function<double()>& run) {
  std::vector<double> samples;
  for (int32_t i = 0; i < repeat; ++i) {
    samples.push_back(run());
  }
  return Summarize(std::move(samples));
}

bool AllAsked(const ServerCounters& counters) {
  return counters.requests >= 1 + kWorkers;
}

}  // namespace

nlohmann::json MeasureSegmentRelease(int32_t repeat) {
  const ReleaseState states[] = {
      {"waiting for an answer", "/wait", AllAsked},
      {"receiving", "/drip", [](const auto& counters) { return AllAsked(counters) && counters.sentBytes > 0; }},
      {"stalled by the server", "/stall",
       [](const auto& counters) { return AllAsked(counters) && counters.sentBytes >= kStalledBytes; }},
      {"in the retry pause", "/drop", [](const auto& counters) { return counters.dropped >= kWorkers; }},
  };
  nlohmann::json figures = {{"before any Open", Repeat(repeat, ReleaseUnopened)},
                            {"resting, all cached", Repeat(repeat, ReleaseResting)}};
  for (const ReleaseState& state : states) {
    figures[state.name] = Repeat(repeat, [&] { return ReleaseOnce(state); });
  }
  return figures;
}
