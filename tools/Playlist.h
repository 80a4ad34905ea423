// HLS playlists as text: what a media or a master playlist says.
#ifndef TOOLS_PLAYLIST_H
#define TOOLS_PLAYLIST_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

constexpr size_t kMostPlaylistBytes = 32 << 20;
constexpr size_t kMostPlaylistEntries = 200000;    // segments, or variants
constexpr int32_t kMostDurationMs = 86400000;      // longer ones count as a day
constexpr int64_t kMostNumber = int64_t{1} << 62;  // of sequence numbers and positions

// A resource, or some bytes of one.
struct MediaPart {
  std::string url;      // absolute
  int64_t first = 0;    // position of its first byte
  int64_t length = -1;  // -1: all of the resource

  bool IsRange() const { return length >= 0; }
  bool operator==(const MediaPart& other) const = default;
};

struct MediaSegment {
  MediaPart part;
  int32_t durationMs = 0;
  int32_t map = -1;              // place in Playlist::maps of what must go before it; -1: nothing
  bool isDiscontinuous = false;  // something else than what was before it
};

struct Variant {
  std::string url;  // absolute
  int64_t bandwidth = 0;
  int32_t width = 0;  // 0: not told
  int32_t height = 0;
};

// Of a master playlist there are only variants, of a media playlist none.
struct Playlist {
  std::vector<Variant> variants;
  std::vector<MediaSegment> segments;
  std::vector<MediaPart> maps;
  int64_t mediaSequence = 0;     // number of the first segment
  int32_t targetDurationMs = 0;  // at least a second
  bool isEnded = false;          // nothing will be added

  bool IsMaster() const { return !variants.empty(); }
};

// Reads the playlist that was found at the absolute URL base. Nothing, with the reason in one line, for what is no
// playlist, or is one of encrypted segments. Tags that do not matter are skipped.
std::optional<Playlist> ParsePlaylist(std::string_view text, const std::string& base, std::string* error);

#endif
