// Small text helpers of the origin: names without case, ranges, words of statuses, content types.
#ifndef TESTS_SUPPORT_ORIGIN_TEXT_H
#define TESTS_SUPPORT_ORIGIN_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace origin {

bool EqualsIgnoringCase(std::string_view left, std::string_view right);
std::string ToLower(std::string text);

// Reads "bytes=first-last" with either side open, -1 for an open side. False, and both -1, for anything else: several
// ranges, other units, a first behind the last. Numbers beyond 63 bits become the largest one.
bool ParseRange(std::string_view text, int64_t* first, int64_t* last);

std::string ReasonOf(int status);
std::string ContentTypeOf(const std::string& fileName);

// Resolves %xx. False for a broken escape or a zero byte.
bool DecodePercent(std::string_view text, std::string* decoded);
std::string EncodePercent(std::string_view text);
std::string EscapeHtml(std::string_view text);

}  // namespace origin

#endif
