// One walker: a thread that makes step after step, each a download on its handle against its own origin.
#ifndef TESTS_FLOW_WALK_WALKER_H
#define TESTS_FLOW_WALK_WALKER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "Origin.h"
#include "WalkReader.h"

namespace flow::walk {

class Walker {
 public:
  Walker(uint64_t seed, int number, int64_t firstStep);
  ~Walker();
  Walker(const Walker&) = delete;
  Walker& operator=(const Walker&) = delete;

  // Until the time is over or a step fails; that fails the test and says all there is to know of the step.
  void Walk(int64_t seconds);

  // For any thread.
  bool IsBack() const { return isBack_.load(); }
  int64_t SecondsInStep() const;
  std::string Describe() const;
  int64_t Steps() const { return steps_.load(); }
  int64_t Bytes() const { return bytes_.load(); }

 private:
  using Clock = std::chrono::steady_clock;

  void BeginStep();
  std::string MakeStep(Dice* dice);
  void RenewOrigin(Dice* dice);
  void ApplySettings();
  std::string ReadToEnding(Dice* dice, Checker* checker);
  std::string ReadOnce(Dice* dice, Checker* checker, bool* isEnd);
  bool IsTimeToEnd(const Checker& checker) const;
  void Dawdle(Dice* dice, uint32_t read);
  // The other thread: calls setters, and closes if that is its part.
  void Meddle(uint64_t seed);
  void CallSetter(Dice* dice);
  void CallNextSetter(Dice* dice);
  std::string EndStep();
  std::string CheckAfterEnd();
  int64_t MicrosecondsOpen() const;

  const uint64_t seed_;
  const int number_;
  std::atomic<int64_t> index_;
  std::atomic<int64_t> steps_{0};
  std::atomic<int64_t> bytes_{0};
  std::atomic<bool> isBack_{false};
  std::atomic<int64_t> stepStartMs_{0};

  mutable std::mutex mutex_;  // for plan_ and script_ while a step begins
  Plan plan_;
  std::shared_ptr<Script> script_;

  std::unique_ptr<origin::Server> server_;
  std::unique_ptr<Listener> listener_;
  HttpBase* handle_ = nullptr;
  std::vector<char> buffer_;
  Clock::time_point openedAt_;
  std::atomic<bool> isClosing_{false};
  std::atomic<bool> mayMeddle_{false};
  int emptyReads_ = 0;
};

}  // namespace flow::walk

#endif
