#include "Playlist.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "Url.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr size_t kMostUrlBytes = 8192;
// Of all URLs together: a long base makes every one of them long.
constexpr size_t kMostUrlBytesInAll = 128 << 20;
constexpr int32_t kShortestTargetMs = 1000;

// A range as the playlist writes it, "length[@first]".
struct RangeTag {
  int64_t length = 0;
  std::optional<int64_t> first;
};

struct Parser {
  std::string_view rest;
  const std::string& base;
  Playlist list{};
  int line = 0;
  std::string error{};
  size_t urlBytes = 0;
  // What has been said about the next URI.
  std::optional<int32_t> durationMs{};
  std::optional<RangeTag> range{};
  std::optional<Variant> variant{};
  bool isDiscontinuous = false;
  // What goes on until it is changed.
  int32_t map = -1;
  int32_t longestMs = 0;
  // The range before this one.
  std::string rangeUrl{};
  int64_t rangeEnd = 0;
};

bool Fail(Parser* parser, std::string_view why) {
  parser->error = "line " + std::to_string(parser->line) + ": " + std::string(why);
  return false;
}

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The next line without blanks around it; false behind the last one.
bool TakeLine(Parser* parser, std::string_view* line) {
  if (parser->rest.empty()) {
    return false;
  }
  const size_t end = std::min(parser->rest.find('\n'), parser->rest.size());
  *line = Trim(parser->rest.substr(0, end));
  parser->rest.remove_prefix(std::min(end + 1, parser->rest.size()));
  parser->line += 1;
  return true;
}

std::optional<int64_t> ParseNumber(std::string_view text) {
  int64_t value = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = code == std::errc() && end == text.data() + text.size();
  return isWhole && value >= 0 && value < kMostNumber ? std::optional(value) : std::nullopt;
}

// Seconds with decimals, as milliseconds. Negative ones, which some write for "unknown", are 0.
std::optional<int32_t> ParseSeconds(std::string_view text) {
  const bool isNegative = !text.empty() && text.front() == '-';
  text.remove_prefix(isNegative ? 1 : 0);
  int64_t ms = 0;
  int64_t unit = 1000;
  size_t digits = 0;
  bool isBehindPoint = false;
  for (const char c : text) {
    if (c == '.' && !isBehindPoint) {
      isBehindPoint = true;
    } else if (c < '0' || c > '9') {
      return std::nullopt;
    } else if (isBehindPoint) {
      unit /= 10;
      ms += unit * (c - '0');
      digits += 1;
    } else {
      ms = std::min<int64_t>(ms * 10 + int64_t{c - '0'} * 1000, kMostDurationMs);
      digits += 1;
    }
  }
  if (digits == 0) {
    return std::nullopt;
  }
  return isNegative ? 0 : static_cast<int32_t>(std::min<int64_t>(ms, kMostDurationMs));
}

// The value of an attribute in a list "NAME=VALUE,NAME=\"VALUE\"", without its quotes.
std::optional<std::string_view> FindAttribute(std::string_view list, std::string_view name) {
  while (!list.empty()) {
    const size_t equals = list.find('=');
    if (equals == std::string_view::npos) {
      break;
    }
    const std::string_view key = Trim(list.substr(0, equals));
    list.remove_prefix(equals + 1);
    const bool isQuoted = !list.empty() && list.front() == '"';
    list.remove_prefix(isQuoted ? 1 : 0);
    const size_t end = std::min(list.find(isQuoted ? '"' : ','), list.size());
    const std::string_view value = isQuoted ? list.substr(0, end) : Trim(list.substr(0, end));
    if (key == name) {
      return value;
    }
    list.remove_prefix(end);
    list.remove_prefix(std::min(list.find(','), list.size()));
    list.remove_prefix(list.empty() ? 0 : 1);
  }
  return std::nullopt;
}

std::optional<RangeTag> ParseRange(std::string_view text) {
  const size_t at = text.find('@');
  const std::optional<int64_t> length = ParseNumber(Trim(text.substr(0, at)));
  if (!length || *length == 0) {
    return std::nullopt;
  }
  if (at == std::string_view::npos) {
    return RangeTag{*length, std::nullopt};
  }
  const std::optional<int64_t> first = ParseNumber(Trim(text.substr(at + 1)));
  if (!first || *first > kMostNumber - *length) {
    return std::nullopt;
  }
  return RangeTag{*length, first};
}

bool Resolve(Parser* parser, std::string_view reference, std::string* url) {
  if (reference.size() > kMostUrlBytes) {
    return Fail(parser, "the URI is too long");
  }
  *url = ResolveUrl(parser->base, reference);
  parser->urlBytes += url->size();
  return parser->urlBytes <= kMostUrlBytesInAll || Fail(parser, "the URIs are too long");
}

bool TakeDuration(Parser* parser, std::string_view value) {
  parser->durationMs = ParseSeconds(Trim(value.substr(0, value.find(','))));
  return parser->durationMs || Fail(parser, "the duration is no number");
}

bool TakeTargetDuration(Parser* parser, std::string_view value) {
  const std::optional<int32_t> ms = ParseSeconds(value);
  parser->list.targetDurationMs = ms.value_or(0);
  return ms || Fail(parser, "the target duration is no number");
}

bool TakeMediaSequence(Parser* parser, std::string_view value) {
  const std::optional<int64_t> number = ParseNumber(value);
  // Room is left to number the segments that follow.
  if (!number || *number > kMostNumber / 2) {
    return Fail(parser, "the media sequence number is no number");
  }
  parser->list.mediaSequence = *number;
  return true;
}

bool TakeRange(Parser* parser, std::string_view value) {
  parser->range = ParseRange(value);
  return parser->range || Fail(parser, "the byte range is none");
}

bool TakeMap(Parser* parser, std::string_view value) {
  const std::optional<std::string_view> reference = FindAttribute(value, "URI");
  MediaPart map;
  if (!reference || reference->empty()) {
    return Fail(parser, "a map without a URI");
  }
  if (!Resolve(parser, *reference, &map.url)) {
    return false;
  }
  if (const std::optional<std::string_view> text = FindAttribute(value, "BYTERANGE")) {
    const std::optional<RangeTag> range = ParseRange(*text);
    if (!range) {
      return Fail(parser, "the byte range is none");
    }
    map.first = range->first.value_or(0);
    map.length = range->length;
  }
  std::vector<MediaPart>& maps = parser->list.maps;
  if (maps.empty() || maps.back() != map) {
    maps.push_back(map);
  }
  parser->map = static_cast<int32_t>(maps.size()) - 1;
  return maps.size() <= kMostPlaylistEntries || Fail(parser, "too many maps");
}

bool TakeKey(Parser* parser, std::string_view value) {
  const std::optional<std::string_view> method = FindAttribute(value, "METHOD");
  if (method && *method == "NONE") {
    return true;
  }
  return Fail(parser, "the segments are encrypted (METHOD=" + std::string(method.value_or("").substr(0, 40)) +
                          "), which is not supported");
}

bool TakeVariant(Parser* parser, std::string_view value) {
  Variant variant;
  if (const auto text = FindAttribute(value, "BANDWIDTH")) {
    const std::optional<int64_t> bandwidth = ParseNumber(*text);
    if (!bandwidth) {
      return Fail(parser, "the bandwidth is no number");
    }
    variant.bandwidth = *bandwidth;
  }
  if (const auto text = FindAttribute(value, "RESOLUTION")) {
    constexpr int64_t kMostPixels = 1 << 20;
    const size_t cross = text->find('x');
    const std::optional<int64_t> width = ParseNumber(text->substr(0, cross));
    const std::optional<int64_t> height =
        cross == std::string_view::npos ? std::nullopt : ParseNumber(text->substr(cross + 1));
    if (width && height && *width <= kMostPixels && *height <= kMostPixels) {
      variant.width = static_cast<int32_t>(*width);
      variant.height = static_cast<int32_t>(*height);
    }
  }
  parser->variant = variant;
  return true;
}

bool TakeTag(Parser* parser, std::string_view line) {
  const struct {
    std::string_view name;
    bool (*take)(Parser*, std::string_view);
  } kTags[] = {{"#EXTINF", TakeDuration},
               {"#EXT-X-TARGETDURATION", TakeTargetDuration},
               {"#EXT-X-MEDIA-SEQUENCE", TakeMediaSequence},
               {"#EXT-X-BYTERANGE", TakeRange},
               {"#EXT-X-MAP", TakeMap},
               {"#EXT-X-KEY", TakeKey},
               {"#EXT-X-STREAM-INF", TakeVariant}};
  const size_t colon = line.find(':');
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = colon == std::string_view::npos ? "" : Trim(line.substr(colon + 1));
  if (name == "#EXT-X-ENDLIST") {
    parser->list.isEnded = true;
  } else if (name == "#EXT-X-DISCONTINUITY") {
    parser->isDiscontinuous = true;
  }
  for (const auto& tag : kTags) {
    if (name == tag.name) {
      return tag.take(parser, value);
    }
  }
  return true;
}

// A range without its first byte begins behind the one before it, of the same resource.
bool PlaceRange(Parser* parser, MediaPart* part) {
  if (!parser->range) {
    parser->rangeUrl.clear();
    return true;
  }
  if (!parser->range->first && part->url != parser->rangeUrl) {
    return Fail(parser, "a byte range that follows none");
  }
  part->first = parser->range->first.value_or(parser->rangeEnd);
  part->length = parser->range->length;
  if (part->first > kMostNumber - part->length) {
    return Fail(parser, "the byte range is none");
  }
  parser->rangeUrl = part->url;
  parser->rangeEnd = part->first + part->length;
  return true;
}

bool TakeSegment(Parser* parser, std::string_view reference) {
  MediaSegment segment;
  if (!Resolve(parser, reference, &segment.part.url) || !PlaceRange(parser, &segment.part)) {
    return false;
  }
  segment.durationMs = *parser->durationMs;
  segment.map = parser->map;
  segment.isDiscontinuous = parser->isDiscontinuous;
  parser->longestMs = std::max(parser->longestMs, segment.durationMs);
  parser->durationMs.reset();
  parser->range.reset();
  parser->isDiscontinuous = false;
  parser->list.segments.push_back(segment);
  return parser->list.segments.size() <= kMostPlaylistEntries || Fail(parser, "too many segments");
}

bool TakeUri(Parser* parser, std::string_view reference) {
  if (parser->variant) {
    Variant variant = *parser->variant;
    parser->variant.reset();
    if (!Resolve(parser, reference, &variant.url)) {
      return false;
    }
    parser->list.variants.push_back(variant);
    return parser->list.variants.size() <= kMostPlaylistEntries || Fail(parser, "too many variants");
  }
  if (!parser->durationMs) {
    return Fail(parser, "a URI of which no tag says what it is");
  }
  return TakeSegment(parser, reference);
}

bool ParseLines(Parser* parser) {
  std::string_view line;
  if (!TakeLine(parser, &line) || line.substr(0, line.find_first_of(" \t")) != "#EXTM3U") {
    parser->error = "it does not begin with #EXTM3U";
    return false;
  }
  while (TakeLine(parser, &line)) {
    if (line.empty()) {
      continue;
    }
    if (line.front() == '#' ? !TakeTag(parser, line) : !TakeUri(parser, line)) {
      return false;
    }
  }
  if (!parser->list.variants.empty() && !parser->list.segments.empty()) {
    parser->error = "it has both segments and variants";
    return false;
  }
  return true;
}

}  // namespace

std::optional<Playlist> ParsePlaylist(std::string_view text, const std::string& base, std::string* error) {
  if (text.size() > kMostPlaylistBytes) {
    *error = "it is too large";
    return std::nullopt;
  }
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  Parser parser{.rest = text, .base = base};
  if (!ParseLines(&parser)) {
    *error = "no usable playlist: " + parser.error;
    return std::nullopt;
  }
  int32_t& targetMs = parser.list.targetDurationMs;
  targetMs = std::max(targetMs > 0 ? targetMs : parser.longestMs, kShortestTargetMs);
  return std::move(parser.list);
}
