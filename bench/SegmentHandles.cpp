// What segment caches cost.
#include <memory>

#include "Process.h"
#include "SegmentCommands.h"
#include "SegmentReader.h"

namespace {

// Released by itself.
class PlainCache {
 public:
  PlainCache() : handle_(ZV_HttpBaseSegCacheInit(nullptr, nullptr)) {}
  ~PlainCache() { ZV_HttpBaseSegCacheRelease(&handle_); }
  PlainCache(const PlainCache&) = delete;
  PlainCache& operator=(const PlainCache&) = delete;

 private:
  HttpBaseSegCache* handle_;
};

nlohmann::json FiguresOfPlainCaches(int count) {
  std::vector<std::unique_ptr<PlainCache>> caches;
  for (int i = 0; i < count; ++i) {
    caches.push_back(std::make_unique<PlainCache>());
  }
  return SteadyFigures();
}

void PlayAll(SegmentReader& reader, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    reader.Open(i);
    reader.ReadAll();
  }
}

}  // namespace

nlohmann::json MeasureSegmentHandles(const std::vector<std::string>& urls, int count) {
  nlohmann::json figures = {{"handles", count}, {"before", SteadyFigures()}};
  figures["plain"] = FiguresOfPlainCaches(count);
  std::vector<std::unique_ptr<SegmentReader>> readers;
  for (int i = 0; i < count; ++i) {
    readers.push_back(std::make_unique<SegmentReader>(SegmentReaderOptions{urls}));
  }
  figures["idle"] = SteadyFigures();
  for (const auto& reader : readers) {
    PlayAll(*reader, urls.size());
  }
  figures["after"] = SteadyFigures();
  return figures;
}

nlohmann::json MeasureSegmentIdle(const std::vector<std::string>& urls, double seconds) {
  SegmentReader reader({urls});
  PlayAll(reader, urls.size());
  AwaitQuiet();
  return WakeUps(seconds);
}
