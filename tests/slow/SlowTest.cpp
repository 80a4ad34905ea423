// Connections that fall silent. Only time tells that one is dead, and the library's limits are fixed, so this takes them:
// everything that can happen meanwhile is watched at once.
#include "../flow/Download.h"
#include "ZVHttpBase/Records.h"

namespace flow {
namespace {

using testing::ElementsAre;

constexpr uint64_t kLength = 40 * uint64_t{kSegLen};  // several times the ring buffer
constexpr int64_t kSilentBytes = 70000;
constexpr int kNoticedMs = 60000;  // the limit is 20 s; the rest is for a busy machine

using SlowTest = FlowTest;

// The name instead of the address: the limit is longer for a server that the player itself runs on 127.0.0.1.
std::string FarUrl(const origin::Server& server, const std::string& target) {
  std::string url = server.Url(target);
  return url.replace(url.find("127.0.0.1"), strlen("127.0.0.1"), "localhost");
}

TEST_F(SlowTest, ASilentServerIsNoticedAndAPausedTransferIsNotTakenForOne) {
  const origin::Resource media = Put("/paused", kLength);
  Put("/silent", kLength);
  Put("/silent-after-pause", kLength);
  server_.Script("/silent", {origin::StallAt(kSilentBytes)});
  server_.Script("/silent-after-pause", {origin::StallAt(kLength - 1000)});

  Download paused;
  paused.Open(FarUrl(server_, "/paused"));
  ASSERT_TRUE(log_.WaitFor("set stream pause"));
  log_.Clear();
  Download resumed;
  resumed.Open(FarUrl(server_, "/silent-after-pause"));
  ASSERT_TRUE(log_.WaitFor("set stream pause"));
  ASSERT_EQ(resumed.ReadSome(media, 0, kLength - 1000), "");
  ASSERT_TRUE(server_.WaitForStalls(1));
  Download silent;
  silent.Open(FarUrl(server_, "/silent"));

  EXPECT_TRUE(resumed.WaitForCode(kUnreachable, kNoticedMs)) << "the limit was not set again after the pause";
  EXPECT_TRUE(silent.WaitForCode(kUnreachable, kNoticedMs));
  EXPECT_EQ(silent.ReadAll(media), Right(kSilentBytes));
  EXPECT_EQ(resumed.ReadAll(media, kLength - 1000), Right(0));
  EXPECT_THAT(paused.Codes(), ElementsAre(kOk)) << "a paused transfer was taken for a silent one";
  EXPECT_EQ(paused.ReadAll(media), Right(kLength));
}

}  // namespace
}  // namespace flow
