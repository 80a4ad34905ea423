#include "WalkPlan.h"

#include <algorithm>
#include <sstream>

namespace flow::walk {
namespace {

constexpr uint64_t kMostLength = 6000000;  // more than the ring buffer holds
constexpr int32_t kLeastSegLen = 204800;
constexpr int32_t kMostSegLen = 716800;
constexpr int32_t kManyRetries = 60;
constexpr uint64_t kMostReadBytes = 1048576;
constexpr uint64_t kFewBytes = 5000;

uint64_t DrawLength(Dice* dice) {
  switch (dice->Below(8)) {
    case 0:
      return dice->Below(3);
    case 1:
      return dice->Below(kFewBytes);
    case 2:  // ends with a range, or next to it
      return static_cast<uint64_t>(kLeastSegLen * dice->Between(1, 8) + dice->Between(-1, 1));
    case 3:
      return dice->Below(kMostLength);
    default:
      return dice->Below(kMostLength / 4);
  }
}

void DrawRange(Dice* dice, Plan* plan) {
  const int64_t length = static_cast<int64_t>(plan->length);
  const int64_t somewhere = static_cast<int64_t>(dice->Below(plan->length + 1));
  switch (dice->Below(10)) {
    case 0:
    case 1:
      plan->start = somewhere;
      plan->end = somewhere + static_cast<int64_t>(dice->Spread(plan->length + kFewBytes));
      break;
    case 2:
      plan->start = somewhere;
      break;
    case 3:
      plan->end = static_cast<int64_t>(dice->Spread(plan->length + kFewBytes));
      break;
    case 4:
      plan->start = somewhere + 1;
      plan->end = dice->Between(0, somewhere);
      break;
    case 5:
      plan->start = dice->OneIn(8) ? length + dice->Between(0, 9) : 0;
      plan->end = dice->OneIn(2) ? length - 1 : -1;
      break;
    default:
      break;
  }
}

void DrawEnding(Dice* dice, Plan* plan) {
  constexpr Ending kEndings[] = {Ending::kClose, Ending::kCloseElsewhere, Ending::kRelease};
  plan->endAfterBytes = plan->length + 1;
  plan->endAfterUs = static_cast<int64_t>(dice->Spread(100000));
  if (dice->OneIn(2)) {
    return;
  }
  plan->ending = kEndings[dice->Below(3)];
  if (dice->OneIn(2)) {
    plan->endAfterBytes = dice->Below(plan->length + 1);
  }
}

}  // namespace

uint64_t Dice::Spread(uint64_t most) {
  if (most <= 1) {
    return most;
  }
  int bits = 0;
  while (most >> bits > 0) {
    ++bits;
  }
  return std::min(most, Below((uint64_t{2} << Below(static_cast<uint64_t>(bits))) - 1) + 1);
}

Plan MakePlan(uint64_t seed) {
  Dice dice(seed);
  Plan plan;
  plan.seed = seed;
  plan.pattern = static_cast<uint32_t>(dice.Below(UINT32_MAX));
  plan.length = DrawLength(&dice);
  plan.connections = static_cast<int32_t>(dice.Between(1, 5));
  plan.segLen = dice.OneIn(2) ? kLeastSegLen : static_cast<int32_t>(dice.Between(kLeastSegLen, kMostSegLen));
  DrawRange(&dice, &plan);
  plan.whole = dice.OneIn(8);
  plan.mood = dice.OneIn(8) ? Mood::kClean : (dice.OneIn(3) ? Mood::kRecoverable : Mood::kAnything);
  DrawEnding(&dice, &plan);
  plan.flawedRequests = static_cast<int>(dice.OneIn(2) ? dice.Between(1, 4) : dice.Between(5, 30));
  plan.flawPercent = static_cast<int>(dice.Between(10, 100));
  plan.retries = plan.mood == Mood::kRecoverable ? kManyRetries : static_cast<int32_t>(dice.Below(6));
  plan.mostReadBytes = static_cast<uint32_t>(dice.Spread(kMostReadBytes));
  if (plan.length > kFewBytes * 4) {
    plan.mostReadBytes = std::max<uint32_t>(plan.mostReadBytes, 4096);
  }
  plan.pauseOneIn = dice.OneIn(3) ? static_cast<uint64_t>(dice.Between(5, 200)) : 0;
  plan.asksAboutRetries = plan.mood == Mood::kAnything && dice.OneIn(4);
  plan.isMeddledWith = dice.OneIn(3);
  return plan;
}

std::string Plan::Describe() const {
  constexpr const char* kMoods[] = {"clean", "recoverable", "anything"};
  constexpr const char* kEndings[] = {"at the end", "close", "close elsewhere", "release"};
  std::ostringstream text;
  text << length << " bytes, " << connections << " connections of " << segLen << ", range " << start << " to " << end
       << (whole ? ", whole" : "") << ", " << kMoods[static_cast<int>(mood)]
       << ", ends: " << kEndings[static_cast<int>(ending)] << " after " << endAfterBytes << " bytes or " << endAfterUs
       << " us, " << flawPercent << " % of " << flawedRequests << " requests flawed, " << retries
       << " retries, reads up to " << mostReadBytes << ", pause one in " << pauseOneIn
       << (asksAboutRetries ? ", asks" : "") << (isMeddledWith ? ", meddled with" : "");
  return text.str();
}

Piece AskedPiece(const Plan& plan) {
  if (!plan.HasOwnRange()) {
    return {0, plan.length};
  }
  if (plan.start < 0) {
    const uint64_t count = std::min(static_cast<uint64_t>(plan.end), plan.length);
    return {plan.length - count, count};
  }
  const uint64_t first = static_cast<uint64_t>(plan.start);
  if (first >= plan.length) {
    return {first, 0};
  }
  const uint64_t last = plan.end < 0 ? plan.length - 1 : std::min(static_cast<uint64_t>(plan.end), plan.length - 1);
  return {first, last + 1 - first};
}

}  // namespace flow::walk
