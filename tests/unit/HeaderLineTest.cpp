// What servers write into header lines, and what the parsers make of it.
#include "ZVHttpBase/HeaderLine.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using std::string_view_literals::operator""sv;

TEST(HeaderLine, SplitsNamesAndValuesWhateverEndsTheLine) {
  const struct {
    std::string_view line;
    std::string_view name;
    std::string_view value;
  } rows[] = {
      {"Content-Length: 5\r\n", "Content-Length", "5"},
      {"Content-Length: 5\n", "Content-Length", "5"},
      {"content-length:5", "content-length", "5"},
      {"X-Empty:\r\n", "X-Empty", ""},
      {"X-Blank:  \t \r\n", "X-Blank", ""},
      {"X-Padded \t:\t a b \r\n", "X-Padded", "a b"},
      {"X-Colons: a:b:c\r\n", "X-Colons", "a:b:c"},
      {"X-Cut: a\rb\r\n", "X-Cut", "a"},
      {"X-Zero: a\0b\r\n"sv, "X-Zero", "a\0b"sv},
      {"HTTP/1.1 200 a: b\r\n", "", ""},
      {" folded: value\r\n", "", ""},
      {"\tfolded: value\r\n", "", ""},
      {": no name\r\n", "", ""},
      {"no colon\r\n", "", ""},
      {"\r\n", "", ""},
      {"\n", "", ""},
      {"", "", ""},
  };
  for (const auto& row : rows) {
    const HeaderField field = SplitHeaderLine(row.line);
    EXPECT_EQ(row.name, field.name) << row.line;
    EXPECT_EQ(row.value, field.value) << row.line;
  }
}

TEST(HeaderLine, KnowsStatusLinesAndTheEndOfAHeader) {
  const struct {
    std::string_view line;
    bool isStatus;
    bool isEnd;
  } rows[] = {
      {"HTTP/1.1 200 OK\r\n", true, false},
      {"HTTP/2 200 \r\n", true, false},
      {"HTTP/", true, false},
      {"http/1.1 200\r\n", false, false},
      {"XHTTP/1.1\r\n", false, false},
      {"\r\n", false, true},
      {"\n", false, true},
      {"", false, false},
      {"\r", false, false},
      {" \r\n", false, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.isStatus, IsStatusLine(row.line)) << row.line;
    EXPECT_EQ(row.isEnd, IsEndOfHeader(row.line)) << row.line;
  }
}

TEST(HeaderLine, LengthsAreDigitsAloneAndBelowTheLimit) {
  const struct {
    std::string_view text;
    int64_t value;
  } rows[] = {
      {"0", 0},
      {"00012", 12},
      {"4611686018427387903", kMostContentBytes - 1},
      {"4611686018427387904", -1},
      {"9223372036854775807", -1},
      {"9223372036854775808", -1},
      {"18446744073709551617", -1},
      {"99999999999999999999999999999999999999", -1},
      {"", -1},
      {"-1", -1},
      {"+1", -1},
      {" 1", -1},
      {"1 ", -1},
      {"1, 1", -1},
      {"0x10", -1},
      {"1.5", -1},
      {"1e3", -1},
      {"5\0"sv, -1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.value, ParseLength(row.text)) << row.text;
  }
}

TEST(HeaderLine, ContentRangesGiveWhatIsUsable) {
  const struct {
    std::string_view value;
    ContentRange range;
  } rows[] = {
      {"bytes 0-511999/6000000", {0, 511999, 6000000}},
      {"BYTES 0-0/1", {0, 0, 1}},
      {"bytes=5-9/10", {5, 9, 10}},
      {"bytes: 5-9/10", {5, 9, 10}},
      {"bytes\t 5-9 / 10 ", {5, 9, 10}},
      {"bytes 0-511999/*", {0, 511999, -1}},
      {"bytes 0-9/0", {0, 9, -1}},
      {"bytes 0-9/-10", {0, 9, -1}},
      {"bytes 0-9/10x", {0, 9, -1}},
      {"bytes 0-9/4611686018427387904", {0, 9, -1}},
      {"bytes 0-9/9999999999999999999", {0, 9, -1}},
      {"bytes 0-9", {0, 9, -1}},
      {"bytes */1234", {-1, -1, 1234}},
      {"bytes 9-5/10", {-1, -1, 10}},
      {"bytes 5-/10", {-1, -1, 10}},
      {"bytes -5/10", {-1, -1, 10}},
      {"bytes 5-9,12-14/20", {-1, -1, 20}},
      {"bytes 4611686018427387904-4611686018427387905/7", {-1, -1, 7}},
      {"bytes 0-9/5/10", {-1, -1, 10}},
      {"bytes", {-1, -1, -1}},
      {"bytes ", {-1, -1, -1}},
      {"/", {-1, -1, -1}},
      {"", {-1, -1, -1}},
      {"items 0-9/10", {-1, -1, -1}},
  };
  for (const auto& row : rows) {
    const ContentRange range = ParseContentRange(row.value);
    EXPECT_EQ(row.range.first, range.first) << row.value;
    EXPECT_EQ(row.range.last, range.last) << row.value;
    EXPECT_EQ(row.range.total, range.total) << row.value;
  }
}

TEST(HeaderLine, TheTotalComesFromAContentRangeLineAlone) {
  const struct {
    std::string_view line;
    int64_t total;
  } rows[] = {
      {"Content-Range: bytes 0-9/100\r\n", 100},
      {"content-range:bytes 0-9/100\n", 100},
      {"CONTENT-RANGE: bytes 0-9/100", 100},
      {"Content-Range: bytes 0-9/*\r\n", -1},
      {"X-Content-Range: bytes 0-9/100\r\n", -1},
      {"X-Note: Content-Range: bytes 0-9/100\r\n", -1},
      {" Content-Range: bytes 0-9/100\r\n", -1},
      {"Content-Range\r\n", -1},
      {"", -1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.total, ZVIner_ParseContentRangeLength(row.line)) << row.line;
  }
}

TEST(HeaderLine, KeysAreFoundInAnyCaseAndLoseNothingOfTheirValue) {
  constexpr std::string_view kNothing;
  const struct {
    std::string_view line;
    std::string_view key;
    std::string_view value;  // no data: not found
  } rows[] = {
      {"X-Token: abc\r\n", "X-Token", "abc"},
      {"x-token: abc\r\n", "X-TOKEN", "abc"},
      {"X-Token:abc\r\n", "X-Token", "abc"},
      {"X-Token: abc\n", "X-Token", "abc"},
      {"X-Token:\r\n", "X-Token", ""},
      {"X-Token: \r\n", "X-Token", ""},
      {"X-Token\r\n", "X-Token", ""},
      {"X-Token:   abc  \r\n", "X-Token", "abc  "},
      {"X-Token: a: b\r\n", "X-Token", "a: b"},
      {"My-X-Token: abc\r\n", "X-Token", "abc"},
      {"X-Token: abc\r\n", "X-Other", kNothing},
      {"X-Tok", "X-Token", kNothing},
      {"X-Token: abc", "X-Token", kNothing},  // not a line
      {"\r\nX-Token: abc", "X-Token", kNothing},
      {"", "X-Token", kNothing},
  };
  for (const auto& row : rows) {
    const std::string_view value = FindValueOfKey(row.line, row.key);
    EXPECT_EQ(row.value, value) << row.line;
    EXPECT_EQ(row.value.data() == nullptr, value.data() == nullptr) << row.line;
  }
}

}  // namespace
