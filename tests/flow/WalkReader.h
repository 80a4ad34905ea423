// The reader's side of a step: checks every byte that Read delivers and what the callbacks say about it.
#ifndef TESTS_FLOW_WALK_READER_H
#define TESTS_FLOW_WALK_READER_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "WalkOrigin.h"
#include "ZVHttpBase.h"

namespace flow::walk {

// The player's callbacks. One for each handle.
class Listener {
 public:
  // Codes are welcome from here on ...
  void Begin();
  // ... and up to here: a code behind it fails the test.
  void End();
  std::vector<int32_t> Codes() const;

  static int32_t TakeCode(void* self, int32_t code);
  static int32_t AnswerRetry(void* self, int32_t* value, int32_t zero);

 private:
  mutable std::mutex mutex_;
  bool isWelcome_ = false;
  std::vector<int32_t> codes_;
  int questions_ = 0;
};

// Follows the stream; every function gives "" or what is wrong.
class Checker {
 public:
  Checker(const Plan& plan, const Script& script) : plan_(plan), script_(script) {}

  std::string Take(const char* bytes, size_t n);
  // Read has given its end and nobody has closed the download.
  std::string TakeEnd(const std::vector<int32_t>& codes);
  uint64_t Delivered() const { return delivered_; }

 private:
  bool Fits(const Stream& stream, const char* bytes, size_t n);
  std::string DescribeWrong(const char* bytes, size_t n) const;
  std::string CheckCodes(const std::vector<int32_t>& codes) const;

  const Plan& plan_;
  const Script& script_;
  uint64_t delivered_ = 0;
  std::vector<Stream> streams_;  // those that still fit; filled by the first byte
  std::vector<char> right_;
};

}  // namespace flow::walk

#endif
