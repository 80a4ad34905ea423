// What progressive caches cost.
#include <limits>
#include <memory>

#include "CacheCommands.h"
#include "CacheReader.h"
#include "Process.h"

namespace {

// Timers of libcurl's that belong to setting up the connection may go off until then, once each.
constexpr auto kTimersTime = std::chrono::seconds(9);

// Released by itself.
class PlainCache {
 public:
  PlainCache() : handle_(ZV_HttpBaseCacheInit(nullptr, nullptr)) {}
  ~PlainCache() { ZV_HttpBaseCacheRelease(&handle_); }
  PlainCache(const PlainCache&) = delete;
  PlainCache& operator=(const PlainCache&) = delete;

 private:
  HttpBaseCache* handle_;
};

nlohmann::json WakeUpsAtRest(const std::string& url, Ahead ahead, double seconds) {
  CacheReader reader({url, ahead});
  reader.Open();
  reader.AwaitFirstByte();
  reader.AwaitFull();
  AwaitQuiet(ahead == Ahead::kEverything ? std::chrono::milliseconds(50) : kTimersTime);
  return WakeUps(seconds);
}

nlohmann::json FiguresOfPlainCaches(int count) {
  std::vector<std::unique_ptr<PlainCache>> caches;
  for (int i = 0; i < count; ++i) {
    caches.push_back(std::make_unique<PlainCache>());
  }
  return SteadyFigures();
}

}  // namespace

nlohmann::json MeasureCacheIdle(const std::string& url, double seconds) {
  return {{"paused", WakeUpsAtRest(url, Ahead::kDefault, seconds)},
          {"complete", WakeUpsAtRest(url, Ahead::kEverything, seconds)}};
}

nlohmann::json MeasureCacheHandles(const std::string& url, int count) {
  nlohmann::json figures = {{"handles", count}, {"before", SteadyFigures()}};
  figures["plain"] = FiguresOfPlainCaches(count);
  std::vector<std::unique_ptr<CacheReader>> readers;
  for (int i = 0; i < count; ++i) {
    readers.push_back(std::make_unique<CacheReader>(CacheReaderOptions{url, Ahead::kEverything}));
  }
  figures["idle"] = SteadyFigures();
  for (const auto& reader : readers) {
    reader->Open();
    reader->ReadOn(std::numeric_limits<int64_t>::max());
  }
  figures["after"] = SteadyFigures();
  return figures;
}
