#include "Probe.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "CachedStream.h"
#include "Handles.h"
#include "Messages.h"
#include "Pause.h"
#include "Text.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kBlockBytes = 65536;
// Short against the millisecond that is to be seen, long enough to leave the core to the transfer.
constexpr auto kStep = std::chrono::microseconds(50);

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What is probed.
class Source {
 public:
  Source() = default;
  virtual ~Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  virtual Outcome Make() = 0;
  // Opens it; when it is open already, takes it to the position.
  virtual Outcome GoTo(int64_t position) = 0;
  virtual CachedStream::Look Read(char* buffer, size_t size) = 0;
};

class CacheSource : public Source {
 public:
  explicit CacheSource(const CommonOptions& options) : stream_(options, cacheOptions_) {}

  Outcome Make() override { return stream_.Make(); }
  Outcome GoTo(int64_t position) override { return stream_.GoTo(position); }
  CachedStream::Look Read(char* buffer, size_t size) override { return stream_.Read(buffer, size); }

 private:
  const CacheOptions cacheOptions_;
  CachedStream stream_;
};

class DirectSource : public Source {
 public:
  explicit DirectSource(const CommonOptions& options) : options_(options), owner_(ReceiveMessage, &messages_) {}

  Outcome Make() override {
    if (owner_.Get() == nullptr) {
      return {ExitCode::kInternal, 0, "cannot make a downloader"};
    }
    ApplyOptions(owner_.Get(), options_);
    return {};
  }

  Outcome GoTo(int64_t position) override {
    if (isOpen_) {
      ZV_HttpBaseClose(owner_.Get());
      ZV_HttpBaseSetRange(owner_.Get(), position, -1);
    }
    isOpen_ = true;
    messages_.isAnswered = false;
    return ZV_HttpBaseOpen(owner_.Get(), options_.url.c_str()) == 0
               ? Outcome{}
               : Outcome{ExitCode::kInternal, 0, "cannot start the download"};
  }

  CachedStream::Look Read(char* buffer, size_t size) override {
    CachedStream::Look look;
    const int32_t more = ZV_HttpBaseRead(owner_.Get(), buffer, static_cast<uint32_t>(size), &look.count);
    if ((!messages_.isAnswered && HasComplaint(messages_)) || messages_.failureCode != 0) {
      look.outcome = JudgeMessages(messages_, options_.url, 0);
    }
    look.isEnd = more != 1 || !look.outcome.IsOk();
    return look;
  }

 private:
  const CommonOptions& options_;
  Messages messages_;
  DownloaderOwner owner_;
  bool isOpen_ = false;
};

// The two figures of one probe.
struct Figures {
  double firstMs = 0;
  double seekMs = 0;
};

class Probe {
 public:
  Probe(const ProbeOptions& options, Source* source) : options_(options), source_(source) {}

  Outcome Run(Figures* figures) {
    Outcome outcome = source_->Make();
    if (outcome.IsOk()) {
      outcome = Measure(0, &figures->firstMs);
    }
    if (outcome.IsOk()) {
      outcome = ReadOn();
    }
    if (outcome.IsOk()) {
      SleepUnlessInterrupted(options_.idleMs);
      outcome = Measure(options_.offset, &figures->seekMs);
    }
    return outcome;
  }

 private:
  // The next bytes, at least one; isEnd when there is none.
  CachedStream::Look AwaitBytes(size_t most) {
    CachedStream::Look look;
    while (look.count == 0 && !look.isEnd) {
      look = source_->Read(buffer_.data(), most);
      if (look.count == 0 && !look.isEnd) {
        std::this_thread::sleep_for(kStep);
      }
      if (IsInterrupted()) {
        look.outcome = InterruptedOutcome();
        look.isEnd = true;
      }
    }
    bytes_ += look.count;
    return look;
  }

  // From the call to the first byte at the position.
  Outcome Measure(int64_t position, double* ms) {
    const Clock::time_point start = Clock::now();
    if (Outcome outcome = source_->GoTo(position); !outcome.IsOk()) {
      return outcome;
    }
    const CachedStream::Look look = AwaitBytes(1);
    *ms = MillisecondsSince(start);
    if (!look.outcome.IsOk() || look.count > 0) {
      return look.outcome;
    }
    return TransferFailed("there is no byte " + std::to_string(position));
  }

  Outcome ReadOn() {
    CachedStream::Look look;
    while (bytes_ < options_.readBytes && !look.isEnd) {
      look = AwaitBytes(static_cast<size_t>(std::min<int64_t>(options_.readBytes - bytes_, kBlockBytes)));
    }
    return look.outcome;
  }

  const ProbeOptions& options_;
  Source* const source_;
  std::vector<char> buffer_ = std::vector<char>(kBlockBytes);
  int64_t bytes_ = 0;
};

}  // namespace

ExitCode RunProbe(const ProbeOptions& options) {
  const LogToStandardError log(options.common.logLevel);
  Figures figures;
  Outcome outcome;
  {
    std::unique_ptr<Source> source;
    if (options.direct) {
      source = std::make_unique<DirectSource>(options.common);
    } else {
      source = std::make_unique<CacheSource>(options.common);
    }
    outcome = Probe(options, source.get()).Run(&figures);
  }
  if (outcome.IsOk() &&
      (std::printf("first_ms=%.3f seek_ms=%.3f\n", figures.firstMs, figures.seekMs) < 0 || std::fflush(stdout) != 0)) {
    outcome = {ExitCode::kOutputFailed, 0, "cannot write the figures to standard output"};
  }
  if (!outcome.IsOk()) {
    PrintError(options.common.url + ": " + outcome.error);
  }
  return outcome.exitCode;
}
