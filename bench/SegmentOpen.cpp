// How soon a segment that is opened gives its first byte, or is asked for.
#include <algorithm>
#include <stdexcept>

#include "ScriptedServer.h"
#include "SegmentCommands.h"
#include "SegmentReader.h"

namespace {

constexpr size_t kCachedSegments = 10;
constexpr size_t kWaitingSegments = 5;

double OpenOnce(SegmentReader& reader, size_t index, bool* inside) {
  const auto start = Clock::now();
  *inside = reader.Open(index);
  reader.AwaitFirstByte();
  return MillisecondsSince(start);
}

nlohmann::json OpenCached(const std::vector<std::string>& urls, int32_t repeat) {
  SegmentReader reader({urls});
  reader.Open(0);
  reader.ReadAll();
  reader.AwaitCached(urls.size() - 1);
  std::vector<double> samples;
  for (int32_t i = 0; i < repeat; ++i) {
    bool inside = false;
    samples.push_back(OpenOnce(reader, static_cast<size_t>(i) % urls.size(), &inside));
    if (!inside) {
      throw std::runtime_error("a cached segment was not answered at once");
    }
  }
  return Summarize(std::move(samples));
}

// Each segment once, with the workers at rest before.
nlohmann::json OpenUncached(const std::vector<std::string>& urls, int32_t repeat) {
  SegmentReader reader({urls, 5, kLoneSegmentMs});
  reader.Open(0);
  reader.ReadAll();
  std::vector<double> samples;
  for (size_t i = 1; i <= std::min(static_cast<size_t>(repeat), urls.size() - 1); ++i) {
    bool inside = false;
    samples.push_back(OpenOnce(reader, i, &inside));
    if (inside) {
      throw std::runtime_error("a segment was cached that nobody had asked for");
    }
    reader.ReadAll();
  }
  return Summarize(std::move(samples));
}

// One segment complete, for more than one worker works only then; then one to wait for for each worker, then the wanted
// one, far behind.
std::vector<std::string> SilentUrls(const ScriptedServer& server) {
  std::vector<std::string> urls = {server.Url("/small")};
  for (size_t i = 0; i < kWaitingSegments; ++i) {
    urls.push_back(server.Url("/wait?" + std::to_string(i)));
  }
  urls.push_back(server.Url("/wanted"));
  return urls;
}

double OpenWhileSilent(int32_t workers) {
  ScriptedServer server;
  const ServerCounters& counters = server.Counters();
  const std::vector<std::string> urls = SilentUrls(server);
  SegmentReader reader({urls, workers});
  reader.Open(0);
  reader.ReadAll();
  AwaitThat("every worker waits", [&] { return counters.requests == 1 + workers; });
  const auto start = Clock::now();
  reader.Open(urls.size() - 1);
  AwaitThat("the request has come", [&] { return counters.wantedTick != 0; });
  const Clock::time_point came{Clock::duration(counters.wantedTick)};
  return std::chrono::duration<double, std::milli>(came - start).count();
}

}  // namespace

nlohmann::json MeasureSegmentOpen(const std::vector<std::string>& urls, int32_t repeat) {
  const std::vector<std::string> few(urls.begin(), urls.begin() + std::min(urls.size(), kCachedSegments));
  return {{"cached", OpenCached(few, repeat)}, {"uncached", OpenUncached(urls, repeat)}};
}

nlohmann::json MeasureSilentServer(int32_t workers, int32_t repeat) {
  std::vector<double> samples;
  for (int32_t i = 0; i < repeat; ++i) {
    samples.push_back(OpenWhileSilent(workers));
  }
  return Summarize(std::move(samples));
}
