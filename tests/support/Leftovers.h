// Checks that a test leaves nothing behind: objects of the gauges, threads of the process, open descriptors. Make it
// before everything else of the test; its end fails the test and names what is left.
#ifndef TESTS_SUPPORT_LEFTOVERS_H
#define TESTS_SUPPORT_LEFTOVERS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Gauge.h"

class LeftoverSnapshot {
 public:
  explicit LeftoverSnapshot(std::vector<Gauge> gauges);
  // What is there now and was not before, one thing a line; "" when nothing is. Waits up to ms for things that are just
  // ending.
  std::string Describe(int ms = 2000) const;

 private:
  std::string DescribeNow() const;

  std::vector<Gauge> gauges_;
  std::vector<int64_t> values_;
  std::map<std::string, std::string> threads_;      // number to name
  std::map<std::string, std::string> descriptors_;  // number to what it is
};

class Leftovers {
 public:
  explicit Leftovers(std::vector<Gauge> gauges = {}) : snapshot_(std::move(gauges)) {}
  ~Leftovers() {
    const std::string left = snapshot_.Describe();
    if (!left.empty()) {
      ADD_FAILURE() << "left behind:\n" << left;
    }
  }
  Leftovers(const Leftovers&) = delete;
  Leftovers& operator=(const Leftovers&) = delete;

 private:
  LeftoverSnapshot snapshot_;
};

#endif
