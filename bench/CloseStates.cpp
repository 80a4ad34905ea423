// How long Close takes. A download is brought into one of five states, which is confirmed by what the server saw and by
// what Read gave, then closed.
#include <functional>
#include <stdexcept>
#include <thread>

#include "Commands.h"
#include "ScriptedServer.h"
#include "Support.h"

namespace {

// The server knows that a request has come or that a connection is gone a little before the handle is at rest.
constexpr auto kSettleTime = std::chrono::milliseconds(5);
constexpr int64_t kReceivingBytes = 262144;

struct Scene {
  HttpBase* handle;
  const ServerCounters& counters;
  int64_t requestsBefore;
  int64_t droppedBefore;
};

struct CloseState {
  const char* name;
  const char* target;
  std::function<void(const Scene&)> reach;
};

void ReadBytes(HttpBase* handle, int64_t wanted) {
  std::vector<char> buffer(16384);
  int64_t total = 0;
  AwaitThat("the body has arrived", [&] {
    uint32_t count = 1;
    while (total < wanted && count > 0) {
      ZV_HttpBaseRead(handle, buffer.data(), static_cast<uint32_t>(buffer.size()), &count);
      total += count;
    }
    return total >= wanted;
  });
}

void ReachWaiting(const Scene& scene) {
  AwaitThat("the request has come", [&] { return scene.counters.requests > scene.requestsBefore; });
  std::this_thread::sleep_for(kSettleTime);
}

void ReachReceiving(const Scene& scene) {
  ReadBytes(scene.handle, kReceivingBytes);
}

void ReachPaused(const Scene& scene) {
  AwaitThat("the request has come", [&] { return scene.counters.requests > scene.requestsBefore; });
  AwaitFullBuffer(scene.counters);
}

void ReachStalled(const Scene& scene) {
  ReadBytes(scene.handle, kStalledBytes);
  std::this_thread::sleep_for(kSettleTime);
}

void ReachRetryPause(const Scene& scene) {
  AwaitThat("the connection is dropped", [&] { return scene.counters.dropped > scene.droppedBefore; });
  std::this_thread::sleep_for(kSettleTime);
}

double CloseOnce(HttpBase* handle, const ScriptedServer& server, const CloseState& state) {
  const ServerCounters& counters = server.Counters();
  const Scene scene{handle, counters, counters.requests, counters.dropped};
  OpenUrl(handle, server.Url(state.target));
  state.reach(scene);
  const auto start = Clock::now();
  const int32_t result = ZV_HttpBaseClose(handle);
  const double milliseconds = MillisecondsSince(start);
  if (result != 0) {
    throw std::runtime_error(std::string("Close failed when ") + state.name);
  }
  return milliseconds;
}

}  // namespace

nlohmann::json MeasureClose(int repeat) {
  const CloseState states[] = {
      {"waiting for an answer", "/wait", ReachWaiting},   {"receiving", "/drip", ReachReceiving},
      {"paused on a full buffer", "/flood", ReachPaused}, {"stalled by the server", "/stall", ReachStalled},
      {"in the retry pause", "/drop", ReachRetryPause},
  };
  ScriptedServer server;
  nlohmann::json figures = nlohmann::json::object();
  for (const CloseState& state : states) {
    Outcome outcome;
    const HandlePtr handle = MakeHandle(outcome);
    std::vector<double> samples;
    for (int i = 0; i < repeat; ++i) {
      samples.push_back(CloseOnce(handle.get(), server, state));
    }
    figures[state.name] = Summarize(std::move(samples));
  }
  return figures;
}
