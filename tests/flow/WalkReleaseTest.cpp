// Release without Close, again and again, in each state that a download can be in.
#include <algorithm>

#include "Download.h"
#include "ZVHttpBase/Records.h"

namespace flow {
namespace {

using origin::Answer;

constexpr int kTimes = 30;
constexpr int kStartMs = 10000;
constexpr uint64_t kLength = 8000000;  // more than the ring buffer holds
constexpr int64_t kStalledAt = 1000;

struct State {
  const char* name;
  Answer answer;
  // Waits until the download is there; false when it does not get there.
  bool (*isReached)(origin::Server* server, HttpBase* hb);
};

bool HasRead(HttpBase* hb) {
  char buffer[100];
  uint32_t n = 0;
  return ZV_HttpBaseRead(hb, buffer, sizeof buffer, &n) == 1 && n > 0 && origin::CheckPattern(buffer, 0, n);
}

bool AwaitsAnswer(origin::Server* server, HttpBase*) {
  return server->WaitForStalls(1, kStartMs);
}

bool IsReceiving(origin::Server*, HttpBase* hb) {
  return WaitUntil([hb] { return HasRead(hb); }, kStartMs);
}

bool HasPaused(origin::Server*, HttpBase* hb) {
  return WaitUntil(
      [hb] {
        return std::any_of(std::begin(hb->serviceThread), std::end(hb->serviceThread),
                           [](const HttpBaseServiceThread& record) { return IsPaused(&record); });
      },
      kStartMs);
}

bool IsStalled(origin::Server* server, HttpBase* hb) {
  return server->WaitForStalls(1, kStartMs) && IsReceiving(server, hb);
}

bool PausesBeforeRetry(origin::Server*, HttpBase* hb) {
  return WaitUntil([hb] { return hb->event.waiters[kEventStop].load() > 0; }, kStartMs);
}

Answer Slow() {
  Answer answer;
  answer.dripBytes = 2000;
  answer.dripMs = 1;
  return answer;
}

// One connection, so that a full ring buffer pauses it: several would only wait for their next range.
class ReleaseTest : public FlowTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(, ReleaseTest, testing::Values(1, 4),
                         [](const auto& row) { return std::to_string(row.param) + "Connections"; });

TEST_P(ReleaseTest, WithoutCloseInEachStateStopsAtOnce) {
  const State states[] = {
      {"waiting for the answer", origin::StallAt(origin::kBeforeAnswer), AwaitsAnswer},
      {"receiving", Slow(), IsReceiving},
      {"paused", Answer{}, HasPaused},
      {"stalled", origin::StallAt(kStalledAt), IsStalled},
      {"between attempts", origin::CutAt(origin::kBeforeAnswer), PausesBeforeRetry},
  };
  for (const State& state : states) {
    Put("/media", kLength);
    server_.Handle("/media", [&state](const origin::Request&) { return state.answer; });
    for (int i = 0; i < kTimes; ++i) {
      SCOPED_TRACE(std::string(state.name) + ", time " + std::to_string(i));
      Download download(GetParam(), 3);
      ZV_HttpBaseSetRetryDelay(download.Get(), 1000000);
      if (state.isReached == HasPaused) {
        ZV_HttpBaseSetRange(download.Get(), -1, kLength);  // over one connection
      }
      download.Open(server_.Url("/media"));
      ASSERT_TRUE(state.isReached(&server_, download.Get()));
      ASSERT_EQ(ZVIner_CheckRingBuffer(&download.Get()->ringBuffer), nullptr);
      const size_t codes = download.Codes().size();
      download.Release();
      EXPECT_LE(download.Codes().size(), codes + 1);
      EXPECT_EQ(download.Count(kFailed) + download.Count(kUnreachable), 0);
      log_.Clear();
    }
  }
}

}  // namespace
}  // namespace flow
