// Byte ranges as a user writes them, and what they mean for a resource of a given length.
#ifndef TOOLS_RANGE_TEXT_H
#define TOOLS_RANGE_TEXT_H

#include <cstdint>
#include <string_view>

// Reads "FIRST-LAST" (first, last), "FIRST-" (first, -1) or "-COUNT", the last COUNT bytes (-1, count). Only decimal
// digits and the one dash are accepted; the numbers fit in 62 bits, FIRST is not behind LAST, COUNT is not 0. False
// for everything else, the results are then untouched.
bool ParseRangeText(std::string_view text, int64_t* first, int64_t* last);

// A range in the form that ParseRangeText gives; (-1, -1) is the whole resource.
struct ByteRange {
  int64_t first = -1;
  int64_t last = -1;

  bool IsWhole() const { return first < 0 && last < 0; }
};

// How many bytes of a resource of total bytes the range selects; total is 0 or less when it is unknown, then it is how
// many at most. -1: no telling.
int64_t SelectedBytes(const ByteRange& range, int64_t total);

// Whether an answer without a Content-Range, the whole resource that is, happens to hold just the bytes of the range.
bool IsWholeResource(const ByteRange& range, int64_t total);

#endif
