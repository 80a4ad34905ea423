#include "Report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Text.h"

namespace {

constexpr double kBytesPerMegabyte = 1e6;
constexpr size_t kMostSamplesShown = 12;

double BytesPerSecond(const Report& report) {
  return report.seconds > 0 ? static_cast<double>(report.bytes) / report.seconds : 0;
}

void PrintRow(std::FILE* stream, const std::string& name, const std::string& value) {
  std::fprintf(stream, "%-16s %s\n", Printable(name).c_str(), Printable(value).c_str());
}

// Seconds that were cached ahead, at some instants spread over the time: "2.0 at 0.1, 14.0 at 3.2".
std::string FormatAhead(const std::vector<AheadSample>& samples) {
  const size_t shown = std::min(samples.size(), kMostSamplesShown);
  std::string text;
  for (size_t i = 0; i < shown; ++i) {
    const AheadSample& sample = samples[shown == samples.size() ? i : i * (samples.size() - 1) / (shown - 1)];
    text += (i == 0 ? "" : ", ") + FormatFixed(static_cast<double>(sample.aheadMs) / 1000, 1);
    text += " at " + FormatFixed(static_cast<double>(sample.ms) / 1000, 1);
  }
  return text.empty() ? "-" : text;
}

void PrintPlaylist(const PlaylistFigures& playlist, std::FILE* stream) {
  PrintRow(stream, "playlist", playlist.url + (playlist.isLive ? ", live" : ""));
  PrintRow(stream, "playlist loads", std::to_string(playlist.loads));
  PrintRow(stream, "workers", std::to_string(playlist.workers));
  PrintRow(stream, "segments", std::to_string(playlist.segments));
  PrintRow(stream, "skipped", std::to_string(playlist.skipped));
  PrintRow(stream, "discontinuities", std::to_string(playlist.discontinuities));
  PrintRow(stream, "ahead (s)", FormatAhead(playlist.ahead));
}

template <typename T>
nlohmann::ordered_json OrNull(const std::optional<T>& value) {
  return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json PlaylistObject(const PlaylistFigures& playlist) {
  nlohmann::ordered_json object = {{"url", playlist.url},
                                   {"live", playlist.isLive},
                                   {"workers", playlist.workers},
                                   {"loads", playlist.loads},
                                   {"segments", playlist.segments},
                                   {"skipped", playlist.skipped},
                                   {"discontinuities", playlist.discontinuities}};
  object["ahead"] = nlohmann::ordered_json::array();
  for (const AheadSample& sample : playlist.ahead) {
    object["ahead"].push_back({{"ms", sample.ms}, {"aheadMs", sample.aheadMs}});
  }
  return object;
}

}  // namespace

void PrintStats(const Report& report, std::FILE* stream) {
  PrintRow(stream, "bytes", std::to_string(report.bytes));
  PrintRow(stream, "seconds", FormatFixed(report.seconds, 3));
  PrintRow(stream, "MB/s", FormatFixed(BytesPerSecond(report) / kBytesPerMegabyte, 2));
  PrintRow(stream, "first byte (ms)", report.firstByteMs ? std::to_string(*report.firstByteMs) : "-");
  if (report.playlist) {
    PrintPlaylist(*report.playlist, stream);
    return;
  }
  PrintRow(stream, "connections", std::to_string(report.connections));
  PrintRow(stream, "redirected to", report.redirectUrl.value_or("-"));
  PrintRow(stream, "content length", report.contentLength > 0 ? std::to_string(report.contentLength) : "unknown");
  for (const auto& [key, value] : report.headers) {
    PrintRow(stream, key + ":", value.value_or("-"));
  }
  for (const SeekFigure& seek : report.seeks.value_or(std::vector<SeekFigure>())) {
    PrintRow(
        stream, "seek (ms)",
        FormatFixed(seek.firstByteMs, 3) + " to " + std::to_string(seek.position) + (seek.isCached ? ", cached" : ""));
  }
}

bool PrintJson(const Report& report, const Outcome& outcome, std::FILE* stream) {
  nlohmann::ordered_json object;
  object["url"] = report.url;
  object["status"] = StatusWord(outcome.exitCode);
  object["exitCode"] = static_cast<int>(outcome.exitCode);
  if (!outcome.IsOk()) {
    object["error"] = outcome.error;
    object["code"] = outcome.messageCode;
  }
  object["bytes"] = report.bytes;
  object["seconds"] = report.seconds;
  object["bytesPerSecond"] = BytesPerSecond(report);
  object["firstByteMs"] = OrNull(report.firstByteMs);
  object["contentLength"] = report.contentLength > 0 ? nlohmann::ordered_json(report.contentLength) : nullptr;
  object["connections"] = report.connections;
  object["redirectUrl"] = OrNull(report.redirectUrl);
  object["headers"] = nlohmann::ordered_json::object();
  for (const auto& [key, value] : report.headers) {
    object["headers"][key] = OrNull(value);
  }
  if (report.seeks) {
    object["seeks"] = nlohmann::ordered_json::array();
    for (const SeekFigure& seek : *report.seeks) {
      object["seeks"].push_back(
          {{"position", seek.position}, {"firstByteMs", seek.firstByteMs}, {"cached", seek.isCached}});
    }
  }
  if (report.playlist) {
    object["playlist"] = PlaylistObject(*report.playlist);
  }
  // Header values can hold any bytes; those that are no UTF-8 are replaced.
  const std::string text = object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  return std::fputs(text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
}

void TellEnd(const CommonOptions& options, const Report& report, bool toStandardError, Outcome* outcome) {
  if (options.stats) {
    PrintStats(report, stderr);
  }
  if (options.json && !PrintJson(report, *outcome, toStandardError ? stderr : stdout) && outcome->IsOk()) {
    *outcome = {ExitCode::kOutputFailed, 0, "cannot write the report to standard output"};
  }
  if (!outcome->IsOk()) {
    PrintError(options.url + ": " + outcome->error);
  }
}
