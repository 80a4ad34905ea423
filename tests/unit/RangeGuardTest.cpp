// The range guard: for every kind of task and answer, whether the answer fits, what is skipped, how many bytes may be
// delivered and who fetches the rest.
#include "ZVHttpBase/RangeGuard.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr int64_t kFree = INT64_MAX;                 // nothing limits the bytes
constexpr int64_t kLargest = kMostContentBytes - 1;  // a task has no larger position
constexpr ContentRange kNoRange = {-1, -1, -1};

struct Task {
  TaskKind kind;
  bool asItComes;
  int64_t start;
  int64_t end;
  int64_t wholeLast = -1;
  int64_t delivered = 0;
};

struct Answer {
  int64_t status;
  ContentRange range = kNoRange;
  int64_t length = -1;
  bool acceptsRanges = false;
  bool chunked = false;
  bool encoded = false;
  int64_t knownTotal = -1;
};

struct Outcome {
  Verdict verdict;
  int64_t skip = 0;
  int64_t allowed = 0;
  HandOver handOver = kHandOverUndecided;
};

struct Row {
  const char* what;
  Task task;
  Answer answer;
  Outcome expected;
};

const Task kStrict = {kTaskRange, false, 1000, 1999};
const Task kStrictResumed = {kTaskRange, false, 1000, 1999, -1, 300};
const Task kCallers = {kTaskRange, true, 1000, 1999};
const Task kCallersResumed = {kTaskRange, true, 1000, 1999, -1, 300};
const Task kOpen = {kTaskRange, false, 1000, -1};
const Task kLast499 = {kTaskRange, true, -1, 499};
const Task kWhole = {kTaskWhole, false, 1000, 1999};
const Task kExplore = {kTaskExplore, false, 0, 999};
const Task kExploreTo5000 = {kTaskExplore, false, 0, 999, 5000};
const Task kExploreCovers = {kTaskExplore, true, 1000, 1999, 1999};

AnswerHead HeadOf(const Answer& answer) {
  AnswerHead head = {};
  head.contentLength = answer.length;
  head.range = answer.range;
  head.hasContentRange = answer.range.first >= 0 || answer.range.total >= 0;
  head.acceptsRanges = answer.acceptsRanges;
  head.chunked = answer.chunked;
  head.encoded = answer.encoded;
  return head;
}

RangeGuard GuardOf(const Task& task) {
  RangeGuard guard = MakeRangeGuard(task.kind, task.asItComes, task.start, task.end, task.wholeLast);
  guard.delivered = task.delivered;
  return guard;
}

void Check(const Row& row) {
  RangeGuard guard = GuardOf(row.task);
  AnswerFacts facts;
  const Verdict verdict = JudgeAnswer(&guard, HeadOf(row.answer), row.answer.status, row.answer.knownTotal, &facts);
  EXPECT_EQ(row.expected.verdict, verdict) << row.what;
  if (verdict != kAnswerFits || row.expected.verdict != kAnswerFits) {
    return;
  }
  EXPECT_EQ(row.expected.skip, guard.skip) << row.what;
  EXPECT_EQ(row.expected.allowed, BytesAllowed(guard)) << row.what;
  EXPECT_EQ(row.expected.handOver, facts.handOver) << row.what;
}

TEST(RangeGuard, JudgesPartialAnswers) {
  const Row rows[] = {
      {"as asked", kStrict, {206, {1000, 1999, 9000}}, {kAnswerFits, 0, 1000}},
      {"longer than asked is cut", kStrict, {206, {1000, 8999, 9000}}, {kAnswerFits, 0, 1000}},
      {"shorter than asked", kStrict, {206, {1000, 1499, 9000}}, {kAnswerFits, 0, 500}},
      {"the end lies behind the resource", kStrict, {206, {1000, 1499, 1500}}, {kAnswerFits, 0, 500}},
      {"starts later", kStrict, {206, {1001, 1999, 9000}}, {kAnswerRefused}},
      {"starts earlier", kStrict, {206, {999, 1999, 9000}}, {kAnswerRefused}},
      {"starts at 0", kStrict, {206, {0, 8999, 9000}}, {kAnswerRefused}},
      {"resumed at the missing byte", kStrictResumed, {206, {1300, 1999, 9000}}, {kAnswerFits, 0, 700}},
      {"resumed, starts over", kStrictResumed, {206, {1000, 1999, 9000}}, {kAnswerRefused}},
      {"resumed by the caller, starts over", kCallersResumed, {206, {1000, 1999, 9000}}, {kAnswerRefused}},
      {"caller's range elsewhere", kCallers, {206, {0, 999, 9000}}, {kAnswerRefused}},
      {"no total", kStrict, {206, {1000, 1999, -1}}, {kAnswerFits, 0, 1000}},
      {"last byte behind the total", kStrict, {206, {1000, 1999, 1500}}, {kAnswerRefused}},
      {"another total than before",
       kStrict,
       {206, {1000, 1999, 9000}, -1, false, false, false, 8000},
       {kAnswerRefused}},
      {"the known total limits",
       kStrict,
       {206, {1000, 1999, -1}, -1, false, false, false, 1200},
       {kAnswerFits, 0, 200}},
      {"no position, right length", kStrict, {206, kNoRange, 1000}, {kAnswerFits, 0, 1000}},
      {"no position, too long", kStrict, {206, kNoRange, 9000}, {kAnswerRefused}},
      {"no position, resumed", kStrictResumed, {206, kNoRange, 700}, {kAnswerFits, 0, 700}},
      {"no position, resumed, starts over", kStrictResumed, {206, kNoRange, 1000}, {kAnswerRefused}},
      {"no position, the caller's range", kCallers, {206, kNoRange, 9000}, {kAnswerFits, 0, 1000}},
      {"open end, no total", kOpen, {206, {1000, 1999, -1}}, {kAnswerFits, 0, 1000}},
      {"open end", kOpen, {206, {1000, 8999, 9000}}, {kAnswerFits, 0, 8000}},
      {"last bytes", kLast499, {206, {8501, 8999, 9000}}, {kAnswerFits, 0, 499}},
      {"last bytes of a short resource", kLast499, {206, {0, 299, 300}}, {kAnswerFits, 0, 300}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

TEST(RangeGuard, JudgesFullAnswers) {
  const Row rows[] = {
      {"skipped to its position", kStrict, {200, kNoRange, 9000}, {kAnswerFits, 1000, 1000}},
      {"resumed", kStrictResumed, {200, kNoRange, 9000}, {kAnswerFits, 1300, 700}},
      {"resumed, of the length known",
       kStrictResumed,
       {200, kNoRange, 9000, false, false, false, 9000},
       {kAnswerFits, 1300, 700}},
      {"resumed, of another length",
       kStrictResumed,
       {200, kNoRange, 8000, false, false, false, 9000},
       {kAnswerRefused}},
      {"resumed, chunked", kStrictResumed, {200, kNoRange, -1, false, true}, {kAnswerFits, 1300, 700}},
      {"shorter than the range's end", kStrict, {200, kNoRange, 1500}, {kAnswerFits, 1000, 500}},
      {"shorter than the range's start", kStrict, {200, kNoRange, 500}, {kAnswerFits, 1000, 0}},
      {"open end", kOpen, {200, kNoRange, 9000}, {kAnswerFits, 1000, 8000}},
      {"open end, no length", kOpen, {200}, {kAnswerFits, 1000, kFree}},
      {"the caller's range, as it comes", kCallers, {200, kNoRange, 9000}, {kAnswerFits, 0, 9000}},
      {"the caller's range, chunked", kCallers, {200, kNoRange, 9000, false, true}, {kAnswerFits, 0, kFree}},
      {"the caller's range resumed", kCallersResumed, {200, kNoRange, 9000}, {kAnswerFits, 1300, 700}},
      {"last bytes as they come", kLast499, {200, kNoRange, 9000}, {kAnswerFits, 0, 9000}},
      {"whole resource", kWhole, {200, kNoRange, 9000}, {kAnswerFits, 0, 9000}},
      {"whole resource of another length",
       kWhole,
       {200, kNoRange, 8000, false, false, false, 9000},
       {kAnswerFits, 0, 8000}},
      {"whole resource, empty", kWhole, {200, kNoRange, 0}, {kAnswerFits, 0, 0}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

TEST(RangeGuard, TheFirstAnswerDecidesWhoFetchesTheRest) {
  const Row rows[] = {
      {"206 and a total", kExplore, {206, {0, 999, 9000}}, {kAnswerFits, 0, 1000, kHandOverRanges}},
      {"206, one byte more", kExplore, {206, {0, 999, 1001}}, {kAnswerFits, 0, 1000, kHandOverRanges}},
      {"206, just one range", kExplore, {206, {0, 999, 1000}}, {kAnswerFits, 0, 1000, kHandOverNone}},
      {"206, less than a range", kExplore, {206, {0, 499, 500}}, {kAnswerFits, 0, 500, kHandOverNone}},
      {"206 without total", kExplore, {206, {0, 999, -1}}, {kAnswerFits, 0, 1000, kHandOverOpenEnded}},
      {"206 with a wanted end", kExploreTo5000, {206, {0, 999, 9000}}, {kAnswerFits, 0, 1000, kHandOverRanges}},
      {"206 that covers the request", kExploreCovers, {206, {1000, 1999, 9000}}, {kAnswerFits, 0, 1000, kHandOverNone}},
      {"200 alone", kExplore, {200, kNoRange, 9000}, {kAnswerFits, 0, 9000, kHandOverNone}},
      {"200 with Accept-Ranges", kExplore, {200, kNoRange, 9000, true}, {kAnswerFits, 0, 1000, kHandOverOpenEnded}},
      {"200 with Accept-Ranges, one range",
       kExplore,
       {200, kNoRange, 1000, true},
       {kAnswerFits, 0, 1000, kHandOverNone}},
      {"200 with Accept-Ranges, no length",
       kExplore,
       {200, kNoRange, -1, true},
       {kAnswerFits, 0, kFree, kHandOverNone}},
      {"200 chunked", kExplore, {200, kNoRange, -1, false, true}, {kAnswerFits, 0, kFree, kHandOverNone}},
      {"200 alone with a wanted end", kExploreTo5000, {200, kNoRange, 9000}, {kAnswerFits, 0, 5001, kHandOverNone}},
      {"200 to the caller's range", kExploreCovers, {200, kNoRange, 9000, true}, {kAnswerFits, 0, 9000, kHandOverNone}},
      {"200 encoded", kExplore, {200, kNoRange, 900, true, false, true}, {kAnswerFits, 0, kFree, kHandOverNone}},
      {"206 elsewhere", kExplore, {206, {1, 999, 9000}}, {kAnswerRefused}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

TEST(RangeGuard, PackedAnswersAreCountedByTheirUnpackedBytes) {
  const Row rows[] = {
      {"everything", kStrict, {200, kNoRange, 500, false, false, true}, {kAnswerFits, 1000, 1000}},
      {"everything again", kStrictResumed, {200, kNoRange, 500, false, false, true}, {kAnswerFits, 1300, 700}},
      {"everything as a 206",
       kExplore,
       {206, {0, 499, 500}, 500, false, false, true},
       {kAnswerFits, 0, kFree, kHandOverNone}},
      {"a piece", kStrict, {206, {1000, 1999, 9000}, -1, false, false, true}, {kAnswerAskAgain}},
      {"a piece of nobody knows what", kStrict, {206, kNoRange, -1, false, false, true}, {kAnswerAskAgain}},
      {"the caller's piece as it comes",
       kCallers,
       {206, {1000, 1999, 9000}, -1, false, false, true},
       {kAnswerFits, 0, kFree}},
      {"a piece after plain bytes",
       kCallersResumed,
       {206, {1300, 1999, 9000}, -1, false, false, true},
       {kAnswerAskAgain}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

TEST(RangeGuard, TheLastBytesStayTheLastBytes) {
  const Task strict = {kTaskRange, false, -1, 499};
  const Row rows[] = {
      {"206 of everything", kLast499, {206, {0, 8999, 9000}}, {kAnswerRefused}},
      {"strict, answered with everything", strict, {200, kNoRange, 9000}, {kAnswerFits, 8501, 499}},
      {"strict, more than there is", strict, {200, kNoRange, 300}, {kAnswerFits, 0, 300}},
      {"strict, everything but no length", strict, {200, kNoRange, -1, false, true}, {kAnswerRefused}},
      {"no position", kLast499, {206, kNoRange, 499}, {kAnswerFits, 0, 499}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

// A first answer that names no position leaves it open where the delivered bytes belong.
TEST(RangeGuard, TheLastBytesResumeWhereTheyStopped) {
  const Task resumed = {kTaskRange, true, -1, 499, -1, 100};
  const Row rows[] = {
      {"the bytes that are missing", resumed, {206, {8601, 8999, 9000}}, {kAnswerFits, 0, 399}},
      {"all of the last bytes again", resumed, {206, {8501, 8999, 9000}}, {kAnswerRefused}},
      {"everything", resumed, {200, kNoRange, 9000}, {kAnswerFits, 8601, 399}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

TEST(RangeGuard, HugePositionsDoNotOverflow) {
  const Row rows[] = {
      {"no end", {kTaskRange, false, 0, kLargest}, {200}, {kAnswerFits, 0, kMostContentBytes}},
      {"no start", {kTaskRange, true, -1, kLargest}, {206, {0, 99, 100}}, {kAnswerFits, 0, 100}},
      {"one byte", {kTaskRange, false, kLargest, kLargest}, {206, {kLargest, kLargest, -1}}, {kAnswerFits, 0, 1}},
      {"elsewhere", {kTaskRange, false, kLargest, kLargest}, {206, {0, 99, 100}}, {kAnswerRefused}},
      {"skipped", {kTaskRange, false, kLargest, -1}, {200}, {kAnswerFits, kLargest, kFree}},
      {"long", {kTaskRange, true, kLargest, -1, -1, kLargest}, {200}, {kAnswerFits, 2 * kLargest, kFree}},
  };
  for (const Row& row : rows) {
    Check(row);
  }
}

TEST(RangeGuard, AnAnswerThatBroughtNothingIsForgotten) {
  for (const Answer& answer :
       {Answer{206, {1000, 1499, 1500}}, Answer{200, kNoRange, 500}, Answer{200, kNoRange, 50, false, false, true}}) {
    RangeGuard guard = GuardOf(kCallers);
    AnswerFacts facts;
    EXPECT_EQ(kAnswerFits, JudgeAnswer(&guard, HeadOf(answer), answer.status, -1, &facts));
    RestartGuard(&guard);
    EXPECT_EQ(1000, NextPosition(guard));
    EXPECT_EQ(1000, BytesOwed(guard));
  }
}

// The first range of several was cut to its end; where nobody helps it goes on to the end of the download.
TEST(RangeGuard, TheHandOverSettlesTheEndOfTheFirstRange) {
  for (const HandOver handOver : {kHandOverNone, kHandOverRanges, kHandOverOpenEnded}) {
    RangeGuard guard = GuardOf(kExploreTo5000);
    SettleHandOver(&guard, handOver);
    RestartGuard(&guard);
    EXPECT_EQ(handOver == kHandOverNone ? 5001 : 1000, BytesOwed(guard)) << handOver;
    EXPECT_EQ(kTaskRange, guard.kind);
  }
}

TEST(RangeGuard, ContradictoryHeadersAreRefused) {
  RangeGuard guard = GuardOf(kStrict);
  AnswerHead head = HeadOf({206, {1000, 1999, 9000}});
  head.contradictory = true;
  AnswerFacts facts;
  EXPECT_EQ(kAnswerRefused, JudgeAnswer(&guard, head, 206, -1, &facts));
}

TEST(RangeGuard, ATotalIsLearntFromWhatTellsIt) {
  const struct {
    Answer answer;
    int64_t total;
    bool fromRange;
    bool confirmed;
  } rows[] = {
      {{206, {0, 999, 9000}}, 9000, true, true},         {{206, {0, 999, -1}}, -1, false, false},
      {{206, {0, 999, -1}, -1, true}, -1, false, true},  {{200, kNoRange, 9000}, 9000, false, false},
      {{200, kNoRange, 9000, true}, 9000, false, true},  {{200, kNoRange, 9000, false, true}, -1, false, false},
      {{200, {0, 999, 7000}, 9000}, 9000, false, false}, {{200, kNoRange, 900, true, false, true}, -1, false, false},
  };
  for (const auto& row : rows) {
    RangeGuard guard = GuardOf(kExplore);
    AnswerFacts facts;
    const std::string what = std::to_string(row.answer.status) + " " + std::to_string(row.total);
    EXPECT_EQ(kAnswerFits, JudgeAnswer(&guard, HeadOf(row.answer), row.answer.status, -1, &facts)) << what;
    EXPECT_EQ(row.total, facts.total) << what;
    EXPECT_EQ(row.fromRange, facts.totalFromRange) << what;
    EXPECT_EQ(row.confirmed, facts.rangesConfirmed) << what;
  }
}

TEST(RangeGuard, ATaskIsCompleteWithItsLastByteAndKeptWithTheAnswers) {
  const struct {
    int64_t delivered;
    bool complete;
    bool kept;
  } rows[] = {{0, false, false}, {499, false, false}, {500, false, true}, {999, false, true}, {1000, true, true}};
  for (const auto& row : rows) {
    RangeGuard guard = GuardOf(kStrict);
    AnswerFacts facts;
    ASSERT_EQ(kAnswerFits, JudgeAnswer(&guard, HeadOf({206, {1000, 1499, 9000}}), 206, -1, &facts));
    guard.delivered = row.delivered;
    EXPECT_EQ(row.complete, IsComplete(guard)) << row.delivered;
    EXPECT_EQ(row.kept, AnswerKept(guard)) << row.delivered;
  }
}

TEST(RangeGuard, TasksWithoutAnEndAreNeverCompleteByThemselves) {
  const struct {
    TaskKind kind;
    int64_t start;
    int64_t end;
    int64_t next;
  } rows[] = {{kTaskRange, -1, -1, 0},
              {kTaskRange, 7, -1, 7},
              {kTaskRange, 100, 50, 0},
              {kTaskWhole, 100, 200, 0},
              {kTaskRange, -5, -7, 0}};
  for (const auto& row : rows) {
    const RangeGuard guard = MakeRangeGuard(row.kind, false, row.start, row.end, -1);
    EXPECT_FALSE(IsComplete(guard)) << row.start;
    EXPECT_EQ(kFree, BytesAllowed(guard)) << row.start;
    EXPECT_EQ(row.next, NextPosition(guard)) << row.start;
  }
}

}  // namespace
