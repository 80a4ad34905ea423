// What one step of a random walk does: drawn from the seed of the step alone, so that any step can be repeated.
#ifndef TESTS_FLOW_WALK_PLAN_H
#define TESTS_FLOW_WALK_PLAN_H

#include <cstdint>
#include <random>
#include <string>

namespace flow::walk {

// Draws that are the same with every compiler.
class Dice {
 public:
  explicit Dice(uint64_t seed) : engine_(seed) {}
  // [0, n)
  uint64_t Below(uint64_t n) { return engine_() % n; }
  // [first, last]
  int64_t Between(int64_t first, int64_t last) {
    return first + static_cast<int64_t>(Below(static_cast<uint64_t>(last - first + 1)));
  }
  bool OneIn(uint64_t n) { return Below(n) == 0; }
  // Up to most, as often between 1 and 2 as between 1000 and 2000.
  uint64_t Spread(uint64_t most);

 private:
  std::mt19937_64 engine_;
};

// How far the origin goes. kRecoverable: only flaws, and only so many, that the download must get over them.
enum class Mood { kClean, kRecoverable, kAnything };

// kCloseElsewhere: another thread closes while this one reads.
enum class Ending { kAtTheEnd, kClose, kCloseElsewhere, kRelease };

struct Plan {
  uint64_t seed = 0;
  uint32_t pattern = 0;
  uint64_t length = 0;  // of the resource
  int32_t connections = 1;
  int32_t segLen = 0;
  int64_t start = -1;  // of SetRange
  int64_t end = -1;
  bool whole = false;
  Mood mood = Mood::kClean;
  Ending ending = Ending::kAtTheEnd;
  uint64_t endAfterBytes = 0;  // whichever comes first
  int64_t endAfterUs = 0;
  int flawedRequests = 0;
  int flawPercent = 0;
  int32_t retries = 0;
  uint32_t mostReadBytes = 0;
  uint64_t pauseOneIn = 0;  // reads; 0: the reader does not pause
  bool asksAboutRetries = false;
  bool isMeddledWith = false;  // setters are called from another thread meanwhile

  // A range that restricts the download, so that a server which ignores it is noticed.
  bool HasOwnRange() const { return !whole && (start >= 0 || end >= 0) && !(end >= 0 && start > end); }
  std::string Describe() const;
};

Plan MakePlan(uint64_t seed);

// The bytes of the resource that the plan asks for; count 0 when there are none.
struct Piece {
  uint64_t first;
  uint64_t count;
};
Piece AskedPiece(const Plan& plan);

}  // namespace flow::walk

#endif
