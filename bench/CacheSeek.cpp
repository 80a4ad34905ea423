// How soon the first byte is there after a seek.
#include <stdexcept>
#include <thread>

#include "CacheCommands.h"
#include "CacheReader.h"
#include "MediaServer.h"
#include "Process.h"

namespace {

constexpr int64_t kMib = 1 << 20;
// Farther than the transfer gets before the next seek.
constexpr int64_t kDistanceBytes = 32 * kMib;
constexpr int64_t kRunningBytes = 262144;
// Surely cached behind each place that was sought.
constexpr int64_t kCachedOffsetBytes = 65536;
constexpr int64_t kCachedStreamBytes = 64 * kMib;
constexpr int64_t kCachedAtLeastBytes = 16 * kMib;
constexpr int64_t kSlowLine = 10 * kMib;

void Reach(CacheReader& reader, bool paused) {
  if (paused) {
    reader.AwaitFull();
    AwaitQuiet();
  } else {
    reader.ReadOn(kRunningBytes);
  }
}

// Gives milliseconds; *inside says whether the cache answered.
double SeekOnce(CacheReader& reader, int64_t position, bool* inside) {
  const auto start = Clock::now();
  *inside = reader.Seek(position);
  reader.AwaitFirstByte();
  return MillisecondsSince(start);
}

double SeekExpecting(CacheReader& reader, int64_t position, bool isCached) {
  bool inside = false;
  const double milliseconds = SeekOnce(reader, position, &inside);
  if (inside != isCached) {
    throw std::runtime_error("the seek to " + std::to_string(position) + (inside ? " hit" : " missed") + " the cache");
  }
  return milliseconds;
}

// In steps that visit everything once: 7 has no factor in common with the number of places.
nlohmann::json SeekWithin(CacheReader& reader, const MediaServer& server, int repeat) {
  const int64_t requestsBefore = server.Requests();
  std::vector<double> samples;
  for (int i = 0; i < repeat; ++i) {
    const int64_t position = (static_cast<int64_t>(i) * 7 * kMib + i) % kCachedAtLeastBytes;
    samples.push_back(SeekExpecting(reader, position, true));
  }
  nlohmann::json figures = Summarize(std::move(samples));
  figures["requests"] = server.Requests() - requestsBefore;
  return figures;
}

}  // namespace

nlohmann::json MeasureSeeks(const std::string& url, int repeat, bool paused) {
  CacheReader reader({url, paused ? Ahead::kDefault : Ahead::kEverything});
  reader.Open();
  reader.AwaitFirstByte();
  if (reader.Length() < (repeat + 1) * kDistanceBytes) {
    throw std::runtime_error("the stream is too short for so many seeks");
  }
  std::vector<double> uncached;
  for (int i = 1; i <= repeat; ++i) {
    Reach(reader, paused);
    uncached.push_back(SeekExpecting(reader, i * kDistanceBytes, false));
  }
  std::vector<double> cached;
  for (int i = 1; i <= repeat; ++i) {
    Reach(reader, paused);
    cached.push_back(SeekExpecting(reader, i * kDistanceBytes + kCachedOffsetBytes, true));
  }
  return {{"uncached", Summarize(std::move(uncached))}, {"cached", Summarize(std::move(cached))}};
}

nlohmann::json MeasureCachedSeeks(int repeat) {
  MediaServer server(kCachedStreamBytes, kSlowLine);
  CacheReader reader({server.Url(), Ahead::kEverything});
  reader.Open();
  if (reader.ReadOn(kCachedAtLeastBytes + kMib) <= kCachedAtLeastBytes) {
    throw std::runtime_error("the stream ended early");
  }
  nlohmann::json figures;
  figures["running"] = SeekWithin(reader, server, repeat);
  reader.Seek(0);
  reader.AwaitFull();
  figures["complete"] = SeekWithin(reader, server, repeat);
  return figures;
}
