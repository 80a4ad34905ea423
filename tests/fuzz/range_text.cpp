// Ranges as a user may type them.
#include <cstdint>
#include <string>
#include <string_view>

#include "RangeText.h"
#include "Require.h"

namespace {

// The shortest text of a range; numbers may also be typed with zeros before them.
std::string TextOf(int64_t first, int64_t last) {
  return (first < 0 ? "" : std::to_string(first)) + "-" + (last < 0 ? "" : std::to_string(last));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  constexpr int64_t kUntouched = -77;
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  int64_t first = kUntouched;
  int64_t last = kUntouched;
  if (!ParseRangeText(text, &first, &last)) {
    Require(first == kUntouched && last == kUntouched, "a refused text leaves the results alone");
    return 0;
  }
  Require(first >= -1 && last >= -1 && (first >= 0 || last > 0), "one side at least is given");
  Require(first < 0 || last < 0 || first <= last, "the sides are in order");
  int64_t firstAgain = kUntouched;
  int64_t lastAgain = kUntouched;
  Require(ParseRangeText(TextOf(first, last), &firstAgain, &lastAgain), "its own text is accepted");
  Require(first == firstAgain && last == lastAgain, "its own text means the same");
  for (const int64_t total : {int64_t{-1}, int64_t{0}, int64_t{1}, int64_t{1000}, INT64_MAX}) {
    const int64_t selected = SelectedBytes({first, last}, total);
    Require(selected >= -1 && (total <= 0 || selected <= total), "no more is selected than there is");
  }
  return 0;
}
