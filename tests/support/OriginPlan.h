// Turns an Answer into the bytes that go out: what the head says, which bytes of which body follow, how they are
// framed. Everything that has to do with time and with the connection is left to Connection.
#ifndef TESTS_SUPPORT_ORIGIN_PLAN_H
#define TESTS_SUPPORT_ORIGIN_PLAN_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "Origin.h"

namespace origin {

struct Plan {
  int status = 0;
  std::string head;  // the 1xx answers and the header block
  Resource body;
  uint64_t bodyFirst = 0;  // the body is the bytes [bodyFirst, bodyFirst + bodyLength) of it
  uint64_t bodyLength = 0;
  size_t chunkBytes = 0;
  std::string tail;  // last chunk and trailers
  bool closesAtEnd = false;
};

// entity is what the target holds, packed already where the answer wants it; nothing for a target that is unknown.
Plan MakePlan(const Answer& answer, const Request& request, const std::optional<Resource>& entity);

// The bytes of a plan, one block after the other.
class Wire {
 public:
  static constexpr uint64_t kNoStop = std::numeric_limits<uint64_t>::max();

  explicit Wire(Plan plan);

  // Writes at most max bytes and returns their count; *bodyBytes is how many of them are body. Goes no further than
  // body byte bodyStop. 0 where nothing may follow, or when the body cannot be read, which IsBroken tells.
  size_t Fill(char* out, size_t max, uint64_t bodyStop, size_t* bodyBytes);

  // Whether nothing but what lies behind body byte position is still to come.
  bool HasReached(uint64_t position) const;
  bool IsAtEnd() const { return pending_.size() == pendingDone_ && isTailTaken_; }
  bool IsBroken() const { return isBroken_; }
  uint64_t BodyDone() const { return bodyDone_; }
  uint64_t BytesDone() const { return bytesDone_; }
  const Plan& GetPlan() const { return plan_; }

 private:
  size_t TakePending(char* out, size_t max);
  size_t TakeBody(char* out, size_t max);
  void SetPending(std::string bytes);
  void BeginChunk();

  Plan plan_;
  std::string pending_;  // framing bytes that go out before the next body byte
  size_t pendingDone_ = 0;
  uint64_t bodyDone_ = 0;
  uint64_t bytesDone_ = 0;
  uint64_t chunkLeft_ = 0;  // body bytes until the next framing
  bool isTailTaken_ = false;
  bool isBroken_ = false;
};

}  // namespace origin

#endif
