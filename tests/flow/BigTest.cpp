// Media larger than 32 bits can count, over all connections, in constant memory.
#include <gtest/gtest.h>

#include <fstream>

#include "Download.h"

#if defined(__has_feature)
#define BIG_HAS_FEATURE(x) __has_feature(x)
#else
#define BIG_HAS_FEATURE(x) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || BIG_HAS_FEATURE(address_sanitizer) || \
    BIG_HAS_FEATURE(thread_sanitizer)
#define BIG_IS_SANITIZED 1
#else
#define BIG_IS_SANITIZED 0
#endif

namespace flow {
namespace {

constexpr uint64_t kHuge = 5368709120;
// Sanitizers are slow, and count more memory than there is.
constexpr bool kIsSanitized = BIG_IS_SANITIZED != 0;
constexpr uint64_t kLength = kIsSanitized ? 268435456 : kHuge;
constexpr uint64_t kWarmUpBytes = 67108864;
constexpr uint64_t kMostGrowth = 16777216;
constexpr int kSeconds = 400;
constexpr uint32_t kReadBytes = 1048576;
constexpr int32_t kMostSegLen = 716800;

// Of this process, 0 where the system does not tell.
uint64_t ResidentBytes() {
  constexpr uint64_t kPageBytes = 4096;
  uint64_t all = 0;
  uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * kPageBytes;
}

// Without the log of FlowTest, which would grow.
class BigTest : public testing::Test {
 protected:
  const Leftovers leftovers_{fault_platform::LiveGauges()};
  const Watchdog watchdog_{kSeconds, "a big test"};
  origin::Server server_;
};

TEST_F(BigTest, FiveGigabytesPassInConstantMemory) {
  const origin::Resource media = origin::PatternResource(kLength);
  server_.Put("/media", media);
  Download download(5);
  ZV_HttpBaseSetDownloadSegLen(download.Get(), kMostSegLen);
  download.Open(server_.Url("/media"));
  uint64_t resident = 0;
  for (uint64_t done = 0; done < kLength; done += kWarmUpBytes) {
    ASSERT_EQ(download.ReadSome(media, done, kWarmUpBytes, kReadBytes), "");
    server_.ClearLog();
    resident = done == 0 ? ResidentBytes() : resident;
    if (!kIsSanitized) {
      ASSERT_LE(ResidentBytes(), resident + kMostGrowth) << "after " << done;
    }
  }
  EXPECT_EQ(download.ReadAll(media, kLength), Right(0));
  EXPECT_EQ(ZV_HttpBaseGetContentLength(download.Get()), static_cast<int64_t>(kLength));
  EXPECT_THAT(download.Codes(), testing::ElementsAre(kOk));
}

TEST_F(BigTest, PositionsBehindFourGigabytesAreReached) {
  struct {
    int64_t start;
    int64_t end;
    uint64_t first;
    uint64_t count;
  } const rows[] = {{4294967295, 4294967296, 4294967295, 2},
                    {4294000000, 4297000000, 4294000000, 3000001},
                    {5368000000, -1, 5368000000, 709120},
                    {5368709119, 9000000000, 5368709119, 1},
                    {-1, 3000000, kHuge - 3000000, 3000000}};
  const origin::Resource media = origin::PatternResource(kHuge, 3);
  server_.Put("/media", media);
  for (const auto& row : rows) {
    for (const int connections : {1, 5}) {
      SCOPED_TRACE(std::to_string(row.start) + " to " + std::to_string(row.end));
      Download download(connections);
      ZV_HttpBaseSetRange(download.Get(), row.start, row.end);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media, row.first), Right(row.count));
      EXPECT_EQ(ZV_HttpBaseGetContentLength(download.Get()), static_cast<int64_t>(kHuge));
      EXPECT_THAT(download.Codes(), testing::ElementsAre(kOk));
    }
  }
}

}  // namespace
}  // namespace flow
