#include "OriginText.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>
#include <utility>

namespace origin {
namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view Trim(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// Empty text gives -1.
bool ParseSide(std::string_view text, int64_t* value) {
  *value = -1;
  if (text.empty()) {
    return true;
  }
  const bool areDigits = std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!areDigits) {
    return false;
  }
  const auto result = std::from_chars(text.data(), text.data() + text.size(), *value);
  if (result.ec == std::errc::result_out_of_range) {
    *value = std::numeric_limits<int64_t>::max();
  }
  return true;
}

bool ParseRangeSides(std::string_view text, int64_t* first, int64_t* last) {
  constexpr std::string_view kUnit = "bytes=";
  if (!EqualsIgnoringCase(text.substr(0, kUnit.size()), kUnit)) {
    return false;
  }
  text.remove_prefix(kUnit.size());
  const size_t dash = text.find('-');
  if (dash == std::string_view::npos || !ParseSide(Trim(text.substr(0, dash)), first) ||
      !ParseSide(Trim(text.substr(dash + 1)), last)) {
    return false;
  }
  const bool isOpenOnBothSides = *first < 0 && *last < 0;
  const bool isReversed = *first >= 0 && *last >= 0 && *first > *last;
  return !isOpenOnBothSides && !isReversed;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = Lower(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

constexpr std::pair<int, const char*> kReasons[] = {
    {100, "Continue"},
    {103, "Early Hints"},
    {200, "OK"},
    {204, "No Content"},
    {206, "Partial Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {410, "Gone"},
    {416, "Range Not Satisfiable"},
    {429, "Too Many Requests"},
    {500, "Internal Server Error"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

constexpr std::pair<std::string_view, const char*> kContentTypes[] = {
    {"mp4", "video/mp4"},
    {"m4v", "video/mp4"},
    {"m4a", "audio/mp4"},
    {"m4s", "video/iso.segment"},
    {"mkv", "video/x-matroska"},
    {"webm", "video/webm"},
    {"ts", "video/mp2t"},
    {"flv", "video/x-flv"},
    {"mov", "video/quicktime"},
    {"mpd", "application/dash+xml"},
    {"m3u8", "application/vnd.apple.mpegurl"},
    {"mp3", "audio/mpeg"},
    {"aac", "audio/aac"},
    {"flac", "audio/flac"},
    {"ogg", "audio/ogg"},
    {"wav", "audio/wav"},
    {"vtt", "text/vtt"},
    {"txt", "text/plain; charset=utf-8"},
    {"html", "text/html; charset=utf-8"},
    {"json", "application/json"},
    {"jpg", "image/jpeg"},
    {"png", "image/png"},
};

}  // namespace

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char l, char r) { return Lower(l) == Lower(r); });
}

std::string ToLower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), Lower);
  return text;
}

bool ParseRange(std::string_view text, int64_t* first, int64_t* last) {
  if (ParseRangeSides(Trim(text), first, last)) {
    return true;
  }
  *first = -1;
  *last = -1;
  return false;
}

std::string ReasonOf(int status) {
  for (const auto& [number, reason] : kReasons) {
    if (number == status) {
      return reason;
    }
  }
  return "Unnamed";
}

std::string ContentTypeOf(const std::string& fileName) {
  const size_t dot = fileName.rfind('.');
  const std::string_view ending = dot == std::string::npos ? "" : std::string_view(fileName).substr(dot + 1);
  for (const auto& [known, type] : kContentTypes) {
    if (EqualsIgnoringCase(known, ending)) {
      return type;
    }
  }
  return "application/octet-stream";
}

bool DecodePercent(std::string_view text, std::string* decoded) {
  decoded->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded->push_back(text[i]);
      continue;
    }
    const int high = i + 2 < text.size() ? HexValue(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexValue(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      return false;
    }
    decoded->push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return decoded->find('\0') == std::string::npos;
}

std::string EncodePercent(std::string_view text) {
  constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    if (kPlain.find(c) != std::string_view::npos) {
      encoded.push_back(c);
      continue;
    }
    const unsigned byte = static_cast<unsigned char>(c);
    encoded.push_back('%');
    encoded.push_back(kHex[byte / 16]);
    encoded.push_back(kHex[byte % 16]);
  }
  return encoded;
}

std::string EscapeHtml(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped.push_back(c);
    }
  }
  return escaped;
}

}  // namespace origin
