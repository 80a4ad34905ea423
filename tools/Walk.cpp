#include "Walk.h"

#include <algorithm>
#include <array>
#include <boost/crc.hpp>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "Pause.h"

namespace {

constexpr size_t kMostBytes = 2 << 20;
constexpr size_t kFewBytes = 64 << 10;
constexpr uint64_t kMostPauseMs = 100;

template <typename Number>
bool ParseNumber(std::string_view text, Number* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

std::string Hex(uint32_t value) {
  std::array<char, 9> text{};
  std::snprintf(text.data(), text.size(), "%08x", static_cast<unsigned>(value));
  return text.data();
}

class Walk {
 public:
  Walk(const WalkPlan& plan, CachedStream* stream, Output* output)
      : plan_(plan), stream_(stream), output_(output), random_(plan.seed) {}

  Outcome Run() {
    for (uint32_t step = 0; step < plan_.steps; ++step) {
      if (Outcome outcome = Step(step); !outcome.IsOk() || output_->IsReaderGone()) {
        return outcome;
      }
    }
    return {};
  }
  int64_t Bytes() const { return bytes_; }

 private:
  uint64_t Below(uint64_t bound) { return random_() % bound; }

  // Every number is drawn in every step, so that a step does not depend on what the one before found.
  Outcome Step(uint32_t step) {
    const uint64_t choice = Below(10);
    const uint64_t where = random_();
    const uint64_t pauseMs = Below(kMostPauseMs + 1);
    const bool isFew = Below(4) != 0;
    const size_t size = 1 + Below(isFew ? kFewBytes : kMostBytes);
    const char* action = "read";
    if (isAtEnd_ || (step > 0 && choice < 3)) {
      action = "seek";
      if (Outcome outcome = stream_->GoTo(Place(where)); !outcome.IsOk()) {
        return outcome;
      }
    } else if (choice < 5) {
      action = "pause";
      SleepUnlessInterrupted(static_cast<int64_t>(pauseMs));
    }
    return ReadAndTell(step, action, size);
  }

  // Without a length the walk stays within what it has seen.
  int64_t Place(uint64_t where) const {
    const int64_t length = stream_->Length() > 0 ? stream_->Length() : farthest_;
    return length > 0 ? static_cast<int64_t>(where % static_cast<uint64_t>(length)) : 0;
  }

  Outcome ReadAndTell(uint32_t step, const char* action, size_t size) {
    const int64_t position = stream_->Position();
    const CachedStream::Look look = stream_->ReadFully(buffer_.data(), size);
    if (!look.outcome.IsOk()) {
      return look.outcome;
    }
    bytes_ += look.count;
    farthest_ = std::max(farthest_, stream_->Position());
    // Whether the end is told with the last byte or after it depends on the network; the position does not.
    isAtEnd_ = look.isEnd || stream_->Position() == stream_->Length();
    boost::crc_32_type crc;
    crc.process_bytes(buffer_.data(), look.count);
    nlohmann::ordered_json line = {{"step", step},
                                   {"action", action},
                                   {"position", position},
                                   {"length", look.count},
                                   {"crc32", Hex(crc.checksum())}};
    const std::string text = line.dump() + "\n";
    std::string error;
    if (!output_->Write(text.data(), text.size(), &error) && !output_->IsReaderGone()) {
      return IsInterrupted() ? InterruptedOutcome() : Outcome{ExitCode::kOutputFailed, 0, error};
    }
    return {};
  }

  const WalkPlan plan_;
  CachedStream* const stream_;
  Output* const output_;
  std::mt19937_64 random_;
  std::vector<char> buffer_ = std::vector<char>(kMostBytes);
  bool isAtEnd_ = false;
  int64_t farthest_ = 0;
  int64_t bytes_ = 0;
};

}  // namespace

std::optional<WalkPlan> ParseWalk(std::string_view text) {
  WalkPlan plan;
  const size_t comma = text.find(',');
  if (!ParseNumber(text.substr(0, comma), &plan.seed)) {
    return std::nullopt;
  }
  if (comma != std::string_view::npos && !ParseNumber(text.substr(comma + 1), &plan.steps)) {
    return std::nullopt;
  }
  return plan;
}

Outcome RunWalk(const WalkPlan& plan, CachedStream* stream, Output* output, int64_t* bytes) {
  Walk walk(plan, stream, output);
  Outcome outcome = walk.Run();
  *bytes = walk.Bytes();
  return outcome;
}
