// Header lines of a hostile server: the parsers, and the range guard fed with what they made of them. The first bytes of
// the input choose the task, the rest are the lines of one answer.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Require.h"
#include "ZVHttpBase/HeaderLine.h"
#include "ZVHttpBase/RangeGuard.h"

namespace {

bool LiesIn(std::string_view part, std::string_view line) {
  return part.empty() || (part.data() >= line.data() && part.data() + part.size() <= line.data() + line.size());
}

int64_t TakeNumber(std::string_view* input) {
  int64_t value = 0;
  const size_t count = std::min(sizeof value, input->size());
  memcpy(&value, input->data(), count);
  input->remove_prefix(count);
  return value;
}

void CheckParsers(std::string_view line) {
  const HeaderField field = SplitHeaderLine(line);
  Require(LiesIn(field.name, line) && LiesIn(field.value, line), "a field lies in its line");
  const int64_t total = ZVIner_ParseContentRangeLength(line);
  Require(total == -1 || (total > 0 && total < kMostContentBytes), "a total is positive and bounded, or unknown");
  const int64_t length = ParseLength(line);
  Require(length >= -1 && length < kMostContentBytes, "a length is bounded");
  for (const std::string_view key : {std::string_view("content-type"), std::string_view("a"), field.name}) {
    Require(LiesIn(FindValueOfKey(line, key), line), "a value lies in its line");
  }
}

// The parts of an answer's head that the guard looks at.
void NoteLine(AnswerHead* head, std::string_view line) {
  const HeaderField field = SplitHeaderLine(line);
  if (EqualIgnoringCase(field.name, "Content-Length")) {
    head->contentLength = ParseLength(field.value);
  } else if (EqualIgnoringCase(field.name, "Content-Range")) {
    head->range = ParseContentRange(field.value);
    head->hasContentRange = true;
    const ContentRange& range = head->range;
    Require((range.first == -1) == (range.last == -1) && range.first <= range.last, "both ends or none, in order");
    Require(range.last < kMostContentBytes && range.first >= -1, "positions are bounded");
  } else if (EqualIgnoringCase(field.name, "Accept-Ranges")) {
    head->acceptsRanges = StartsWithIgnoringCase(field.value, "bytes");
  } else if (EqualIgnoringCase(field.name, "Content-Encoding")) {
    head->encoded = true;
  } else if (EqualIgnoringCase(field.name, "Transfer-Encoding")) {
    head->chunked = true;
  }
}

// Delivers what the answer promises, in two steps, as the transfer would.
void Deliver(RangeGuard* guard, int64_t promised) {
  for (int step = 0; step < 2; ++step) {
    const int64_t allowed = BytesAllowed(*guard);
    Require(allowed >= 0, "never less than nothing is allowed");
    guard->delivered += std::min({allowed, promised / 2 + 1, kMostContentBytes});
    Require(NextPosition(*guard) >= -1, "positions do not overflow");
    AnswerKept(*guard);
    Require(BytesAllowed(*guard) <= BytesOwed(*guard), "no more is allowed than is owed");
    Require(!IsComplete(*guard) || BytesAllowed(*guard) == 0, "nothing is allowed when all is there");
  }
}

void CheckGuard(uint8_t choice, int64_t start, int64_t end, const AnswerHead& head, int64_t knownTotal) {
  const TaskKind kind = static_cast<TaskKind>(choice % 3);
  const bool asItComes = (choice & 4) != 0;
  const int64_t status = (choice & 8) != 0 ? 206 : 200;
  RangeGuard guard = MakeRangeGuard(kind, asItComes, start, end, end);
  for (int attempt = 0; attempt < 2; ++attempt) {
    AnswerFacts facts;
    if (JudgeAnswer(&guard, head, status, knownTotal, &facts) != kAnswerFits) {
      return;
    }
    Require(guard.skip >= 0, "never less than nothing is skipped");
    Require(facts.total >= -1 && facts.total < kMostContentBytes, "a total is bounded");
    const bool cut = !asItComes && kind == kTaskRange && start >= 0 && end >= start;
    Require(!cut || guard.delivered + BytesAllowed(guard) <= end - start + 1, "no more bytes than the range has");
    Deliver(&guard, std::max<int64_t>(head.contentLength, 0));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(bytes), size);
  if (size < 25) {
    return 0;
  }
  const uint8_t choice = bytes[0];
  input.remove_prefix(1);
  // A task has no position beyond the limit.
  const int64_t start = std::min(TakeNumber(&input), kMostContentBytes - 1);
  const int64_t end = std::min(TakeNumber(&input), kMostContentBytes - 1);
  const int64_t known = TakeNumber(&input);
  const int64_t knownTotal = (choice & 16) != 0 ? -1 : static_cast<int64_t>(static_cast<uint64_t>(known) >> 2);
  AnswerHead head = {};
  head.contentLength = -1;
  head.range = {-1, -1, -1};
  while (!input.empty()) {
    const size_t length = std::min(input.find('\n'), input.size() - 1) + 1;
    CheckParsers(input.substr(0, length));
    NoteLine(&head, input.substr(0, length));
    input.remove_prefix(length);
  }
  CheckGuard(choice, start, end, head, knownTotal);
  return 0;
}
