// A number that must be at the end of a test what it was at its start.
#ifndef TESTS_SUPPORT_GAUGE_H
#define TESTS_SUPPORT_GAUGE_H

#include <cstdint>
#include <functional>
#include <string>

struct Gauge {
  std::string name;
  std::function<int64_t()> read;
};

#endif
