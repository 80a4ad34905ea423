// The segments of a playlist by their sequence numbers, through all its reloads. No thread, no network.
#ifndef TOOLS_HLS_LIST_H
#define TOOLS_HLS_LIST_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Playlist.h"

struct HlsSegment {
  int64_t sequence = 0;
  int32_t durationMs = 0;
  MediaPart part;
  std::optional<MediaPart> map;  // what must go before it
  bool isDiscontinuous = false;
};

class HlsList {
 public:
  // Takes over what the playlist has. True when it brings anything new. One that ends before what is known is an old one
  // from some cache on the way, and brings nothing.
  bool Merge(const Playlist& playlist);

  // The first segment with that number or a greater one; it may have left the playlist since it was listed. Null when
  // there is none.
  const HlsSegment* FindFrom(int64_t sequence) const;
  // Segments that have other URLs than before: each is given once.
  std::vector<HlsSegment> TakeMoved();
  // Forgets segments that are not needed any more.
  void DropBefore(int64_t sequence);

  // What the last playlist had: [Oldest, End).
  int64_t Oldest() const { return oldest_; }
  int64_t End() const { return end_; }
  bool IsEnded() const { return isEnded_; }

 private:
  bool Take(HlsSegment segment);

  std::map<int64_t, HlsSegment> segments_;
  std::map<int64_t, HlsSegment> moved_;
  int64_t oldest_ = 0;
  int64_t end_ = 0;
  int64_t droppedBefore_ = 0;
  bool isEnded_ = false;
};

#endif
