#include "Hls.h"

#include "HlsPlay.h"
#include "Output.h"
#include "Progress.h"
#include "Report.h"
#include "Signals.h"
#include "System.h"
#include "ZVBase.h"

namespace {

// Plays into an output that is open.
Outcome Hls(const HlsOptions& options, Output* output, Report* report) {
  const CommonOptions& common = options.source.common;
  const bool isShown = IsTerminal(kStandardError) && !common.quiet && !common.logLevel;
  ProgressLine progress(isShown, 0, kDefaultSegmentBytes);
  const int64_t start = ZV_ChronoGetTick();
  HlsSource source(options.source);
  HlsPlayer player(options, &source, output, &progress, report);
  Outcome outcome = source.Load();
  if (outcome.IsOk()) {
    outcome = player.Play();
  }
  if (!outcome.IsOk() && IsInterrupted()) {
    outcome = InterruptedOutcome();
  }
  report->seconds = static_cast<double>(ZV_ChronoGetTick() - start) / 1000;
  if (outcome.IsOk()) {
    progress.Finish(report->bytes, -1);
    std::string error;
    if (!output->IsReaderGone() && !output->Finish(&error)) {
      outcome = {ExitCode::kOutputFailed, 0, error};
    }
  }
  return outcome;
}

}  // namespace

ExitCode RunHls(const HlsOptions& options) {
  const CommonOptions& common = options.source.common;
  const LogToStandardError log(common.logLevel);
  Report report;
  report.url = common.url;
  report.playlist.emplace();
  report.playlist->url = common.url;
  report.playlist->workers = options.segments.workers;
  report.connections = options.segments.workers;
  Outcome outcome;
  {
    // Ends before anything is told: a script that reads the report finds no temporary file any more.
    Output output;
    std::string error;
    if (output.Open(options.output, &error)) {
      outcome = Hls(options, &output, &report);
    } else {
      outcome = IsInterrupted() ? InterruptedOutcome() : Outcome{ExitCode::kOutputFailed, 0, error};
    }
  }
  TellEnd(common, report, options.output == "-", &outcome);
  return outcome.exitCode;
}
