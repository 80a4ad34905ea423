// Parsers of what a server sends: header lines and the range texts in them. They work on a pointer and a length, accept any
// bytes, never allocate and never read outside of the line.
#pragma once

#include <cstdint>
#include <string_view>

// Totals and positions at or above this are nonsense.
constexpr int64_t kMostContentBytes = int64_t{1} << 62;

struct HeaderField {
  std::string_view name;   // empty: not a "name: value" line (a status line, a folded line, rubbish)
  std::string_view value;  // without blanks around it
};

// What a Content-Range value says; -1 where it says nothing usable.
struct ContentRange {
  int64_t first;
  int64_t last;
  int64_t total;
};

bool EqualIgnoringCase(std::string_view left, std::string_view right);
bool StartsWithIgnoringCase(std::string_view text, std::string_view start);

bool IsStatusLine(std::string_view line);
// The line that ends a header: CR LF, or a bare LF.
bool IsEndOfHeader(std::string_view line);
HeaderField SplitHeaderLine(std::string_view line);

// A number of digits alone; -1 for anything else and for kMostContentBytes or more.
int64_t ParseLength(std::string_view digits);
ContentRange ParseContentRange(std::string_view value);
// The total of a whole Content-Range line, -1 when the line is another one or gives none.
int64_t ZVIner_ParseContentRangeLength(std::string_view line);

// Where the value of key lies when key occurs in the line, in any case; data() is null when it does not.
std::string_view FindValueOfKey(std::string_view line, std::string_view key);
