// The n-th allocation, mutex, condition or thread fails, for every n, on the road from Init to Release. Whatever fails:
// nothing crashes or hangs, no wrong byte is delivered, nothing is left.
#include "SegPlayer.h"

namespace seg {
namespace {

using fault_platform::Kind;

class FaultTest : public SegTest {
 protected:
  FaultTest() : SegTest(LUM_LEVEL_NONE, 600), segments_(PutSegments(4, 60000)) {}

  // With a query, so that it is found whether or not its URL could be replaced.
  std::string Listed(const Segment& segment) const { return Url(segment) + "?x"; }

  // A player that insists. True when everything was read.
  bool PlayEverything(HttpBaseSegCache* handle, const std::atomic<int32_t>& failures) {
    std::vector<char> buffer(50000);
    for (const Segment& segment : segments_) {
      bool isRead = false;
      for (int tries = 0; tries < 4 && !isRead; ++tries) {
        const int32_t failuresBefore = failures.load();
        if (ZV_HttpBaseSegCacheOpen(handle, Listed(segment).c_str()) != 0) {
          return false;
        }
        isRead = ReadOne(handle, segment, &buffer, [&] { return failures.load() != failuresBefore; });
        ZV_HttpBaseSegCacheClose(handle);
      }
      if (!isRead) {
        return false;
      }
    }
    return true;
  }

  // One whole life; gives whether everything was read, or nothing could be made.
  bool Run() {
    const Leftovers leftovers(fault_platform::LiveGauges());
    std::atomic<int32_t> failures{0};
    const auto callback = [](void* userData, int32_t code) -> int32_t {
      *static_cast<std::atomic<int32_t>*>(userData) += code == kOk ? 0 : 1;
      return 0;
    };
    HttpBaseSegCache* handle = ZV_HttpBaseSegCacheInit(callback, &failures);
    if (handle == nullptr) {
      return false;
    }
    const std::string prefix = Prefix();
    const LocalCacheParam param = {40, prefix.c_str()};
    ZV_HttpBaseSegCacheSetThreadNumber(handle, 2);
    ZV_HttpBaseSegCacheSetLocalCache(handle, &param, 1);
    const char listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES] = {};
    ZV_HttpBaseSegCacheSetList(handle, listInfo, 4, 0);
    int listed = 0;
    for (const Segment& segment : segments_) {
      listed += ZV_HttpBaseSegCacheAddSegment(handle, Listed(segment).c_str(), 1000, 0, 0, 0, segment.seq) == 0 ? 1 : 0;
    }
    const std::string other = Url(segments_[3]) + "?one-that-is-longer";
    ZV_HttpBaseSegCacheUpdateTsUrlBySeq(handle, other.c_str(), 0, 3);
    const bool isUsable = listed == 4 || handle->isLocalCache.load() == 0;
    const bool isRead = isUsable && PlayEverything(handle, failures);
    ZV_HttpBaseSegCacheRelease(&handle);
    EXPECT_EQ(handle, nullptr);
    return isRead;
  }

  const std::vector<Segment> segments_;

 private:
  // True at the segment's end; false when isOver says that it has failed.
  static bool ReadOne(HttpBaseSegCache* handle, const Segment& segment, std::vector<char>* buffer,
                      const std::function<bool()>& isOver) {
    uint64_t position = 0;
    int32_t result = 1;
    const auto readOn = [&] {
      uint32_t n = 0;
      result = ZV_HttpBaseSegCacheRead(handle, buffer->data(), static_cast<int32_t>(buffer->size()), &n);
      EXPECT_TRUE(origin::CheckPattern(buffer->data(), position, n, segment.seed)) << segment.target;
      position += n;
      return result != 1 || isOver();
    };
    EXPECT_TRUE(WaitUntil(readOn, 30000)) << segment.target << " hangs at " << position;
    EXPECT_TRUE(result != 0 || position == segment.length || isOver()) << segment.target << " ends at " << position;
    return result == 0 && position == segment.length;
  }
};

class FaultOf : public FaultTest, public testing::WithParamInterface<Kind> {};

TEST_P(FaultOf, EachIsSurvived) {
  const Kind kind = GetParam();
  bool fires = true;
  for (int64_t n = 1; fires; n += kIsSanitized ? 5 : 1) {
    fault_platform::FailNth(kind, n);
    const bool isRead = Run();
    fires = fault_platform::Failed(kind) > 0;
    EXPECT_TRUE(fires || isRead);
    ASSERT_FALSE(HasFailure()) << fault_platform::NameOf(kind) << " " << n;
    ASSERT_LT(n, 3000);
  }
}

INSTANTIATE_TEST_SUITE_P(Platform, FaultOf,
                         testing::Values(Kind::kAllocation, Kind::kMutex, Kind::kCondition, Kind::kThread),
                         [](const auto& row) { return std::string(fault_platform::NameOf(row.param)); });

// What a worker does that gets no buffer: it is not counted any more, and another one does its work. A worker gets its
// buffer before its first segment, so the one that is lost here must rest.
TEST_F(FaultTest, AWorkerThatIsLostIsReplaced) {
  const auto player = NewPlayer(segments_, 1);
  for (const int32_t lost : {0, 1, 2, 3}) {
    ASSERT_TRUE(player->WaitUntilResting());
    EXPECT_EQ(player->Ask([lost](HttpBaseSegCache* cache) ZV_UNCHECKED {
      cache->threadIsLost[lost] = 1;
      LeaveUse(cache, lost);
      UseThreadsUpToMax(cache);
      return cache->threadInUse[lost + 1];
    }),
              1);
    const Segment& segment = segments_[static_cast<size_t>(lost)];
    EXPECT_EQ(player->Play(Url(segment), segment), "");
    EXPECT_EQ(player->Check(), "");
  }
}

}  // namespace
}  // namespace seg
