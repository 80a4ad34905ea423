#include "Leftovers.h"

#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

#include "Deadline.h"

namespace {

namespace fs = std::filesystem;
using Things = std::map<std::string, std::string>;

// Number to name of the threads of this process; empty where the system does not list them.
Things ListThreads() {
  Things threads;
  std::error_code error;
  for (fs::directory_iterator it("/proc/self/task", error), end; !error && it != end; it.increment(error)) {
    std::string name;
    std::ifstream(it->path() / "comm") >> name;
    threads[it->path().filename().string()] = name;
  }
  return threads;
}

// Random devices are kept open by libraries for the rest of the process.
bool StaysOpen(const std::string& descriptor) {
  return descriptor == "/dev/urandom" || descriptor == "/dev/random";
}

Things ListDescriptors() {
  Things descriptors;
  std::error_code error;
  for (fs::directory_iterator it("/proc/self/fd", error), end; !error && it != end; it.increment(error)) {
    std::error_code gone;
    const std::string what = fs::read_symlink(it->path(), gone).string();
    // What is gone at once, or is the listing of descriptors itself, was open for the listing only.
    const bool isListing = what.size() > 3 && what.compare(what.size() - 3, 3, "/fd") == 0;
    if (!gone && !isListing && !StaysOpen(what)) {
      descriptors[it->path().filename().string()] = what;
    }
  }
  return descriptors;
}

// Threads may rename themselves; a descriptor that means something else now is a new one.
std::string DescribeNewThreads(const Things& before) {
  std::string text;
  for (const auto& [number, name] : ListThreads()) {
    text += before.count(number) > 0 ? "" : "thread " + number + " (" + name + ")\n";
  }
  return text;
}

std::string DescribeNewDescriptors(const Things& before) {
  std::string text;
  for (const auto& [number, what] : ListDescriptors()) {
    const auto known = before.find(number);
    const bool isNew = known == before.end() || known->second != what;
    text += isNew ? "descriptor " + number + " (" + what + ")\n" : "";
  }
  return text;
}

}  // namespace

LeftoverSnapshot::LeftoverSnapshot(std::vector<Gauge> gauges) : gauges_(std::move(gauges)) {
  // The first thread of a process may bring one of the runtime with it that stays (ThreadSanitizer's does).
  std::thread([] {}).join();
  threads_ = ListThreads();
  descriptors_ = ListDescriptors();
  for (const Gauge& gauge : gauges_) {
    values_.push_back(gauge.read());
  }
}

std::string LeftoverSnapshot::Describe(int ms) const {
  std::string left;
  WaitUntil([&] { return (left = DescribeNow()).empty(); }, ms);
  return left;
}

std::string LeftoverSnapshot::DescribeNow() const {
  std::string text;
  for (size_t i = 0; i < gauges_.size(); ++i) {
    const int64_t now = gauges_[i].read();
    if (now != values_[i]) {
      text += gauges_[i].name + ": " + std::to_string(values_[i]) + " before, " + std::to_string(now) + " now\n";
    }
  }
  return text + DescribeNewThreads(threads_) + DescribeNewDescriptors(descriptors_);
}
