// Slow readers and failures in the middle: nothing is lost, nothing behind a hole is delivered.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#if defined(__linux__)
#include <unistd.h>
#endif

#include "Download.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;

constexpr uint64_t kRingBytes = 4194304;
constexpr uint64_t kLong = 5 * kRingBytes + 321;

// Threads of ThreadSanitizer's own wake up now and then.
#if defined(__linux__) && !defined(__SANITIZE_THREAD__)
#define ZV_COUNTS_SWITCHES
// How often the kernel has taken the threads of the process but this one from a core, or been given it back.
int64_t SwitchesOfOtherThreads() {
  const std::string own = std::to_string(gettid());
  int64_t sum = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string line; task.path().filename() != own && std::getline(status, line);) {
      const size_t at = line.find("ctxt_switches:");
      sum += at == std::string::npos ? 0 : std::stoll(line.substr(at + sizeof "ctxt_switches:" - 1));
    }
  }
  return sum;
}
#endif

class ReaderTest : public FlowTest {
 protected:
  // Waits until the server's answers stand still because nobody reads.
  bool WaitForFullRing() { return log_.WaitFor("set stream pause"); }
};

TEST_F(ReaderTest, AFullRingPausesTheTransferAndEachFreedFragmentResumesIt) {
  const origin::Resource media = Put("/media", kLong);
  Download download;
  download.Open(server_.Url("/media"));
  uint64_t done = 0;
  for (int round = 0; round < 5; ++round) {
    ASSERT_TRUE(WaitForFullRing());
    log_.Clear();
    ASSERT_EQ(download.ReadSome(media, done, 2 * kSegLen), "");
    done += 2 * kSegLen;
  }
  EXPECT_EQ(download.ReadAll(media, done), Right(kLong - done));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  EXPECT_EQ(server_.RequestCount(), 1);
}

// Were a paused transfer only resumed by a poll of once a second, this would take a minute.
TEST_F(ReaderTest, APausedTransferResumesAtOnce) {
  const origin::Resource media = Put("/media", 70 * uint64_t{kSegLen});
  Download download;
  download.Open(server_.Url("/media"));
  uint64_t done = 0;
  const Stopwatch watch;
  while (done + kSegLen < media.length) {
    ASSERT_TRUE(done + kRingBytes + kSegLen > media.length || WaitForFullRing());
    log_.Clear();
    ASSERT_EQ(download.ReadSome(media, done, kSegLen), "");
    done += kSegLen;
  }
  EXPECT_EQ(download.ReadAll(media, done), Right(kSegLen));
  EXPECT_LT(watch.Ms(), 20000);
}

#if defined(ZV_COUNTS_SWITCHES)
// A player may pause for hours; a poll of once a second would wake the processor all that time.
TEST_F(ReaderTest, APausedTransferRests) {
  constexpr auto kRest = std::chrono::milliseconds(2500);
  Put("/media", kLong);
  Download download;
  download.Open(server_.Url("/media"));
  ASSERT_TRUE(WaitForFullRing());
  int64_t switches = SwitchesOfOtherThreads();
  auto since = std::chrono::steady_clock::now();
  EXPECT_TRUE(WaitUntil(
      [&] {
        const int64_t now = SwitchesOfOtherThreads();
        since = now == switches ? since : std::chrono::steady_clock::now();
        switches = now;
        return std::chrono::steady_clock::now() - since >= kRest;
      },
      20000));
}
#endif

TEST_F(ReaderTest, ASlowReaderOfSeveralConnectionsGetsEveryByte) {
  const origin::Resource media = Put("/media", kLong);
  for (const int connections : {2, 5}) {
    for (const int32_t segLen : {kSegLen, 716800}) {
      Download download(connections);
      ZV_HttpBaseSetDownloadSegLen(download.Get(), segLen);
      download.Open(server_.Url("/media"));
      ASSERT_TRUE(download.WaitForCode(kOk));
      uint64_t done = 0;
      for (uint64_t i = 0; i < 40; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(download.ReadSome(media, done, 10007 * i), "");
        done += 10007 * i;
      }
      EXPECT_EQ(download.ReadAll(media, done, 777777), Right(kLong - done));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    }
  }
}

TEST_F(ReaderTest, TheOpenEndedRestOfAResourceSpillsRoundTheRing) {
  const origin::Resource media = Put("/media", kLong);
  server_.Handle("/media", [](const Request& request) {
    const int64_t last = request.last < 0 ? static_cast<int64_t>(kLong) - 1 : request.last;
    Answer answer;
    answer.headers = {{"Content-Range", "bytes " + std::to_string(request.first) + "-" + std::to_string(last) + "/*"}};
    return answer;
  });
  Download download(3);
  download.Open(server_.Url("/media"));
  ASSERT_TRUE(WaitForFullRing());
  EXPECT_EQ(download.ReadAll(media), Right(kLong));
  EXPECT_THAT(RangesOf("/media"), ElementsAre("0-204799", "204800-"));
}

// The second of two connections writes everything behind the first range, which comes last.
TEST_F(ReaderTest, TheRestOfAResourceWaitsForItsFirstRange) {
  const origin::Resource media = Put("/media", kLong);
  auto gate = std::make_shared<origin::Gate>();
  server_.Handle("/media", [gate](const Request& request) {
    Answer answer;
    answer.ignoreRange = true;
    if (request.first == 0) {
      answer.gate = gate;
      answer.gateAt = 100;
    }
    return answer;
  });
  Download download(3);
  download.Open(server_.Url("/media"));
  ASSERT_TRUE(WaitForFullRing());
  EXPECT_EQ(download.ReadSome(media, 0, 100), "");
  gate->Open();
  EXPECT_EQ(download.ReadAll(media, 100), Right(kLong - 100));
  EXPECT_EQ(server_.RequestCount(), 2);
}

TEST_F(ReaderTest, ReadsOfOneByteDeliverTheSame) {
  const origin::Resource media = Put("/media", 2 * kSegLen + 3);
  for (const int connections : {1, 3}) {
    Download download(connections);
    download.Open(server_.Url("/media"));
    ASSERT_EQ(download.ReadSome(media, 0, 20000, 1), "");
    EXPECT_EQ(download.ReadAll(media, 20000, 3), Right(media.length - 20000));
  }
}

TEST_F(ReaderTest, ReadGivesTheEndAgainAndAgain) {
  const origin::Resource media = Put("/media", 1000);
  Download download;
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(1000));
  char byte = 0;
  for (int i = 0; i < 10; ++i) {
    uint32_t n = 1;
    EXPECT_EQ(ZV_HttpBaseRead(download.Get(), &byte, 1, &n), 0);
    EXPECT_EQ(n, 0U);
  }
}

class HoleTest : public FlowTest {
 protected:
  static constexpr uint64_t kLength = 10 * kSegLen + 99;
};

TEST_F(HoleTest, NothingBehindAFailedRangeIsDelivered) {
  const origin::Resource media = Put("/media", kLength);
  for (const int64_t failing : {0, 1, 3, 7, 10}) {
    for (const int64_t arrived : {0, 70, 99}) {
      for (const int connections : {2, 3, 5}) {
        SCOPED_TRACE("range " + std::to_string(failing) + " at " + std::to_string(arrived));
        if (failing == 10 && arrived == 99) {
          continue;  // then all of it is there
        }
        server_.Handle("/media", [=](const Request& request) {
          return request.first >= failing * kSegLen && request.first < (failing + 1) * kSegLen
                     ? origin::CutAt(failing * kSegLen + arrived - request.first)
                     : Answer{};
        });
        Download download(connections, 1);
        download.Open(server_.Url("/media"));
        EXPECT_EQ(download.ReadAll(media), Right(static_cast<uint64_t>(failing * kSegLen + arrived)));
        EXPECT_EQ(download.Count(kFailed), 1);
        EXPECT_EQ(download.Codes().back(), kFailed);
      }
    }
  }
}

// The connection before the hole is still at work when the failure is found: it may finish.
TEST_F(HoleTest, RangesBeforeAFailedOneFinishAndThoseBehindAreStopped) {
  const origin::Resource media = Put("/media", kLength);
  auto gate = std::make_shared<origin::Gate>();
  auto failure = std::make_shared<origin::Gate>();
  server_.Handle("/media", [gate, failure](const Request& request) {
    Answer answer;
    if (request.first == 0) {
      answer.gate = gate;
      answer.gateAt = 1000;
    } else if (request.first == kSegLen) {
      answer.gate = failure;
      answer.resetAt = 5;
    } else {
      answer.stallAt = 10;
    }
    return answer;
  });
  Download download(5);
  download.Open(server_.Url("/media"));
  ASSERT_TRUE(gate->AwaitWaiting(1));
  ASSERT_TRUE(WaitUntil([this] { return server_.RequestCount() == 5; }));
  failure->Open();
  ASSERT_TRUE(log_.WaitFor("get signal to stop downloading"));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
  gate->Open();
  EXPECT_EQ(download.ReadAll(media), Right(kSegLen + 5));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk, kFailed));
}

TEST_F(HoleTest, SeveralFailuresAreReportedOnce) {
  const origin::Resource media = Put("/media", kLength);
  server_.Handle("/media", [](const Request& request) { return request.first == 0 ? Answer{} : origin::ResetAt(7); });
  Download download(5, 1);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kSegLen + 14));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk, kFailed));
}

TEST_F(HoleTest, AServerThatDiesDuringADownloadEndsItWithTheBytesBeforeTheHole) {
  const origin::Resource media = origin::PatternResource(kLong);
  for (const int connections : {1, 3, 5}) {
    auto server = std::make_unique<origin::Server>();
    server->Put("/media", media);
    Download download(connections, 1);
    download.Open(server->Url("/media"));
    ASSERT_TRUE(download.WaitForCode(kOk));
    ASSERT_EQ(download.ReadSome(media, 0, 50000), "");
    server.reset();
    EXPECT_THAT(download.ReadAll(media, 50000), testing::HasSubstr(" right bytes, end"));
    EXPECT_THAT(download.Codes(), ElementsAre(kOk, testing::AnyOf(kFailed, kUnreachable)));
  }
}

}  // namespace
}  // namespace flow
