#include "HlsList.h"

#include <algorithm>
#include <utility>

bool HlsList::Merge(const Playlist& playlist) {
  const int64_t end = playlist.mediaSequence + static_cast<int64_t>(playlist.segments.size());
  if (end < end_) {
    return false;
  }
  bool isNew = playlist.isEnded != isEnded_ || playlist.mediaSequence != oldest_ || end != end_;
  int64_t sequence = playlist.mediaSequence;
  for (const MediaSegment& listed : playlist.segments) {
    HlsSegment segment;
    segment.sequence = sequence++;
    segment.durationMs = listed.durationMs;
    segment.part = listed.part;
    if (listed.map >= 0) {
      segment.map = playlist.maps[static_cast<size_t>(listed.map)];
    }
    segment.isDiscontinuous = listed.isDiscontinuous;
    isNew = Take(std::move(segment)) || isNew;
  }
  oldest_ = playlist.mediaSequence;
  end_ = end;
  isEnded_ = playlist.isEnded;
  return isNew;
}

bool HlsList::Take(HlsSegment segment) {
  if (segment.sequence < droppedBefore_) {
    return false;
  }
  const int64_t sequence = segment.sequence;
  const auto known = segments_.find(sequence);
  if (known == segments_.end()) {
    segments_.emplace(sequence, std::move(segment));
    return true;
  }
  const bool isMoved = known->second.part.url != segment.part.url;
  if (isMoved) {
    moved_.insert_or_assign(sequence, segment);
  }
  known->second = std::move(segment);
  return isMoved;
}

const HlsSegment* HlsList::FindFrom(int64_t sequence) const {
  const auto found = segments_.lower_bound(sequence);
  return found == segments_.end() ? nullptr : &found->second;
}

std::vector<HlsSegment> HlsList::TakeMoved() {
  std::vector<HlsSegment> moved;
  for (auto& entry : moved_) {
    moved.push_back(std::move(entry.second));
  }
  moved_.clear();
  return moved;
}

void HlsList::DropBefore(int64_t sequence) {
  droppedBefore_ = std::max(droppedBefore_, sequence);
  segments_.erase(segments_.begin(), segments_.lower_bound(sequence));
  moved_.erase(moved_.begin(), moved_.lower_bound(sequence));
}
