// The small texts of zvhttp: ranges that users type, names that URLs suggest, what the progress line says.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "Output.h"
#include "Progress.h"
#include "RangeText.h"
#include "Text.h"

namespace {

constexpr int64_t kUntouched = -77;
constexpr int64_t kLargest = (int64_t{1} << 62) - 1;

TEST(RangeText, AcceptsThreeForms) {
  const struct {
    const char* text;
    int64_t first;
    int64_t last;
  } rows[] = {{"0-0", 0, 0},
              {"0-", 0, -1},
              {"-1", -1, 1},
              {"7-12", 7, 12},
              {"5-5", 5, 5},
              {"007-08", 7, 8},
              {"4611686018427387903-", kLargest, -1},
              {"0-4611686018427387903", 0, kLargest},
              {"-4611686018427387903", -1, kLargest}};
  for (const auto& row : rows) {
    int64_t first = kUntouched;
    int64_t last = kUntouched;
    EXPECT_TRUE(ParseRangeText(row.text, &first, &last)) << row.text;
    EXPECT_EQ(first, row.first) << row.text;
    EXPECT_EQ(last, row.last) << row.text;
  }
}

TEST(RangeText, RefusesEverythingElse) {
  const std::string_view rows[] = {"",
                                   "-",
                                   "--",
                                   "5",
                                   "6-5",
                                   "-0",
                                   "--5",
                                   "1--2",
                                   "1-2-3",
                                   " 1-2",
                                   "1-2 ",
                                   "1 -2",
                                   "+1-2",
                                   "a-b",
                                   "0x1-2",
                                   "1-,",
                                   "1-2,4-5",
                                   "bytes=1-2",
                                   "1.0-2",
                                   "4611686018427387904-",
                                   "0-9223372036854775808",
                                   "0-99999999999999999999999999",
                                   "-4611686018427387904",
                                   std::string_view("1\0-2", 4),
                                   "\xd9\xa1-2"};
  for (const std::string_view row : rows) {
    int64_t first = kUntouched;
    int64_t last = kUntouched;
    EXPECT_FALSE(ParseRangeText(row, &first, &last)) << row;
    EXPECT_EQ(first, kUntouched) << row;
    EXPECT_EQ(last, kUntouched) << row;
  }
}

TEST(RangeText, SelectsBytesOfAResource) {
  const struct {
    ByteRange range;
    int64_t total;
    int64_t selected;
    bool isWhole;
  } rows[] = {{{-1, -1}, 100, 100, true}, {{-1, -1}, 0, -1, true},     {{-1, -1}, -1, -1, true},
              {{0, -1}, 100, 100, true},  {{0, -1}, 0, -1, true},      {{40, -1}, 100, 60, false},
              {{100, -1}, 100, 0, false}, {{40, -1}, 0, -1, false},    {{0, 99}, 100, 100, true},
              {{0, 500}, 100, 100, true}, {{0, 98}, 100, 99, false},   {{0, 99}, 0, 100, false},
              {{-1, 30}, 100, 30, false}, {{-1, 100}, 100, 100, true}, {{-1, 300}, 100, 100, true},
              {{-1, 30}, 0, 30, false},   {{200, 300}, 100, 0, false}, {{0, kLargest}, 0, kLargest + 1, false}};
  for (const auto& row : rows) {
    const std::string name =
        std::to_string(row.range.first) + " to " + std::to_string(row.range.last) + " of " + std::to_string(row.total);
    EXPECT_EQ(SelectedBytes(row.range, row.total), row.selected) << name;
    EXPECT_EQ(IsWholeResource(row.range, row.total), row.isWhole) << name;
  }
}

TEST(FileNameOfUrl, IsTheLastPathSegment) {
  const struct {
    const char* url;
    const char* name;
  } rows[] = {{"http://host/film.mp4", "film.mp4"},
              {"https://host:8443/a/b/c.ts", "c.ts"},
              {"http://host/a.mp4?x=/y/z.mp4", "a.mp4"},
              {"http://host/a.mp4#t=/5", "a.mp4"},
              {"http://host/a%20b", "a%20b"},
              {"host/a", "a"},
              {"http://host", ""},
              {"http://host/", ""},
              {"http://host/a/", ""},
              {"http://host?a/b", ""},
              {"http://host/..", ""},
              {"http://host/a/.", ""},
              {"http://host/a\nb", ""},
              {"http://host/..\\a", ""},
              {"", ""},
              {"nothing", ""}};
  for (const auto& row : rows) {
    EXPECT_EQ(FileNameOfUrl(row.url), row.name) << row.url;
  }
}

TEST(ProgressLine, SaysWhatIsKnown) {
  EXPECT_EQ(FormatProgress({1300000, 3100000, 900000, 5, {}, {}}),
            "41.9 %  1.3 MB of 3.1 MB  900.0 kB/s  0:02 left  up to 5 connections");
  EXPECT_EQ(FormatProgress({999, -1, 0, 1, {}, {}}), "999 B  0 B/s  1 connection");
  EXPECT_EQ(FormatProgress({0, 5000, 0, 2, {}, {}}), "0.0 %  0 B of 5.0 kB  0 B/s  -:-- left  up to 2 connections");
  // Not 100 before the last byte.
  EXPECT_EQ(FormatProgress({999999, 1000000, 1e6, 1, {}, {}}).substr(0, 6), "99.9 %");
}

TEST(ProgressLine, SaysWhatIsAhead) {
  EXPECT_EQ(FormatProgress({999, -1, 0, 1, Ahead{12000, 1500000}, {}}),
            "999 B  0 B/s  1 connection  0:12 (1.5 MB) ahead");
  EXPECT_EQ(FormatProgress({999, -1, 0, 0, Ahead{12000, -1}, SegmentCount{3, 60}}),
            "999 B  0 B/s  3 of 60 segments  0:12 ahead");
  const struct {
    int32_t ms;
    int64_t durationMs;
    int64_t position;
    int64_t length;
    int64_t bytes;
  } rows[] = {{3000, 0, 0, -1, 3 << 20},     {3000, 100000, 0, 1000000, 30000}, {3000, 100000, 999000, 1000000, 1000},
              {40000, 0, 0, -1, 5 << 20},    {40000, 0, 0, 1000, 1000},         {40000, 100000, 0, 900000, 300000},
              {40000, 20000, 100, 1000, 900}};
  for (const auto& row : rows) {
    const Ahead ahead = EstimateAhead(row.ms, 40000, row.durationMs, row.position, row.length);
    EXPECT_EQ(ahead.ms, row.ms);
    EXPECT_EQ(ahead.bytes, row.bytes) << row.ms << " of " << row.durationMs << " at " << row.position;
  }
}

TEST(ProgressLine, CountsNoMoreConnectionsThanSegmentsRemain) {
  const struct {
    int64_t remaining;
    int32_t connections;
  } rows[] = {{-1, 5}, {0, 0}, {1, 1}, {1000, 1}, {1001, 2}, {5000, 5}, {int64_t{1} << 62, 5}};
  for (const auto& row : rows) {
    EXPECT_EQ(ConnectionsFor(row.remaining, 1000, 5), row.connections) << row.remaining;
  }
}

TEST(Text, FormatsForPeople) {
  EXPECT_EQ(FormatBytes(999.96), "1.0 kB");
  EXPECT_EQ(FormatBytes(5e15), "5000.0 TB");
  EXPECT_EQ(FormatSeconds(59.9), "0:59");
  EXPECT_EQ(FormatSeconds(3723), "1:02:03");
  EXPECT_EQ(FormatSeconds(1e18), "-:--");
  EXPECT_EQ(Printable("a\x1b[31m\tb\n\x7f"), "a?[31m?b??");
}

}  // namespace
