// The one server of all tests here. It stops with the program.
#ifndef TESTS_REAL_REAL_TEST_H
#define TESTS_REAL_REAL_TEST_H

#include <gtest/gtest.h>

#include <string>

#include "Nginx.h"

Nginx& Server();

// A target of its own for the running test, so that its lines of the access log can be told from those of others.
std::string TargetOfTest(const std::string& path);

// How a test is run: over which protocol, with how many connections.
struct Way {
  const char* name;
  Protocol protocol;
  const char* version;  // as the access log has it
  int connections;
};

constexpr Way kWays[] = {
    {"Http1", Protocol::kHttp, "HTTP/1.1", 1},     {"Http5", Protocol::kHttp, "HTTP/1.1", 5},
    {"Https1", Protocol::kHttps, "HTTP/1.1", 1},   {"Https5", Protocol::kHttps, "HTTP/1.1", 5},
    {"HttpTwo1", Protocol::kHttp2, "HTTP/2.0", 1}, {"HttpTwo5", Protocol::kHttp2, "HTTP/2.0", 5},
};

std::string NameOfWay(const testing::TestParamInfo<Way>& row);

// Whether two long texts are the same; the message names the first difference instead of printing both.
testing::AssertionResult SameBytes(const std::string& got, const std::string& expected);

// The bytes [first, last] of media.bin.
std::string MediaBytes(int64_t first, int64_t last);

#endif
