#include <algorithm>
#include <memory>

#include "Pattern.h"
#include "RealTest.h"

namespace {

std::unique_ptr<Nginx> server;

// Makes the server once, before the first test, and stops it after the last.
class ServerEnvironment : public testing::Environment {
 public:
  void SetUp() override { server = std::make_unique<Nginx>(); }
  void TearDown() override { server.reset(); }
};

}  // namespace

Nginx& Server() {
  return *server;
}

std::string TargetOfTest(const std::string& path) {
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  return path + "?" + test->test_suite_name() + "." + test->name();
}

std::string NameOfWay(const testing::TestParamInfo<Way>& row) {
  return row.param.name;
}

testing::AssertionResult SameBytes(const std::string& got, const std::string& expected) {
  if (got == expected) {
    return testing::AssertionSuccess();
  }
  const size_t common = std::min(got.size(), expected.size());
  const auto at = std::mismatch(got.begin(), got.begin() + static_cast<int64_t>(common), expected.begin()).first;
  return testing::AssertionFailure() << got.size() << " bytes for " << expected.size() << ", the first wrong one at "
                                     << at - got.begin();
}

std::string MediaBytes(int64_t first, int64_t last) {
  std::string bytes(static_cast<size_t>(last - first + 1), '\0');
  origin::FillPattern(bytes.data(), static_cast<uint64_t>(first), bytes.size());
  return bytes;
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new ServerEnvironment);
  return RUN_ALL_TESTS();
}
