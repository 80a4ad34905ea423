// The range guard. Pure arithmetic on one thread's record; the service thread calls it from its libcurl callbacks.
#include "ZVHttpBase/RangeGuard.h"

#include <algorithm>

namespace {

int64_t MinKnown(int64_t left, int64_t right) {
  if (left < 0) {
    return right;
  }
  return right < 0 ? left : std::min(left, right);
}

// The task becomes "the body as it comes": positions are those of the body.
void TakeAsItComes(RangeGuard* guard) {
  guard->first = 0;
  guard->last = -1;
  guard->lastBytes = false;
}

bool ExploreCovers(const RangeGuard& guard) {
  return guard.wholeLast >= 0 && guard.wholeLast <= guard.last;
}

HandOver DecideAfter206(const RangeGuard& guard, int64_t total) {
  if (ExploreCovers(guard) || (total > 0 && total - 1 <= guard.last)) {
    return kHandOverNone;
  }
  return total > 0 ? kHandOverRanges : kHandOverOpenEnded;
}

// A server that sends everything may still be asked for the rest over another connection, when it says that it knows
// ranges; otherwise this connection goes on to the end.
HandOver DecideAfter200(RangeGuard* guard, const AnswerHead& head, int64_t total) {
  if (!ExploreCovers(*guard) && head.acceptsRanges && total > guard->last + 1) {
    return kHandOverOpenEnded;
  }
  guard->last = guard->wholeLast;
  return kHandOverNone;
}

Verdict JudgeEncoded(RangeGuard* guard, const AnswerHead& head, int64_t status, AnswerFacts* facts) {
  facts->handOver = guard->kind == kTaskExplore ? kHandOverNone : kHandOverUndecided;
  const bool packedWhole = status == 200 || (head.range.first == 0 && head.range.last + 1 == head.range.total);
  const bool asItComes = guard->asItComes && guard->delivered == 0;
  const bool samePiece = guard->asItComes && guard->fromStart;
  if (!packedWhole && !asItComes && !samePiece) {
    // A piece of the packed form. Without the range the server packs everything, and that can be unpacked and cut.
    guard->withoutRange = true;
    return kAnswerAskAgain;
  }
  if (guard->first < 0 && !asItComes) {
    return kAnswerRefused;  // the last bytes of a length that nobody knows
  }
  if (asItComes) {
    TakeAsItComes(guard);
  } else if (guard->kind == kTaskExplore) {
    guard->last = guard->wholeLast;
  }
  guard->withoutRange = guard->withoutRange || !guard->asItComes;
  guard->fromStart = true;
  guard->skip = NextPosition(*guard);
  guard->answerEnd = -1;
  return kAnswerFits;
}

// A 206 that names no position is believed only where it cannot be anything else: from the start, as the player's own
// range comes, with exactly the bytes that were asked for, or without an end from a server that says it knows ranges.
bool BelievedWithoutPosition(const RangeGuard& guard, const AnswerHead& head, int64_t knownTotal) {
  const int64_t next = NextPosition(guard);
  if (guard.fromStart) {
    return next == 0;
  }
  if (next == 0 || (guard.asItComes && guard.delivered == 0) || (guard.lastBytes && guard.delivered == 0)) {
    return true;
  }
  if (next < 0) {
    return head.contentLength == BytesOwed(guard);
  }
  const int64_t last = MinKnown(guard.last, knownTotal > 0 ? knownTotal - 1 : -1);
  return last < 0 ? head.acceptsRanges : head.contentLength == last + 1 - next;
}

// The last n bytes of a resource whose length is told now.
bool PlaceLastBytes(RangeGuard* guard, int64_t total) {
  guard->first = std::max<int64_t>(0, total - guard->askedEnd);
  guard->last = total - 1;
  return NextPosition(*guard) <= total;
}

bool StartsWhereAsked(RangeGuard* guard, const AnswerHead& head, int64_t knownTotal) {
  const ContentRange& range = head.range;
  if (range.first < 0) {
    return BelievedWithoutPosition(*guard, head, knownTotal);
  }
  if (guard->first < 0 && range.total > 0) {
    PlaceLastBytes(guard, range.total);
  } else if (guard->first < 0) {
    guard->first = range.first - guard->delivered;
    guard->last = range.last;
  }
  return guard->first >= 0 && range.first == NextPosition(*guard);
}

Verdict JudgePartial(RangeGuard* guard, const AnswerHead& head, int64_t knownTotal, AnswerFacts* facts) {
  const ContentRange& range = head.range;
  const bool impossible = range.total > 0 && range.last >= range.total;
  const bool changed = range.total > 0 && knownTotal > 0 && range.total != knownTotal;
  if (impossible || changed || !StartsWhereAsked(guard, head, knownTotal)) {
    return kAnswerRefused;
  }
  facts->total = range.total;
  facts->totalFromRange = range.total > 0;
  facts->rangesConfirmed = range.total > 0 || head.acceptsRanges;
  const int64_t total = range.total > 0 ? range.total : knownTotal;
  if (guard->kind == kTaskExplore) {
    facts->handOver = DecideAfter206(*guard, total);
  }
  if (total > 0 && guard->first >= 0) {
    guard->last = MinKnown(guard->last, total - 1);
  }
  guard->asItComes = false;  // this server knows ranges: from now on it is held to them
  guard->skip = 0;
  guard->answerEnd = range.last >= 0 ? range.last + 1 : -1;
  return kAnswerFits;
}

Verdict JudgeFull(RangeGuard* guard, const AnswerHead& head, int64_t knownTotal, AnswerFacts* facts) {
  const int64_t total = head.chunked ? -1 : head.contentLength;
  const bool asItComes = guard->asItComes && guard->delivered == 0;
  if (!asItComes && guard->kind != kTaskWhole && total >= 0 && knownTotal > 0 && total != knownTotal) {
    return kAnswerRefused;
  }
  const int64_t length = total >= 0 || asItComes ? total : knownTotal;
  if (asItComes) {
    TakeAsItComes(guard);
  } else if (guard->first < 0 && (length < 0 || !PlaceLastBytes(guard, length))) {
    return kAnswerRefused;
  }
  facts->total = total;
  facts->rangesConfirmed = head.acceptsRanges;
  if (guard->kind == kTaskExplore) {
    facts->handOver = asItComes ? kHandOverNone : DecideAfter200(guard, head, length);
  }
  if (length > 0) {
    guard->last = MinKnown(guard->last, length - 1);
  }
  guard->skip = NextPosition(*guard);
  guard->answerEnd = total;
  return kAnswerFits;
}

}  // namespace

RangeGuard MakeRangeGuard(TaskKind kind, bool asItComes, int64_t start, int64_t end, int64_t wholeLast) {
  RangeGuard guard = {};
  guard.kind = kind;
  guard.asItComes = asItComes;
  guard.askedStart = start;
  guard.askedEnd = end;
  guard.wholeLast = wholeLast;
  guard.lastBytes = kind != kTaskWhole && start < 0 && end >= 0;
  const bool everything = kind == kTaskWhole || (start < 0 && end < 0) || (end >= 0 && start > end);
  guard.first = everything ? 0 : (guard.lastBytes ? -1 : start);
  guard.last = everything || guard.lastBytes ? -1 : end;
  guard.answerEnd = -1;
  return guard;
}

void RestartGuard(RangeGuard* guard) {
  const bool withoutRange = guard->withoutRange;
  *guard = MakeRangeGuard(guard->kind, guard->asItComes, guard->askedStart, guard->askedEnd, guard->wholeLast);
  guard->withoutRange = withoutRange;
}

void SettleHandOver(RangeGuard* guard, HandOver handOver) {
  guard->kind = kTaskRange;
  if (handOver == kHandOverNone) {
    guard->askedEnd = guard->wholeLast;
  } else {
    guard->asItComes = false;
  }
}

int64_t NextPosition(const RangeGuard& guard) {
  return guard.first < 0 ? -1 : guard.first + guard.delivered;
}

int64_t BytesOwed(const RangeGuard& guard) {
  if (guard.wholeBody) {
    return INT64_MAX;
  }
  if (guard.first < 0) {
    return std::max<int64_t>(guard.askedEnd - guard.delivered, 0);
  }
  return guard.last < 0 ? INT64_MAX : std::max<int64_t>(guard.last + 1 - NextPosition(guard), 0);
}

int64_t BytesAllowed(const RangeGuard& guard) {
  const bool promised = guard.answerEnd >= 0 && guard.first >= 0 && !guard.wholeBody;
  const int64_t left = promised ? std::max<int64_t>(guard.answerEnd - NextPosition(guard), 0) : INT64_MAX;
  return std::min(BytesOwed(guard), left);
}

bool IsComplete(const RangeGuard& guard) {
  return BytesOwed(guard) == 0;
}

bool AnswerKept(const RangeGuard& guard) {
  const int64_t next = NextPosition(guard);
  return guard.answerEnd < 0 || next < 0 || next >= guard.answerEnd;
}

Verdict JudgeAnswer(RangeGuard* guard, const AnswerHead& head, int64_t status, int64_t knownTotal, AnswerFacts* facts) {
  *facts = AnswerFacts{-1, false, false, kHandOverUndecided};
  if (head.contradictory) {
    return kAnswerRefused;
  }
  if (head.encoded) {
    return JudgeEncoded(guard, head, status, facts);
  }
  return status == 206 ? JudgePartial(guard, head, knownTotal, facts) : JudgeFull(guard, head, knownTotal, facts);
}
