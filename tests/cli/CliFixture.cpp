#include "CliFixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Pattern.h"

namespace fs = std::filesystem;

CliTest::CliTest() {
  std::string name = testing::TempDir() + "zvhttp_cli_XXXXXX";
  EXPECT_NE(mkdtemp(name.data()), nullptr);
  folder_ = name;
}

CliTest::~CliTest() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

ProcessSetup CliTest::Zvhttp(std::vector<std::string> arguments) const {
  ProcessSetup setup;
  setup.arguments = std::move(arguments);
  setup.arguments.insert(setup.arguments.begin(), ZVHTTP_PATH);
  setup.directory = folder_;
  return setup;
}

ProcessResult CliTest::Get(const std::vector<std::string>& arguments) const {
  ProcessSetup setup = Zvhttp({"get", "--retry-delay", "0"});
  setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
  return RunProcess(setup);
}

std::string CliTest::PutPattern(const std::string& target, uint64_t bytes) {
  server_.Put(target, origin::PatternResource(bytes));
  return server_.Url(target);
}

std::string CliTest::PathOf(const std::string& name) const {
  return folder_ + "/" + name;
}

std::string CliTest::Files() const {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder_)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) {
    text += name + " ";
  }
  return text;
}

std::string CliTest::Contents(const std::string& name) const {
  std::ifstream file(PathOf(name), std::ios::binary);
  EXPECT_TRUE(file.is_open()) << name << " is missing; the folder has: " << Files();
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void CliTest::WriteFile(const std::string& name, const std::string& contents) const {
  std::ofstream(PathOf(name), std::ios::binary) << contents;
}

void ExpectPattern(const std::string& text, uint64_t first, uint64_t count) {
  ASSERT_EQ(text.size(), count);
  EXPECT_EQ(origin::FindPatternMismatch(text.data(), first, text.size()), text.size()) << "first wrong byte";
}

void ExpectFailure(const ProcessResult& result, int exitCode, const std::string& fragment) {
  EXPECT_EQ(result.exitCode, exitCode) << result.error;
  EXPECT_EQ(result.error.rfind("zvhttp: ", 0), 0u) << result.error;
  EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 1) << result.error;
  EXPECT_NE(result.error.find(fragment), std::string::npos) << result.error;
}
