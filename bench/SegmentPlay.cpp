#include "SegmentCommands.h"
#include "SegmentReader.h"

nlohmann::json MeasureSegments(const std::vector<std::string>& urls, int32_t workers) {
  SegmentReader reader({urls, workers});
  const auto start = Clock::now();
  int64_t bytes = 0;
  double firstByteMs = 0;
  for (size_t i = 0; i < urls.size(); ++i) {
    reader.Open(i);
    if (i == 0) {
      reader.AwaitFirstByte();
      bytes = 1;
      firstByteMs = MillisecondsSince(start);
    }
    bytes += reader.ReadAll();
  }
  return {{"bytes", bytes}, {"seconds", MillisecondsSince(start) / 1000}, {"firstByteMs", firstByteMs}};
}
