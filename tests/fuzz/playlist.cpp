// Playlists as any server may send them.
#include "Playlist.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "Require.h"

namespace {

bool IsSendable(std::string_view url) {
  return std::all_of(url.begin(), url.end(), [](unsigned char c) { return c > 0x20 && c != 0x7f; });
}

void CheckPart(const MediaPart& part) {
  Require(!part.url.empty() && IsSendable(part.url), "a URL fits into a request line");
  Require(part.url.find('#') == std::string::npos, "a URL has no fragment");
  Require(part.first >= 0 && part.length >= -1 && part.length != 0, "a range has bytes");
  Require(part.first <= kMostNumber - part.length, "a range ends");
}

void CheckList(const Playlist& list) {
  Require(list.variants.empty() || list.segments.empty(), "it is a master or a media playlist");
  Require(list.targetDurationMs >= 1000 && list.targetDurationMs <= kMostDurationMs, "the target duration is bounded");
  Require(list.mediaSequence >= 0 && list.mediaSequence <= kMostNumber, "the number is bounded");
  for (const MediaPart& map : list.maps) {
    CheckPart(map);
  }
  for (const MediaSegment& segment : list.segments) {
    CheckPart(segment.part);
    Require(segment.durationMs >= 0 && segment.durationMs <= kMostDurationMs, "a duration is bounded");
    Require(segment.map >= -1 && segment.map < static_cast<int32_t>(list.maps.size()), "the map is there");
  }
  for (const Variant& variant : list.variants) {
    Require(!variant.url.empty() && IsSendable(variant.url), "a variant has a URL");
    Require(variant.bandwidth >= 0 && variant.width >= 0 && variant.height >= 0, "its figures are no debts");
  }
}

std::string WithCarriageReturns(std::string_view text) {
  std::string out;
  for (const char c : text) {
    out += c == '\n' ? "\r\n" : std::string(1, c);
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  std::string error;
  const auto list = ParsePlaylist(text, "http://host/folder/list.m3u8?query", &error);
  Require(list.has_value() == error.empty(), "a refusal has a reason");
  if (list) {
    CheckList(*list);
  }
  std::string again;
  const auto other = ParsePlaylist(WithCarriageReturns(text), "http://host/folder/list.m3u8?query", &again);
  Require(error == again, "line ends do not matter");
  Require(!list || list->segments.size() == other->segments.size(), "line ends hide no segment");
  return 0;
}
