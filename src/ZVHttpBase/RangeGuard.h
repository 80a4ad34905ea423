// The range guard: which bytes a task owes, and which bytes of an answer are those.
//
// A task is a range of the resource that one connection fetches, in as many requests as it takes. The guard knows the
// position of the byte that must come next and how many bytes may still come. What an answer brings before that position
// is skipped, what lies behind the end is cut, an answer that starts elsewhere is refused, and an answer that ends early
// leaves the task incomplete, whatever libcurl thinks of it.
//
// All of it belongs to the service thread that works on the task.
#pragma once

#include <cstdint>

#include "ZVHttpBase/HeaderLine.h"

enum TaskKind : int32_t {
  kTaskRange,    // one range, delivered to its end
  kTaskExplore,  // the first range of several: its answer decides who fetches the rest; then it is a kTaskRange
  kTaskWhole,    // everything, in one piece; a new attempt starts at the beginning
};

// Who fetches what lies behind the first range, decided by its answer.
enum HandOver : int32_t {
  kHandOverUndecided = -1,
  kHandOverNone = 0,       // this connection fetches everything
  kHandOverRanges = 1,     // other connections fetch ranges up to a known last byte
  kHandOverOpenEnded = 2,  // the rest comes in one range without an end
};

// What the headers of one answer said.
struct AnswerHead {
  int64_t contentLength;  // -1: not given, or not usable
  ContentRange range;
  bool hasContentRange;
  bool emptyResource;  // a Content-Range with a total of 0
  bool acceptsRanges;
  bool encoded;  // Content-Encoding other than identity: positions and lengths are those of the packed form
  bool chunked;
  bool located;        // a Location header: libcurl will follow a 3xx
  bool ended;          // the header's last line has been seen; what follows are trailers
  bool contradictory;  // two different lengths or ranges in one header
  int64_t headerBytes;
};

struct RangeGuard {
  // What the task was given.
  TaskKind kind;
  bool asItComes;      // the player's own range: what a server that ignores it sends is delivered uncut
  int64_t askedStart;  // -1: not set
  int64_t askedEnd;    // -1: to the end; the number of bytes when only it is set ("the last n bytes")
  int64_t wholeLast;   // kTaskExplore: the last byte of the whole download, -1: to the end

  // What became of it. As long as nothing was delivered every attempt starts from what was given (RestartGuard).
  bool lastBytes;     // the task is "the last n bytes"
  bool withoutRange;  // ask for everything: the ranges of a packed answer cannot be used
  bool fromStart;     // every attempt begins where the first began, and what was delivered is skipped
  bool wholeBody;     // the body of an error: delivered as it is
  int64_t first;      // position of the task's first byte; -1: not known before the answer (the last n bytes)
  int64_t last;       // position of its last byte; -1: as far as the answer goes
  int64_t delivered;  // bytes delivered by all attempts so far
  int64_t skip;       // bytes of the current answer still to drop
  int64_t answerEnd;  // position behind the last byte that the current answer promised; -1: it promised nothing
};

// What to do with an answer.
enum Verdict : int32_t {
  kAnswerFits,      // deliver what the guard lets through
  kAnswerRefused,   // not the bytes that were asked for: a failed attempt
  kAnswerAskAgain,  // usable only without a range: ask again at once
};

// What the guard learnt from an answer that fits.
struct AnswerFacts {
  int64_t total;  // length of the whole resource, -1: not told
  bool totalFromRange;
  bool rangesConfirmed;
  HandOver handOver;
};

RangeGuard MakeRangeGuard(TaskKind kind, bool asItComes, int64_t start, int64_t end, int64_t wholeLast);

// Forgets what an answer that delivered nothing has said.
void RestartGuard(RangeGuard* guard);
// The hand-over is decided: from now on the task is an ordinary range, to the end of the download if nobody helps.
void SettleHandOver(RangeGuard* guard, HandOver handOver);

// Position of the byte that must come next, -1 when it is not known before the answer.
int64_t NextPosition(const RangeGuard& guard);
// Bytes that the task still owes; INT64_MAX when its end is not known.
int64_t BytesOwed(const RangeGuard& guard);
// Bytes that the current answer may still deliver: no more than are owed and than it promised.
int64_t BytesAllowed(const RangeGuard& guard);
// Every byte that the task owes is there. Never true while its end is not known.
bool IsComplete(const RangeGuard& guard);
// The answer kept what it promised, or promised nothing.
bool AnswerKept(const RangeGuard& guard);

// Judges the headers of a 200 or 206. knownTotal is the length learnt earlier in the download, or less than 1.
Verdict JudgeAnswer(RangeGuard* guard, const AnswerHead& head, int64_t status, int64_t knownTotal, AnswerFacts* facts);
