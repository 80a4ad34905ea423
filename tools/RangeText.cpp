#include "RangeText.h"

#include <algorithm>

namespace {

// Sums and differences of two positions below it cannot overflow.
constexpr int64_t kPositionLimit = int64_t{1} << 62;

bool ParseDigits(std::string_view text, int64_t* value) {
  if (text.empty()) {
    return false;
  }
  int64_t sum = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') {
      return false;
    }
    const int64_t digit = c - '0';
    if (sum > (kPositionLimit - 1 - digit) / 10) {
      return false;
    }
    sum = sum * 10 + digit;
  }
  *value = sum;
  return true;
}

}  // namespace

bool ParseRangeText(std::string_view text, int64_t* first, int64_t* last) {
  const size_t dash = text.find('-');
  if (dash == std::string_view::npos) {
    return false;
  }
  const std::string_view left = text.substr(0, dash);
  const std::string_view right = text.substr(dash + 1);
  int64_t begin = -1;
  int64_t end = -1;
  if (!left.empty() && !ParseDigits(left, &begin)) {
    return false;
  }
  if (!right.empty() && !ParseDigits(right, &end)) {
    return false;
  }
  const bool isSuffix = begin < 0;
  if (isSuffix ? end <= 0 : (end >= 0 && end < begin)) {
    return false;
  }
  *first = begin;
  *last = end;
  return true;
}

int64_t SelectedBytes(const ByteRange& range, int64_t total) {
  const bool isKnown = total > 0;
  if (range.IsWhole()) {
    return isKnown ? total : -1;
  }
  if (range.first < 0) {
    return isKnown ? std::min(range.last, total) : range.last;
  }
  if (range.last < 0) {
    return isKnown ? std::max<int64_t>(total - range.first, 0) : -1;
  }
  const int64_t last = isKnown ? std::min(range.last, total - 1) : range.last;
  return std::max<int64_t>(last - range.first + 1, 0);
}

bool IsWholeResource(const ByteRange& range, int64_t total) {
  if (range.IsWhole() || (range.first == 0 && range.last < 0)) {
    return true;
  }
  return total > 0 && SelectedBytes(range, total) == total;
}
