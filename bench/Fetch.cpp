// Downloads as a player makes them: one thread reads in order, and waits a millisecond when nothing has arrived.
#include <ZVBase.h>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <thread>

#include "Commands.h"
#include "Support.h"

namespace {

constexpr int32_t kEmptyReadWaitMs = 1;
// Short against the millisecond that is to be seen, long enough to leave the core to the transfer.
constexpr auto kFirstByteStep = std::chrono::microseconds(20);

void WriteOut(const std::vector<char>& buffer, uint32_t count) {
  if (std::fwrite(buffer.data(), 1, count, stdout) != count) {
    throw std::runtime_error("standard output cannot be written");
  }
}

void RequireSuccess(const Outcome& outcome) {
  const int32_t code = outcome.failureCode;
  if (code != 0) {
    throw std::runtime_error("the download failed with code " + std::to_string(code));
  }
}

double FirstByteMs(const std::string& url) {
  Outcome outcome;
  const HandlePtr handle = MakeHandle(outcome);
  char buffer[16384];
  uint32_t count = 0;
  const auto start = Clock::now();
  OpenUrl(handle.get(), url);
  while (ZV_HttpBaseRead(handle.get(), buffer, sizeof buffer, &count) == 1 && count == 0) {
    std::this_thread::sleep_for(kFirstByteStep);
  }
  const double milliseconds = MillisecondsSince(start);
  ZV_HttpBaseClose(handle.get());
  RequireSuccess(outcome);
  if (count == 0) {
    throw std::runtime_error("no byte came from " + url);
  }
  return milliseconds;
}

}  // namespace

nlohmann::json MeasureFetch(const FetchOptions& options) {
  Outcome outcome;
  const HandlePtr handle = MakeHandle(outcome);
  ZV_HttpBaseSetDownloadThreadNum(handle.get(), options.connections);
  if (options.segmentBytes > 0) {
    ZV_HttpBaseSetDownloadSegLen(handle.get(), options.segmentBytes);
  }
  std::vector<char> buffer(options.bufferBytes);
  std::optional<double> firstByteMs;
  int64_t bytes = 0;
  int32_t more = 1;
  const auto start = Clock::now();
  OpenUrl(handle.get(), options.url);
  while (more == 1) {
    uint32_t count = 0;
    more = ZV_HttpBaseRead(handle.get(), buffer.data(), options.bufferBytes, &count);
    bytes += count;
    if (count > 0 && !firstByteMs) {
      firstByteMs = MillisecondsSince(start);
    }
    if (options.write) {
      WriteOut(buffer, count);
    }
    if (count == 0 && more == 1) {
      ZV_SleepFor(kEmptyReadWaitMs);
    }
  }
  const double seconds = MillisecondsSince(start) / 1000;
  ZV_HttpBaseClose(handle.get());
  RequireSuccess(outcome);
  return {{"bytes", bytes}, {"seconds", seconds}, {"firstByteMs", firstByteMs.value_or(-1)}};
}

nlohmann::json MeasureFirstByte(const std::string& url, int repeat) {
  std::vector<double> samples;
  for (int i = 0; i < repeat; ++i) {
    samples.push_back(FirstByteMs(url));
  }
  return Summarize(std::move(samples));
}
