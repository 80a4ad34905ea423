// zvhttp as a process against nginx.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Process.h"
#include "RealTest.h"

namespace {

constexpr int64_t kMedia = Nginx::kMediaBytes;

std::string Contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

class RealProgram : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override { std::filesystem::remove(output_); }

  const std::string output_ = Server().Folder() + "/output.bin";
};

INSTANTIATE_TEST_SUITE_P(Ways, RealProgram, testing::ValuesIn(kWays), NameOfWay);

ProcessResult Get(const Way& way, const std::string& target, const std::vector<std::string>& further) {
  ProcessSetup setup;
  setup.arguments = {ZV_ZVHTTP, "get", Server().Url(way.protocol, target), "-n", std::to_string(way.connections)};
  setup.arguments.insert(setup.arguments.end(), further.begin(), further.end());
  return RunProcess(setup);
}

TEST_P(RealProgram, GetsAFile) {
  const ProcessResult result = Get(GetParam(), "/media.bin", {"-o", output_, "--quiet"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output + result.error, "");
  EXPECT_TRUE(SameBytes(Contents(output_), MediaBytes(0, kMedia - 1)));
}

TEST_P(RealProgram, WritesARangeToStandardOutputAndNothingElse) {
  const ProcessResult result = Get(GetParam(), "/media.bin", {"-o", "-", "--range", "1000001-4999999", "--stats"});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  EXPECT_TRUE(SameBytes(result.output, MediaBytes(1000001, 4999999)));
}

TEST_P(RealProgram, FailsInOneLineForAMissingFileAndLeavesNoFile) {
  const ProcessResult result = Get(GetParam(), "/missing.bin", {"-o", output_, "--quiet"});
  EXPECT_EQ(result.exitCode, 4);
  EXPECT_THAT(result.error, testing::MatchesRegex("[^\n]*404[^\n]*\n"));
  EXPECT_FALSE(std::filesystem::exists(output_));
}

}  // namespace
