// The origin's side of a step: which flaws its answers have, and which streams of bytes are right because of them.
//
// Left out are the flaws that no client can tell from a good answer: a body that ends with its connection, is cut and has
// no length from anywhere; an answer that lies consistently (other bytes than its headers say, a part of an open range
// whose total is unknown); a piece of a packed form for a range of the player's own.
#ifndef TESTS_FLOW_WALK_ORIGIN_H
#define TESTS_FLOW_WALK_ORIGIN_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "Origin.h"
#include "WalkPlan.h"

namespace flow::walk {

// A stream that a reader may get: a piece of a resource.
struct Stream {
  origin::Resource resource;
  uint64_t first = 0;
  uint64_t count = 0;
  int32_t errorCode = 0;  // 0: media; else the code that must be reported with it
};

// Decides on the answers of one step. Answer runs on the server's thread, the rest on any.
class Script {
 public:
  Script(const Plan& plan, std::string target);
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  origin::Answer Answer(const origin::Request& request);

  const origin::Resource& Media() const { return media_; }
  // The streams that the answers so far allow. Before the first byte is delivered only one answer at a time is under
  // way, so what is allowed then is decided.
  std::vector<Stream> RightStreams() const;
  // A request has come, so the download has taken its settings.
  bool HasBegun() const { return begun_.load(); }
  // Each answer with its flaws, a line each.
  std::string Describe() const;

 private:
  // What the request asks for, as a correct server understands it.
  struct Asked {
    bool hasRange;
    bool isSatisfiable;
    bool isOpen;  // to the end, or the last bytes
    uint64_t first;
    uint64_t last;
  };
  Asked Understand(const origin::Request& request) const;
  origin::Answer DrawAnswer(const origin::Request& request, const Asked& asked);
  bool GiveShape(const origin::Request& request, const Asked& asked, origin::Answer* answer);
  void GiveBreak(uint64_t bodyBytes, origin::Answer* answer);
  void BreakHeader(origin::Answer* answer);
  void GiveError(origin::Answer* answer);
  void GivePace(uint64_t bodyBytes, origin::Answer* answer);
  uint64_t SentBytes(const Asked& asked, const origin::Answer& answer) const;
  void NoteMeaning(const Asked& asked, const origin::Answer& answer);
  void Note(const origin::Request& request, const std::string& what);

  const Plan plan_;
  const std::string target_;
  const origin::Resource media_;
  std::atomic<bool> begun_{false};

  mutable std::mutex mutex_;
  Dice dice_;
  int requests_ = 0;
  bool answered_ = false;   // a header with a final status has gone out
  bool fitted206_ = false;  // one of them was a 206 with the bytes that were asked for
  std::vector<Stream> streams_;
  std::string flaws_;  // of the answer that is being drawn
  std::string notes_;
};

}  // namespace flow::walk

#endif
