// A player that jumps about in a stream, and what that costs the server. Half of the seeks go at most 30 seconds of media
// back or forth, half go anywhere; between two of them the player reads at most 20 seconds of media and pauses for a while.
#include <algorithm>
#include <random>
#include <thread>

#include "CacheCommands.h"
#include "CacheReader.h"
#include "MediaServer.h"

namespace {

constexpr int64_t kMib = 1 << 20;
constexpr int64_t kStreamBytes = 256 * kMib;
constexpr int32_t kStreamMs = 600000;
constexpr int64_t kNearBytes = kStreamBytes / kStreamMs * 30000;
constexpr int64_t kMostReadBytes = kStreamBytes / kStreamMs * 20000;
constexpr int kMostPauseMs = 100;

struct Totals {
  int64_t sent = 0;
  int64_t distinct = 0;
};

Totals CountSent(std::vector<SentRange> ranges) {
  std::sort(ranges.begin(), ranges.end(), [](const SentRange& a, const SentRange& b) { return a.first < b.first; });
  Totals totals;
  int64_t covered = 0;
  for (const SentRange& range : ranges) {
    totals.sent += range.end - range.first;
    totals.distinct += std::max<int64_t>(range.end - std::max(range.first, covered), 0);
    covered = std::max(covered, range.end);
  }
  return totals;
}

class Player {
 public:
  Player(CacheReader& reader, uint32_t seed) : reader_(reader), random_(seed) {}

  // True when the cache answered.
  bool Jump() {
    const bool isNear = Any(0, 1) == 0;
    const int64_t first = isNear ? std::max<int64_t>(position_ - kNearBytes, 0) : 0;
    const int64_t last = isNear ? std::min(position_ + kNearBytes, kStreamBytes - 1) : kStreamBytes - 1;
    position_ = Any(first, last);
    return reader_.Seek(position_);
  }

  void Play() {
    position_ += reader_.ReadOn(Any(1, kMostReadBytes));
    std::this_thread::sleep_for(std::chrono::milliseconds(Any(0, kMostPauseMs)));
  }

 private:
  int64_t Any(int64_t first, int64_t last) { return std::uniform_int_distribution<int64_t>(first, last)(random_); }

  CacheReader& reader_;
  std::mt19937 random_;
  int64_t position_ = 0;
};

}  // namespace

nlohmann::json MeasureSession(uint32_t seed, int seeks, int64_t bytesPerSecond) {
  MediaServer server(kStreamBytes, bytesPerSecond);
  CacheReader reader({server.Url(), Ahead::kFortySeconds, kStreamMs});
  Player player(reader, seed);
  int cached = 0;
  reader.Open();
  player.Play();
  for (int i = 0; i < seeks; ++i) {
    cached += player.Jump() ? 1 : 0;
    player.Play();
  }
  const Totals totals = CountSent(server.Sent());
  const int64_t twice = totals.sent - totals.distinct;
  nlohmann::json ranges;
  for (const SentRange& range : server.Sent()) {
    ranges.push_back({range.first, range.end});
  }
  return {{"seed", seed},
          {"seeks", seeks},
          {"cached", cached},
          {"requests", server.Requests()},
          {"sentBytes", totals.sent},
          {"twiceBytes", twice},
          {"ranges", std::move(ranges)},
          {"twicePercent", 100 * static_cast<double>(twice) / static_cast<double>(totals.sent)}};
}
