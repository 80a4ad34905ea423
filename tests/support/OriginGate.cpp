#include <condition_variable>
#include <mutex>

#include "Origin.h"

namespace origin {

struct Gate::State {
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  bool isOpen = false;
  std::vector<std::pair<const void*, std::function<void()>>> waiting;
};

Gate::Gate() : state_(std::make_unique<State>()) {}
Gate::~Gate() = default;

void Gate::Open() {
  {
    std::lock_guard<std::mutex> guard(state_->mutex);
    state_->isOpen = true;
  }
  ReleaseWaiting();
}

void Gate::Close() {
  std::lock_guard<std::mutex> guard(state_->mutex);
  state_->isOpen = false;
}

void Gate::ReleaseWaiting() {
  decltype(state_->waiting) released;
  {
    std::lock_guard<std::mutex> guard(state_->mutex);
    released.swap(state_->waiting);
  }
  for (const auto& [who, resume] : released) {
    resume();
  }
}

int Gate::Waiting() const {
  std::lock_guard<std::mutex> guard(state_->mutex);
  return static_cast<int>(state_->waiting.size());
}

bool Gate::AwaitWaiting(int count, int ms) const {
  std::unique_lock<std::mutex> held(state_->mutex);
  return state_->changed.wait_for(held, std::chrono::milliseconds(ms),
                                  [&] { return static_cast<int>(state_->waiting.size()) >= count; });
}

bool Gate::PassOrWait(const void* who, std::function<void()> resume) {
  std::lock_guard<std::mutex> guard(state_->mutex);
  if (state_->isOpen) {
    return true;
  }
  state_->waiting.emplace_back(who, std::move(resume));
  state_->changed.notify_all();
  return false;
}

void Gate::Forget(const void* who) {
  std::lock_guard<std::mutex> guard(state_->mutex);
  std::erase_if(state_->waiting, [&](const auto& waiter) { return waiter.first == who; });
}

}  // namespace origin
