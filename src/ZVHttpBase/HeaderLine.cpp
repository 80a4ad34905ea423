// Parsers of header lines. Pure functions, run on the service threads inside libcurl's header callback.
#include "ZVHttpBase/HeaderLine.h"

#include <algorithm>

namespace {

char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameIgnoringCase(char left, char right) {
  return LowerCase(left) == LowerCase(right);
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

std::string_view WithoutLineEnd(std::string_view line) {
  return line.substr(0, line.find_first_of("\r\n"));
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && IsBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

// Takes the digits at the start of *text away and gives their value, -1 when there are none or too many.
int64_t TakeNumber(std::string_view* text) {
  size_t digits = 0;
  while (digits < text->size() && IsDigit((*text)[digits])) {
    ++digits;
  }
  const int64_t value = ParseLength(text->substr(0, digits));
  text->remove_prefix(digits);
  return value;
}

bool TakeCharacter(std::string_view* text, char c) {
  if (text->empty() || text->front() != c) {
    return false;
  }
  text->remove_prefix(1);
  return true;
}

}  // namespace

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), SameIgnoringCase);
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && EqualIgnoringCase(text.substr(0, start.size()), start);
}

bool IsStatusLine(std::string_view line) {
  return line.substr(0, 5) == "HTTP/";
}

bool IsEndOfHeader(std::string_view line) {
  return line == "\r\n" || line == "\n";
}

HeaderField SplitHeaderLine(std::string_view line) {
  const std::string_view text = WithoutLineEnd(line);
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || IsBlank(text.front()) || IsStatusLine(text)) {
    return {};
  }
  return {Trimmed(text.substr(0, colon)), Trimmed(text.substr(colon + 1))};
}

int64_t ParseLength(std::string_view digits) {
  int64_t value = digits.empty() ? -1 : 0;
  for (const char c : digits) {
    if (!IsDigit(c)) {
      return -1;
    }
    const int64_t digit = c - '0';
    if (value > (kMostContentBytes - 1 - digit) / 10) {
      return -1;
    }
    value = value * 10 + digit;
  }
  return value;
}

ContentRange ParseContentRange(std::string_view value) {
  ContentRange range = {-1, -1, -1};
  const size_t slash = value.rfind('/');
  if (slash != std::string_view::npos) {
    const int64_t total = ParseLength(Trimmed(value.substr(slash + 1)));
    range.total = total > 0 ? total : -1;
  }
  std::string_view text = value.substr(0, slash);
  if (!StartsWithIgnoringCase(text, "bytes")) {
    return {-1, -1, -1};
  }
  text.remove_prefix(5);
  while (!text.empty() && (IsBlank(text.front()) || text.front() == '=' || text.front() == ':')) {
    text.remove_prefix(1);
  }
  const int64_t first = TakeNumber(&text);
  const bool dash = TakeCharacter(&text, '-');
  const int64_t last = TakeNumber(&text);
  if (first >= 0 && dash && last >= first && Trimmed(text).empty()) {
    range.first = first;
    range.last = last;
  }
  return range;
}

int64_t ZVIner_ParseContentRangeLength(std::string_view line) {
  const HeaderField field = SplitHeaderLine(line);
  return EqualIgnoringCase(field.name, "Content-Range") ? ParseContentRange(field.value).total : -1;
}

std::string_view FindValueOfKey(std::string_view line, std::string_view key) {
  const size_t end = line.find_first_of("\r\n");
  if (end == std::string_view::npos) {
    return {};
  }
  const std::string_view text = line.substr(0, end);
  const auto found = std::search(text.begin(), text.end(), key.begin(), key.end(), SameIgnoringCase);
  if (found == text.end()) {
    return {};
  }
  std::string_view value = text.substr(static_cast<size_t>(found - text.begin()) + key.size());
  if (!value.empty() && value.front() == ':') {
    value.remove_prefix(1);
  }
  while (!value.empty() && IsBlank(value.front())) {
    value.remove_prefix(1);
  }
  return value;
}
