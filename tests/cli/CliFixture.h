// What the tests of zvhttp share: an origin in this process, an empty folder, and the program's path.
#ifndef TESTS_CLI_CLI_FIXTURE_H
#define TESTS_CLI_CLI_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Origin.h"
#include "Process.h"

constexpr uint64_t kMegabyte = 1000000;

class CliTest : public testing::Test {
 protected:
  CliTest();
  ~CliTest() override;

  // zvhttp with these arguments, to be run in the folder.
  ProcessSetup Zvhttp(std::vector<std::string> arguments) const;
  // Runs `zvhttp get --retry-delay 0` with further arguments to its end.
  ProcessResult Get(const std::vector<std::string>& arguments) const;
  // Puts a pattern of that length under the target and gives its URL.
  std::string PutPattern(const std::string& target, uint64_t bytes);

  std::string PathOf(const std::string& name) const;
  // The names of all files in the folder, hidden ones included, in order, each followed by a blank.
  std::string Files() const;
  std::string Contents(const std::string& name) const;
  void WriteFile(const std::string& name, const std::string& contents) const;

  origin::Server server_;

 private:
  std::string folder_;
};

// Expects the text to be the bytes of the pattern from first on, count of them.
void ExpectPattern(const std::string& text, uint64_t first, uint64_t count);

// Expects what every failure must look like: the exit code, one line on standard error that begins with the program's
// name, and in it the fragment.
void ExpectFailure(const ProcessResult& result, int exitCode, const std::string& fragment);

#endif
