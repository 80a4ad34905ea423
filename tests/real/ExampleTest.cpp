// The README's examples as processes against nginx.
#include <gtest/gtest.h>

#include <filesystem>

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

TEST(RealExample, PlaysSeeksAndLeavesNoFile) {
  const std::filesystem::path files = Server().Folder() + "/example_play";
  std::filesystem::create_directory(files);
  ProcessSetup setup;
  setup.arguments = {ZV_EXAMPLE_PLAY, Server().Url(Protocol::kHttp, "/media.bin"), files.string() + "/", "60000"};
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 0) << result.error;
  const std::string whole = MediaBytes(0, Nginx::kMediaBytes - 1);
  EXPECT_TRUE(SameBytes(result.output, whole.substr(0, 1000000) + whole.substr(1000)));
  EXPECT_EQ(result.error, "from 1000: " + std::to_string(Nginx::kMediaBytes - 1000) + " bytes\n");
  EXPECT_TRUE(std::filesystem::is_empty(files));
}

TEST(RealExample, PlaysSegmentsInTheirOrderAndLeavesNoFile) {
  const std::filesystem::path files = Server().Folder() + "/example_playlist";
  std::filesystem::create_directory(files);
  ProcessSetup setup;
  setup.arguments = {ZV_EXAMPLE_PLAYLIST, files.string() + "/"};
  for (const char* target : {"/media.bin", "/text.txt", "/media.bin?again"}) {
    setup.arguments.push_back(Server().Url(Protocol::kHttp, target));
    setup.arguments.emplace_back("2000");
  }
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 0) << result.error;
  const std::string media = MediaBytes(0, Nginx::kMediaBytes - 1);
  EXPECT_TRUE(SameBytes(result.output, media + TextOfTheServer() + media));
  EXPECT_TRUE(std::filesystem::is_empty(files));
}

TEST(RealExample, PlaylistEndsAtAMissingSegment) {
  ProcessSetup setup;
  setup.arguments = {ZV_EXAMPLE_PLAYLIST, Server().Folder() + "/"};
  for (const char* target : {"/text.txt", "/missing.bin", "/text.txt"}) {
    setup.arguments.push_back(Server().Url(Protocol::kHttp, target));
    setup.arguments.emplace_back("2000");
  }
  const ProcessResult result = RunProcess(setup);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(SameBytes(result.output, TextOfTheServer()));
  EXPECT_NE(result.error.find("failed: 404\n"), std::string::npos) << result.error;
}

}  // namespace
