#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "OriginPlan.h"

namespace origin {

Wire::Wire(Plan plan) : plan_(std::move(plan)) {
  SetPending(std::move(plan_.head));
  if (plan_.chunkBytes == 0) {
    chunkLeft_ = plan_.bodyLength;
  }
}

size_t Wire::Fill(char* out, size_t max, uint64_t bodyStop, size_t* bodyBytes) {
  size_t filled = 0;
  *bodyBytes = 0;
  while (filled < max && !isBroken_) {
    if (pendingDone_ < pending_.size()) {
      filled += TakePending(out + filled, max - filled);
    } else if (bodyDone_ >= bodyStop || isTailTaken_) {
      break;
    } else if (bodyDone_ == plan_.bodyLength) {
      SetPending(std::move(plan_.tail));
      isTailTaken_ = true;
    } else if (chunkLeft_ == 0) {
      BeginChunk();
    } else {
      const uint64_t room = std::min<uint64_t>({max - filled, chunkLeft_, bodyStop - bodyDone_});
      const size_t taken = TakeBody(out + filled, static_cast<size_t>(room));
      filled += taken;
      *bodyBytes += taken;
    }
  }
  bytesDone_ += filled;
  return filled;
}

bool Wire::HasReached(uint64_t position) const {
  return IsAtEnd() || (pendingDone_ == pending_.size() && bodyDone_ >= position);
}

size_t Wire::TakePending(char* out, size_t max) {
  const size_t n = std::min(max, pending_.size() - pendingDone_);
  memcpy(out, pending_.data() + pendingDone_, n);
  pendingDone_ += n;
  return n;
}

size_t Wire::TakeBody(char* out, size_t max) {
  if (!plan_.body.read || !plan_.body.read(plan_.bodyFirst + bodyDone_, out, max)) {
    isBroken_ = true;
    return 0;
  }
  bodyDone_ += max;
  chunkLeft_ -= max;
  return max;
}

void Wire::SetPending(std::string bytes) {
  pending_ = std::move(bytes);
  pendingDone_ = 0;
}

void Wire::BeginChunk() {
  chunkLeft_ = std::min<uint64_t>(plan_.chunkBytes, plan_.bodyLength - bodyDone_);
  char line[40];
  snprintf(line, sizeof line, "%s%llx\r\n", bodyDone_ == 0 ? "" : "\r\n", static_cast<unsigned long long>(chunkLeft_));
  SetPending(line);
}

}  // namespace origin
