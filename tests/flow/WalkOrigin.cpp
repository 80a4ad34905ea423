#include "WalkOrigin.h"

#include <algorithm>
#include <utility>

namespace flow::walk {
namespace {

constexpr uint64_t kMostPackedBytes = 1000000;
constexpr uint64_t kMostRawBytes = 60000;
constexpr uint64_t kMostDrippedBytes = 20000;
constexpr uint64_t kMostPageBytes = 300000;
constexpr uint64_t kSureHeaderBytes = 60;  // every header is longer
constexpr int64_t kLiedBytes = 100;
constexpr int32_t kUnreachable = 22222;
constexpr int kStatusGone = 410;

std::string Bytes(const origin::Resource& resource, uint64_t first, uint64_t count) {
  std::string bytes(count, '\0');
  resource.read(first, bytes.data(), count);
  return bytes;
}

std::string RangeText(uint64_t first, uint64_t last) {
  return "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/";
}

// 206 with more bytes than it says; those are none of the resource's.
std::string TooLongAnswer(const origin::Resource& media, uint64_t first, uint64_t count, uint64_t extra) {
  return "HTTP/1.1 206 Partial Content\r\nContent-Range: " + RangeText(first, first + count - 1) +
         std::to_string(media.length) + "\r\nContent-Length: " + std::to_string(count + extra) + "\r\n\r\n" +
         Bytes(media, first, count) + std::string(extra, '!');
}

bool HasBrokenHeader(const origin::Answer& answer) {
  return answer.cutAtWire.has_value() || answer.cutAt == origin::kBeforeAnswer ||
         answer.resetAt == origin::kBeforeAnswer;
}

bool IsSwitching(const origin::Answer& answer) {
  return std::find(answer.interim.begin(), answer.interim.end(), 101) != answer.interim.end();
}

}  // namespace

Script::Script(const Plan& plan, std::string target)
    : plan_(plan),
      target_(std::move(target)),
      media_(origin::PatternResource(plan.length, plan.pattern)),
      dice_(plan.seed ^ 0x5EED) {
  const Piece piece = AskedPiece(plan);
  const bool isNothing = plan.HasOwnRange() && piece.count == 0;
  if (!isNothing) {
    streams_.push_back({media_, piece.first, piece.count, 0});
  }
}

std::vector<Stream> Script::RightStreams() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return streams_;
}

std::string Script::Describe() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return notes_;
}

origin::Answer Script::Answer(const origin::Request& request) {
  const std::lock_guard<std::mutex> guard(mutex_);
  ++requests_;
  flaws_.clear();
  const Asked asked = Understand(request);
  origin::Answer answer = DrawAnswer(request, asked);
  NoteMeaning(asked, answer);
  Note(request, flaws_.empty() ? "right" : flaws_);
  begun_.store(true);
  return answer;
}

void Script::Note(const origin::Request& request, const std::string& what) {
  notes_ += std::to_string(requests_) + ": " + request.target + " " + request.range + ": " + what + "\n";
}

Script::Asked Script::Understand(const origin::Request& request) const {
  const uint64_t length = plan_.length;
  const uint64_t end = length == 0 ? 0 : length - 1;
  if (request.first < 0 && request.last < 0) {
    return {false, true, true, 0, end};
  }
  if (request.first < 0) {
    const uint64_t count = std::min(static_cast<uint64_t>(request.last), length);
    return {true, count > 0, true, length - count, end};
  }
  const uint64_t first = static_cast<uint64_t>(request.first);
  const uint64_t last = request.last < 0 ? end : std::min(static_cast<uint64_t>(request.last), end);
  return {true, first < length, request.last < 0, first, last};
}

origin::Answer Script::DrawAnswer(const origin::Request& request, const Asked& asked) {
  origin::Answer answer;
  const bool isFlawed = plan_.mood != Mood::kClean && requests_ <= plan_.flawedRequests &&
                        static_cast<int>(dice_.Below(100)) < plan_.flawPercent;
  if (!isFlawed || !asked.isSatisfiable) {
    return answer;
  }
  const bool mayFail = plan_.mood == Mood::kAnything;
  if (mayFail && dice_.OneIn(12)) {
    GiveError(&answer);
    return answer;
  }
  if (dice_.OneIn(12)) {
    constexpr int kStatuses[] = {301, 302, 303, 307, 308};
    const std::string other = request.target == target_ ? target_ + "r" : target_;
    answer = origin::Redirect(other, kStatuses[dice_.Below(5)]);
    flaws_ = "redirected";
    return answer;
  }
  const bool mayBreak = !dice_.OneIn(2) || GiveShape(request, asked, &answer);
  const uint64_t bodyBytes = SentBytes(asked, answer);
  if (mayBreak && !dice_.OneIn(3)) {
    GiveBreak(bodyBytes, &answer);
  }
  GivePace(bodyBytes, &answer);
  return answer;
}

// How many body bytes the answer has, as far as it matters to its cuts.
uint64_t Script::SentBytes(const Asked& asked, const origin::Answer& answer) const {
  if (answer.raw) {
    return answer.raw->size();
  }
  return asked.hasRange && !answer.ignoreRange ? asked.last + 1 - asked.first : plan_.length;
}

// False when the answer must not be broken off as well: nobody could tell.
bool Script::GiveShape(const origin::Request& request, const Asked& asked, origin::Answer* answer) {
  const bool isLast = request.first < 0;  // the last bytes
  switch (dice_.Below(12)) {
    case 0:
      answer->ignoreRange = true;
      flaws_ = "200";
      if (dice_.OneIn(2)) {
        answer->without.push_back("Accept-Ranges");
        flaws_ += " without Accept-Ranges";
      }
      if (asked.hasRange && dice_.OneIn(3)) {
        answer->chunkBytes = dice_.Spread(100000);
        flaws_ += " chunked";
      }
      return true;
    case 1:
      if (asked.hasRange) {
        answer->shift = dice_.Between(-1000, 1000);
        flaws_ = "shifted by " + std::to_string(answer->shift);
      }
      return true;
    case 2:
      answer->without.push_back("Content-Range");
      flaws_ = "without Content-Range";
      return true;
    case 3:
      if (asked.hasRange) {
        answer->headers.push_back({"Content-Range", RangeText(asked.first, asked.last) + "*"});
        flaws_ = "total unknown";
      }
      return true;
    case 4:
      answer->chunkBytes = dice_.Spread(100000);
      flaws_ = "chunked";
      return true;
    case 5:
      if (!plan_.HasOwnRange() && plan_.length <= kMostPackedBytes) {
        answer->body = Bytes(media_, 0, plan_.length);
        answer->gzip = true;
        flaws_ = "packed";
      }
      return true;
    case 6:
      answer->noContentLength = true;
      flaws_ = "without length";
      return asked.hasRange;
    case 7:
      if (asked.hasRange) {
        answer->maxBytes = 1 + dice_.Spread(asked.last + 1 - asked.first);
        flaws_ = "at most " + std::to_string(*answer->maxBytes);
      }
      return true;
    case 8: {
      constexpr int kInterim[] = {100, 102, 103, 101};
      answer->interim = {kInterim[dice_.Below(3)], kInterim[dice_.Below(4)]};
      flaws_ = "interim " + std::to_string(answer->interim[1]);
      return true;
    }
    case 9:
      if (asked.hasRange && !isLast) {
        const uint64_t count = 1 + dice_.Below(std::min(asked.last + 1 - asked.first, kMostRawBytes));
        answer->raw = TooLongAnswer(media_, asked.first, count, 1 + dice_.Below(1000));
        flaws_ = "longer than its Content-Range of " + std::to_string(count);
        return false;  // its header counts as body
      }
      return true;
    case 10:
      if (asked.hasRange) {
        answer->contentLength = std::to_string(dice_.Below(asked.last + 2 - asked.first));
        flaws_ = "Content-Length " + *answer->contentLength;
      } else if (plan_.mood == Mood::kAnything) {
        answer->contentLength = std::to_string(plan_.length + kLiedBytes);
        flaws_ = "Content-Length too long";
      }
      return true;
    default:
      answer->lowerCaseNames = true;
      answer->bareLf = dice_.OneIn(2);
      flaws_ = answer->bareLf ? "bare LF" : "lower case";
      return true;
  }
}

void Script::GiveBreak(uint64_t bodyBytes, origin::Answer* answer) {
  if (dice_.OneIn(4)) {
    BreakHeader(answer);
    return;
  }
  const uint64_t position =
      dice_.OneIn(4) ? 0 : (dice_.OneIn(2) ? dice_.Below(bodyBytes + 1) : dice_.Spread(bodyBytes));
  const int64_t at = static_cast<int64_t>(position);
  switch (dice_.Below(3)) {
    case 0:
      answer->cutAt = at;
      flaws_ += ", cut at ";
      break;
    case 1:
      answer->resetAt = at;
      flaws_ += ", reset at ";
      break;
    default:
      answer->stallAt = dice_.OneIn(4) ? origin::kBeforeAnswer : at;
      flaws_ += ", stalled at ";
      break;
  }
  flaws_ += std::to_string(at);
}

void Script::BreakHeader(origin::Answer* answer) {
  switch (dice_.Below(3)) {
    case 0:
      answer->cutAtWire = dice_.Below(kSureHeaderBytes);
      flaws_ += ", cut in the header at " + std::to_string(*answer->cutAtWire);
      break;
    case 1:
      answer->cutAt = origin::kBeforeAnswer;
      flaws_ += ", cut before the answer";
      break;
    default:
      answer->resetAt = origin::kBeforeAnswer;
      flaws_ += ", reset before the answer";
      break;
  }
}

void Script::GivePace(uint64_t bodyBytes, origin::Answer* answer) {
  if (dice_.OneIn(6)) {
    answer->delayMs = static_cast<int>(dice_.Between(1, 20));
  }
  if (dice_.OneIn(6) && bodyBytes < kMostDrippedBytes) {
    answer->dripBytes = 20 + bodyBytes / 20;
    answer->dripMs = 1;
    flaws_ += ", drips";
  }
}

void Script::GiveError(origin::Answer* answer) {
  constexpr int kStatuses[] = {403, 404, kStatusGone, 500, 503};
  const origin::Resource page =
      origin::PatternResource(dice_.Spread(kMostPageBytes) - 1, static_cast<uint32_t>(dice_.Below(UINT32_MAX)));
  *answer = origin::Status(kStatuses[dice_.Below(5)]);
  answer->body = Bytes(page, 0, page.length);
  flaws_ = std::to_string(answer->status) + " with " + std::to_string(page.length) + " bytes";
  if (dice_.OneIn(2)) {
    GiveBreak(page.length, answer);
  }
}

// Which streams the answer makes right, if it is the first of its kind.
void Script::NoteMeaning(const Asked& asked, const origin::Answer& answer) {
  if (HasBrokenHeader(answer) || !answer.location.empty()) {
    return;
  }
  const bool isError = answer.status >= 400 || (!asked.isSatisfiable && !answer.ignoreRange);
  if (isError && !answered_) {
    const int status = answer.status == 0 ? 416 : answer.status;
    const std::string page = answer.body.value_or("416 Range Not Satisfiable\n");
    streams_.push_back({origin::BytesResource(page), 0, page.size(), status == kStatusGone ? kUnreachable : status});
  }
  const bool isPartial = asked.hasRange && !answer.ignoreRange && !isError;
  if (!isError && !isPartial && plan_.HasOwnRange() && !fitted206_) {
    streams_.push_back({media_, 0, plan_.length, 0});
  }
  if (IsSwitching(answer)) {
    return;  // taken for what follows it, or for nothing
  }
  answered_ = true;
  fitted206_ = fitted206_ || (isPartial && answer.shift == 0);
}

}  // namespace flow::walk
