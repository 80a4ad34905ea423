// What handles cost while they do nothing, as the kernel counts it for this process.
#include <stdexcept>
#include <thread>

#include "Commands.h"
#include "Process.h"
#include "Support.h"

namespace {

void DownloadAndClose(HttpBase* handle, const Outcome& outcome, const std::string& url) {
  static char buffer[65536];
  uint32_t count = 0;
  OpenUrl(handle, url);
  while (ZV_HttpBaseRead(handle, buffer, sizeof buffer, &count) == 1) {
    if (count == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  ZV_HttpBaseClose(handle);
  const int32_t code = outcome.failureCode;
  if (code != 0) {
    throw std::runtime_error("the download failed with code " + std::to_string(code));
  }
}

}  // namespace

nlohmann::json MeasureHandles(int count, const std::string& url) {
  Outcome outcome;
  std::vector<HandlePtr> handles;
  handles.reserve(static_cast<size_t>(count));
  nlohmann::json figures = {{"handles", count}, {"before", SteadyFigures()}};
  for (int i = 0; i < count; ++i) {
    handles.push_back(MakeHandle(outcome));
  }
  figures["idle"] = SteadyFigures();
  if (!url.empty()) {
    for (const HandlePtr& handle : handles) {
      DownloadAndClose(handle.get(), outcome, url);
    }
    figures["after"] = SteadyFigures();
  }
  return figures;
}

nlohmann::json MeasureIdle(double seconds) {
  Outcome outcome;
  const HandlePtr handle = MakeHandle(outcome);
  SteadyFigures();
  return WakeUps(seconds);
}

nlohmann::json MeasureInitRelease(int repeat) {
  std::vector<double> samples;
  for (int i = 0; i < repeat; ++i) {
    Outcome outcome;
    const auto start = Clock::now();
    MakeHandle(outcome).reset();
    samples.push_back(MillisecondsSince(start));
  }
  return Summarize(std::move(samples));
}
