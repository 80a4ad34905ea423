#include "Get.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "Handles.h"
#include "Messages.h"
#include "Output.h"
#include "Pause.h"
#include "Progress.h"
#include "Report.h"
#include "Signals.h"
#include "System.h"
#include "Text.h"
#include "ZVBase.h"

namespace {

constexpr size_t kBufferBytes = 1 << 20;
// So much is collected before it is written while more keeps coming.
constexpr size_t kWriteBytes = 256 << 10;
constexpr const char* kContentRange = "Content-Range";

// A download under way.
struct Transfer {
  const GetOptions& options;
  const std::string rangeKey;  // under which the library keeps Content-Range for us
  HttpBase* handle;
  const Messages& messages;
  Output* output;
  ProgressLine* progress;
  int64_t startMs;
  int64_t firstByteMs = -1;
  int64_t written = 0;
  std::vector<char> buffer = std::vector<char>(kBufferBytes);
  size_t held = 0;  // bytes in the buffer that are not written yet
};

// The user may have asked for the header too; the library fills only one of two equal keys.
std::string RangeKey(const std::vector<std::string>& keys) {
  const auto isContentRange = [](const std::string& key) {
    return key.size() == std::string(kContentRange).size() && ZV_Strnicmp(key.c_str(), kContentRange, key.size()) == 0;
  };
  const auto found = std::find_if(keys.begin(), keys.end(), isContentRange);
  return found == keys.end() ? kContentRange : *found;
}

void Configure(HttpBase* handle, const GetOptions& options, const std::string& rangeKey) {
  ApplyOptions(handle, options.common);
  if (options.whole) {
    ZV_HttpBaseSetNeedDownloadComplete(handle, 0);
  }
  if (options.range.IsWhole()) {
    return;
  }
  ZV_HttpBaseSetRange(handle, options.range.first, options.range.last);
  if (std::find(options.common.headerKeys.begin(), options.common.headerKeys.end(), rangeKey) ==
      options.common.headerKeys.end()) {
    ZV_HttpBaseSetRespKey(handle, rangeKey.c_str());
  }
}

int64_t ExpectedBytes(const Transfer& transfer) {
  return SelectedBytes(transfer.options.range, ZV_HttpBaseGetContentLength(transfer.handle));
}

// The library delivers what comes when a server answers a range request with everything. Content-Range is what tells.
bool IsRangeIgnored(const Transfer& transfer) {
  return !transfer.options.range.IsWhole() && !ResponseHeader(transfer.handle, transfer.rangeKey) &&
         !IsWholeResource(transfer.options.range, ZV_HttpBaseGetContentLength(transfer.handle));
}

// Why nothing that is held may be written, if so.
Outcome FindRefusal(const Transfer& transfer) {
  const Messages& messages = transfer.messages;
  if (!messages.isAnswered) {
    // In whole-resource mode an error status may be followed by an attempt that succeeds.
    if (HasComplaint(messages) && !transfer.options.whole) {
      return JudgeMessages(messages, transfer.options.common.url, 0);
    }
    if (transfer.held == transfer.buffer.size()) {
      return TransferFailed("the server sends a body without a usable status");
    }
    return {};
  }
  if (transfer.held == 0) {
    return {};
  }
  if (transfer.written == 0 && IsRangeIgnored(transfer)) {
    return TransferFailed("the server ignored the range");
  }
  const int64_t expected = ExpectedBytes(transfer);
  if (expected >= 0 && transfer.written + static_cast<int64_t>(transfer.held) > expected) {
    return TransferFailed(transfer.options.range.IsWhole() ? "more bytes than the server announced"
                                                           : "more bytes than the range has");
  }
  return {};
}

Outcome WriteHeld(Transfer* transfer) {
  std::string error;
  if (!transfer->output->Write(transfer->buffer.data(), transfer->held, &error)) {
    return IsInterrupted() ? InterruptedOutcome() : Outcome{ExitCode::kOutputFailed, 0, error};
  }
  transfer->written += static_cast<int64_t>(transfer->held);
  transfer->held = 0;
  return {};
}

// The stream has ended: whether everything that was promised has come.
Outcome Conclude(const Transfer& transfer) {
  const Messages& messages = transfer.messages;
  const std::string& url = transfer.options.common.url;
  if (!messages.isAnswered || messages.failureCode != 0) {
    const Outcome outcome = JudgeMessages(messages, url, transfer.written);
    return outcome.IsOk() ? TransferFailed("no usable answer") : outcome;
  }
  const int64_t total = ZV_HttpBaseGetContentLength(transfer.handle);
  const int64_t expected = SelectedBytes(transfer.options.range, total);
  // Of a resource of unknown length a suffix may be all there is.
  const bool isExact = total > 0 || transfer.options.range.first >= 0;
  if (expected >= 0 && isExact && transfer.written < expected) {
    // An error status that a later attempt did not make good for is the reason.
    const Outcome outcome = JudgeMessages(messages, url, transfer.written);
    return outcome.IsOk() ? TransferFailed("short: " + std::to_string(transfer.written) + " of " +
                                           std::to_string(expected) + " bytes")
                          : outcome;
  }
  return {};
}

// One Read; its result.
int32_t ReadMore(Transfer* transfer) {
  uint32_t count = 0;
  const auto room = static_cast<uint32_t>(transfer->buffer.size() - transfer->held);
  const int32_t more = ZV_HttpBaseRead(transfer->handle, transfer->buffer.data() + transfer->held, room, &count);
  if (count > 0 && transfer->firstByteMs < 0) {
    transfer->firstByteMs = ZV_ChronoGetTick() - transfer->startMs;
  }
  transfer->held += count;
  return more;
}

// Reads and writes until the end.
Outcome Pump(Transfer* transfer) {
  Pause pause;
  while (!IsInterrupted()) {
    const size_t before = transfer->held;
    const int32_t more = ReadMore(transfer);
    const bool isIdle = transfer->held == before;
    if (Outcome outcome = FindRefusal(*transfer); !outcome.IsOk()) {
      return outcome;
    }
    if (transfer->messages.isAnswered && (isIdle || more != 1 || transfer->held >= kWriteBytes)) {
      if (Outcome outcome = WriteHeld(transfer); !outcome.IsOk()) {
        return outcome;
      }
    }
    if (more != 1) {
      return Conclude(*transfer);
    }
    transfer->progress->Update(transfer->written, ExpectedBytes(*transfer));
    if (isIdle) {
      pause.Sleep();
    } else {
      pause.Reset();
    }
  }
  return InterruptedOutcome();
}

void FillReport(const Transfer& transfer, Report* report) {
  report->bytes = transfer.written;
  report->seconds = static_cast<double>(ZV_ChronoGetTick() - transfer.startMs) / 1000;
  if (transfer.firstByteMs >= 0) {
    report->firstByteMs = transfer.firstByteMs;
  }
  report->contentLength = ZV_HttpBaseGetContentLength(transfer.handle);
  if (const char* url = ZV_HttpBaseGetRedirectURL(transfer.handle); url != nullptr) {
    report->redirectUrl = url;
  }
  for (const std::string& key : transfer.options.common.headerKeys) {
    report->headers.emplace_back(key, ResponseHeader(transfer.handle, key));
  }
}

// Fetches into an output that is open.
Outcome Fetch(const GetOptions& options, Output* output, Report* report) {
  Messages messages;
  const DownloaderOwner owner(ReceiveMessage, &messages);
  if (owner.Get() == nullptr) {
    return {ExitCode::kInternal, 0, "cannot make a downloader"};
  }
  const std::string rangeKey = RangeKey(options.common.headerKeys);
  Configure(owner.Get(), options, rangeKey);
  const bool isShown = IsTerminal(kStandardError) && !options.common.quiet && !options.common.logLevel;
  ProgressLine progress(isShown, options.whole ? 1 : options.common.connections,
                        options.common.segmentBytes.value_or(kDefaultSegmentBytes));
  Transfer transfer{options, rangeKey, owner.Get(), messages, output, &progress, ZV_ChronoGetTick()};
  if (ZV_HttpBaseOpen(owner.Get(), options.common.url.c_str()) != 0) {
    return {ExitCode::kInternal, 0, "cannot start the download"};
  }
  Outcome outcome = Pump(&transfer);
  FillReport(transfer, report);
  ZV_HttpBaseClose(owner.Get());
  if (outcome.IsOk()) {
    progress.Finish(report->bytes, report->bytes);
    std::string error;
    if (!output->Finish(&error)) {
      outcome = {ExitCode::kOutputFailed, 0, error};
    }
  }
  return outcome;
}

}  // namespace

ExitCode RunGet(const GetOptions& options) {
  const std::string name = options.output ? *options.output : FileNameOfUrl(options.common.url);
  if (name.empty()) {
    PrintError(options.common.url + ": the URL names no file; say where to write with -o FILE or -o -");
    return ExitCode::kBadArguments;
  }
  const LogToStandardError log(options.common.logLevel);
  Report report;
  report.url = options.common.url;
  report.connections = options.common.connections;
  Outcome outcome;
  {
    // Ends before anything is told: a script that reads the report finds no temporary file any more.
    Output output;
    std::string error;
    if (output.Open(name, &error)) {
      outcome = Fetch(options, &output, &report);
    } else {
      outcome = IsInterrupted() ? InterruptedOutcome() : Outcome{ExitCode::kOutputFailed, 0, error};
    }
  }
  TellEnd(options.common, report, name == "-", &outcome);
  return outcome.exitCode;
}
