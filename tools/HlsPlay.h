// Playing a playlist: its segments, with their maps, one after another into an output.
#ifndef TOOLS_HLS_PLAY_H
#define TOOLS_HLS_PLAY_H

#include <optional>
#include <vector>

#include "Hls.h"
#include "Output.h"
#include "Progress.h"
#include "Report.h"

class HlsPlayer {
 public:
  // All of them must outlive it. Its times count from here; bytes and times are added to the report.
  HlsPlayer(const HlsOptions& options, HlsSource* source, Output* output, ProgressLine* progress, Report* report);
  HlsPlayer(const HlsPlayer&) = delete;
  HlsPlayer& operator=(const HlsPlayer&) = delete;

  // Reads and writes until the end, or until the output's reader has seen enough. The source is loaded.
  Outcome Play();

 private:
  Outcome ChooseStart();
  Outcome MakeCache();
  Outcome AwaitNext(std::optional<HlsSegment>* segment);
  void MoveSegments();
  void ListSegments();
  Outcome PlaySegment(HlsSegment segment);
  Outcome TrySegment(const HlsSegment& segment, int64_t* done);
  Outcome WriteMap(const HlsSegment& segment);
  Outcome CopySegment(int64_t* done);
  void LeaveOut(int64_t* repeated);
  Outcome WriteHeld(int64_t* done);
  Outcome Write(const char* bytes, size_t count);
  bool MayTryAgain(const Outcome& outcome, int attempts, HlsSegment* segment);
  bool HasLeft(const HlsSegment& segment) const;
  void SkipTo(int64_t sequence);
  void Show();
  void TellProgress();
  void Sample();

  const HlsOptions& options_;
  HlsSource& source_;
  Output& output_;
  ProgressLine& progress_;
  Report& report_;
  PlaylistFigures& figures_;
  const int64_t startMs_;
  bool isLive_ = false;
  std::optional<CachedSegments> cache_;
  std::optional<Fetcher> mapFetcher_;
  std::optional<MediaPart> map_;  // the last one written
  int64_t next_ = 0;              // number of the segment that is read, or will be
  int64_t listed_ = 0;            // the cache knows the segments before this one
  std::vector<char> buffer_;
  size_t held_ = 0;        // bytes in the buffer that are not written yet
  int64_t sampledMs_ = 0;  // when the last sample was taken
  size_t sampleStep_ = 1;  // so many are offered for one that is kept
  size_t samplesOffered_ = 0;
};

#endif
