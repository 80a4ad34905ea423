// The README's example as a process against nginx.
#include <gtest/gtest.h>

#include "Process.h"
#include "RealTest.h"

namespace {

ProcessResult RunExample(const std::string& target) {
  ProcessSetup setup;
  setup.arguments = {ZV_EXAMPLE_FETCH, Server().Url(Protocol::kHttp, target)};
  return RunProcess(setup);
}

TEST(RealExample, WritesTheFileToStandardOutput) {
  const ProcessResult result = RunExample("/media.bin");
  EXPECT_EQ(result.exitCode, 0) << result.error;
  EXPECT_TRUE(SameBytes(result.output, MediaBytes(0, Nginx::kMediaBytes - 1)));
}

TEST(RealExample, FailsForAMissingFile) {
  const ProcessResult result = RunExample("/missing.bin");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.error, "failed: 404\n");
}

}  // namespace
