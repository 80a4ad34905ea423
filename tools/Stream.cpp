#include "Stream.h"

#include "Output.h"
#include "Pause.h"
#include "Progress.h"
#include "Report.h"
#include "Signals.h"
#include "System.h"
#include "ZVBase.h"

namespace {

constexpr size_t kBufferBytes = 1 << 20;
// So much is collected before it is written while more keeps coming.
constexpr size_t kWriteBytes = 256 << 10;

// A stream that is being written.
struct Copy {
  CachedStream& stream;
  Output& output;
  ProgressLine& progress;
  int64_t start;  // position of the first byte that is written
  int64_t written = 0;
  std::vector<char> buffer = std::vector<char>(kBufferBytes);
  size_t held = 0;  // bytes in the buffer that are not written yet
};

int64_t ExpectedBytes(const Copy& copy) {
  const int64_t length = copy.stream.Length();
  return length < 0 ? -1 : std::max<int64_t>(length - copy.start, 0);
}

Outcome WriteHeld(Copy* copy) {
  std::string error;
  if (!copy->output.Write(copy->buffer.data(), copy->held, &error)) {
    if (IsInterrupted()) {
      return InterruptedOutcome();
    }
    return copy->output.IsReaderGone() ? Outcome{} : Outcome{ExitCode::kOutputFailed, 0, error};
  }
  copy->written += static_cast<int64_t>(copy->held);
  copy->held = 0;
  return {};
}

void ShowProgress(Copy* copy) {
  if (copy->progress.IsDue()) {
    copy->progress.SetAhead(copy->stream.BufferedAhead());
    copy->progress.Update(copy->written, ExpectedBytes(*copy));
  }
}

// Reads and writes until the end.
Outcome Pump(Copy* copy) {
  Pause pause;
  while (!IsInterrupted()) {
    const CachedStream::Look look =
        copy->stream.Read(copy->buffer.data() + copy->held, copy->buffer.size() - copy->held);
    copy->held += look.count;
    if (copy->held > 0 && (look.count == 0 || look.isEnd || copy->held >= kWriteBytes)) {
      if (Outcome outcome = WriteHeld(copy); !outcome.IsOk() || copy->output.IsReaderGone()) {
        return outcome;
      }
    }
    if (look.isEnd) {
      return look.outcome;
    }
    ShowProgress(copy);
    if (look.count > 0) {
      pause.Reset();
    } else {
      pause.Sleep();
    }
  }
  return InterruptedOutcome();
}

// Goes to every place in turn and waits for its first bytes; the last place is where the stream is read from.
Outcome GoThrough(const std::vector<int64_t>& seeks, CachedStream* stream) {
  if (seeks.empty()) {
    return stream->GoTo(0);
  }
  std::vector<char> block(1);
  for (size_t i = 0; i < seeks.size(); ++i) {
    if (Outcome outcome = stream->GoTo(seeks[i]); !outcome.IsOk()) {
      return outcome;
    }
    if (i + 1 == seeks.size()) {
      break;
    }
    if (Outcome outcome = stream->ReadFully(block.data(), block.size()).outcome; !outcome.IsOk()) {
      return outcome;
    }
  }
  return {};
}

Outcome CopyStream(const StreamOptions& options, CachedStream* stream, Output* output, Report* report) {
  const bool isShown = IsTerminal(kStandardError) && !options.common.quiet && !options.common.logLevel;
  ProgressLine progress(isShown, options.common.connections,
                        options.common.segmentBytes.value_or(kDefaultSegmentBytes));
  Copy copy{*stream, *output, progress, stream->Position()};
  Outcome outcome = Pump(&copy);
  report->bytes = copy.written;
  if (outcome.IsOk()) {
    progress.SetAhead(stream->BufferedAhead());
    progress.Finish(copy.written, copy.written);
  }
  return outcome;
}

// Streams into an output that is open.
Outcome Stream(const StreamOptions& options, Output* output, Report* report) {
  CachedStream stream(options.common, options.cache);
  const int64_t start = ZV_ChronoGetTick();
  Outcome outcome = stream.Make();
  if (outcome.IsOk()) {
    outcome = GoThrough(options.seeks, &stream);
  }
  if (outcome.IsOk()) {
    outcome = options.walk ? RunWalk(*options.walk, &stream, output, &report->bytes)
                           : CopyStream(options, &stream, output, report);
  }
  report->seconds = static_cast<double>(ZV_ChronoGetTick() - start) / 1000;
  stream.FillReport(report);
  if (options.seeks.empty()) {
    report->seeks.reset();
  }
  std::string error;
  if (outcome.IsOk() && !output->IsReaderGone() && !output->Finish(&error)) {
    outcome = {ExitCode::kOutputFailed, 0, error};
  }
  return outcome;
}

}  // namespace

ExitCode RunStream(const StreamOptions& options) {
  const LogToStandardError log(options.common.logLevel);
  Report report;
  report.url = options.common.url;
  report.connections = options.common.connections;
  Outcome outcome;
  {
    // Ends before anything is told: a script that reads the report finds no temporary file any more.
    Output output;
    std::string error;
    if (output.Open(options.output, &error)) {
      outcome = Stream(options, &output, &report);
    } else {
      outcome = IsInterrupted() ? InterruptedOutcome() : Outcome{ExitCode::kOutputFailed, 0, error};
    }
  }
  TellEnd(options.common, report, options.output == "-", &outcome);
  return outcome.exitCode;
}
