// The n-th allocation, mutex, condition or thread fails, for every n, on the road from Init to Release. Whatever fails:
// nothing crashes or hangs, no wrong byte is delivered, a download that is not complete is reported, nothing is left.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "Origin.h"
#include "ZVHttpBase.h"

namespace {

using fault_platform::Kind;

constexpr uint64_t kMediaBytes = 1300000;
constexpr uint64_t kLargeBytes = 5000000;  // more than a fresh buffer holds
constexpr int kTimeScale = 20;
constexpr int kServiceThreads = 5;

// What a player does between Init and Open, and what it opens.
struct Scenario {
  const char* name;
  const char* target;  // null: nothing
  uint64_t bytes;
  void (*prepare)(HttpBase*);
};

void SetThreeConnections(HttpBase* hb) {
  ZV_HttpBaseSetDownloadThreadNum(hb, 3);
  ZV_HttpBaseSetDownloadSegLen(hb, 204800);
}

void SetWhole(HttpBase* hb) {
  ZV_HttpBaseSetNeedDownloadComplete(hb, 0);
}

void SetEverything(HttpBase* hb) {
  SetThreeConnections(hb);
  ZV_HttpBaseSetUserAgent(hb, "Agent/1");
  ZV_HttpBaseSetDevice(hb, "127.0.0.1");
  ZV_HttpBaseSetReqHeader(hb, "X-Extra: 1");
  ZV_HttpBaseSetRespKey(hb, "Content-Type");
  ZV_HttpBaseSetRespKey(hb, "Content-Length");
}

const Scenario kScenarios[] = {
    {"nothing", nullptr, 0, [](HttpBase*) {}},
    {"one connection", "/media", kMediaBytes, [](HttpBase*) {}},
    {"three connections", "/media", kMediaBytes, SetThreeConnections},
    {"whole resource", "/large", kLargeBytes, SetWhole},
    {"whole resource of unknown length", "/chunked", kLargeBytes, SetWhole},
    {"redirected", "/moved", kMediaBytes, SetThreeConnections},
    {"settings and response keys", "/media", kMediaBytes, SetEverything},
};

void Serve(origin::Server* server) {
  server->Put("/media", origin::PatternResource(kMediaBytes));
  server->Put("/large", origin::PatternResource(kLargeBytes));
  server->Put("/chunked", origin::PatternResource(kLargeBytes));
  server->Handle("/chunked", [](const origin::Request&) {
    origin::Answer answer;
    answer.chunkBytes = 50000;
    return answer;
  });
  server->Handle("/moved", [](const origin::Request&) { return origin::Redirect("/media"); });
}

class Codes {
 public:
  static int32_t Receive(void* self, int32_t code) {
    Codes* const codes = static_cast<Codes*>(self);
    const std::lock_guard<std::mutex> guard(codes->mutex_);
    codes->codes_.push_back(code);
    return 0;
  }
  std::vector<int32_t> Take() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::move(codes_);
  }

 private:
  std::mutex mutex_;
  std::vector<int32_t> codes_;  // under mutex_
};

// Reads to the end; the number of bytes, which must be the first of the pattern.
uint64_t ReadAll(HttpBase* hb) {
  static std::vector<char> block(200000);
  uint64_t total = 0;
  const auto readOn = [&] {
    uint32_t count = 0;
    int32_t result = 1;
    do {
      result = ZV_HttpBaseRead(hb, block.data(), static_cast<uint32_t>(block.size()), &count);
      EXPECT_TRUE(origin::CheckPattern(block.data(), total, count)) << "at " << total;
      total += count;
    } while (result == 1 && count > 0);
    EXPECT_GE(result, 0);
    return result <= 0;
  };
  EXPECT_TRUE(WaitUntil(readOn, 60000)) << "no end";
  return total;
}

// One download on the handle; checks that it was complete or reported.
bool Download(HttpBase* hb, Codes* codes, const std::string& url, uint64_t bytes) {
  EXPECT_EQ(0, ZV_HttpBaseOpen(hb, url.c_str()));
  const uint64_t got = ReadAll(hb);
  EXPECT_EQ(0, ZV_HttpBaseClose(hb));
  const std::vector<int32_t> seen = codes->Take();
  const bool failed = std::count(seen.begin(), seen.end(), ZV_HTTP_CODE_FAILED) +
                          std::count(seen.begin(), seen.end(), ZV_HTTP_CODE_UNREACHABLE) >
                      0;
  EXPECT_TRUE(failed || got == bytes) << got << " of " << bytes << " bytes and no word about it";
  return got == bytes;
}

class Fault : public testing::Test {
 protected:
  Fault() {
    Serve(&server_);
    fault_platform::SetTimeScale(kTimeScale);
  }
  ~Fault() override { fault_platform::Reset(); }

  // From Init to Release; gives whether every byte came. What fails once must not spoil the handle: with mayRecover a
  // second download without faults must be complete.
  bool Run(const Scenario& scenario, bool mayRecover) {
    const Watchdog watchdog(100, scenario.name);
    const Leftovers leftovers(fault_platform::LiveGauges());
    Codes codes;
    HttpBase* hb = ZV_HttpBaseInit(Codes::Receive, &codes);
    if (hb == nullptr) {
      return false;
    }
    ZV_HttpBaseSetRetryDelay(hb, 0);
    scenario.prepare(hb);
    const bool complete =
        scenario.target == nullptr || Download(hb, &codes, server_.Url(scenario.target), scenario.bytes);
    if (mayRecover) {
      fault_platform::FailNothing();
      EXPECT_TRUE(Download(hb, &codes, server_.Url("/media"), kMediaBytes)) << "the handle is spoilt";
    }
    ZV_HttpBaseRelease(&hb);
    EXPECT_EQ(nullptr, hb);
    return complete;
  }

  origin::Server server_;
};

class FaultOf : public Fault, public testing::WithParamInterface<Kind> {};

TEST_P(FaultOf, EachIsSurvivedAndReported) {
  const Kind kind = GetParam();
  for (const Scenario& scenario : kScenarios) {
    bool fires = true;
    for (int64_t n = 1; fires; ++n) {
      fault_platform::FailNth(kind, n);
      const bool complete = Run(scenario, kind == Kind::kAllocation);
      fires = fault_platform::Failed(kind) > 0;
      EXPECT_TRUE(fires || complete);
      ASSERT_FALSE(HasFailure()) << scenario.name << ", " << fault_platform::NameOf(kind) << " " << n;
      ASSERT_LT(n, 2000);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Platform, FaultOf,
                         testing::Values(Kind::kAllocation, Kind::kMutex, Kind::kCondition, Kind::kThread),
                         [](const auto& row) { return std::string(fault_platform::NameOf(row.param)); });

TEST_F(Fault, AThreadThatCannotBeMadeLeavesItsWorkToTheOthers) {
  for (const Scenario& scenario : kScenarios) {
    for (int64_t n = 1; n <= kServiceThreads; ++n) {
      fault_platform::FailNth(Kind::kThread, n);
      EXPECT_TRUE(Run(scenario, false)) << scenario.name << " without thread " << n;
    }
  }
}

// The first condition is the handle's own, the last the monitor's; each between is a connection's, and those behind the
// one that fails are not made.
TEST_F(Fault, WithoutAnyConnectionADownloadFailsAndEnds) {
  for (int64_t n = 2; n <= kServiceThreads + 1; ++n) {
    fault_platform::FailNth(Kind::kCondition, n);
    EXPECT_EQ(n > 2, Run(kScenarios[2], false)) << n;
    EXPECT_EQ(1, fault_platform::Failed(Kind::kCondition)) << n;
  }
}

// ---- The memory of libcurl ----

std::atomic<int64_t> curlCountdown{0};  // 0: nothing fails
std::atomic<bool> curlFailed{false};

bool CurlFails() {
  if (curlCountdown.load() > 0 && curlCountdown.fetch_sub(1) == 1) {
    curlFailed.store(true);
    return true;
  }
  return false;
}

void* CurlMalloc(size_t bytes) {
  return CurlFails() ? nullptr : malloc(bytes);
}

void* CurlCalloc(size_t count, size_t bytes) {
  return CurlFails() ? nullptr : calloc(count, bytes);
}

void* CurlRealloc(void* block, size_t bytes) {
  return CurlFails() ? nullptr : realloc(block, bytes);
}

char* CurlStrdup(const char* text) {
  return CurlFails() ? nullptr : strdup(text);
}

TEST_F(Fault, MemoryThatLibcurlDoesNotGetIsSurvivedAndReported) {
  ASSERT_EQ(CURLE_OK, curl_global_init_mem(CURL_GLOBAL_ALL, CurlMalloc, free, CurlRealloc, CurlStrdup, CurlCalloc));
  for (const Scenario& scenario : {kScenarios[4], kScenarios[5]}) {
    bool fires = true;
    // There are hundreds: all of the first ones, where the handles are made, then some of what repeats itself.
    for (int64_t n = 1; fires && !HasFailure(); n += 1 + n / 64) {
      curlFailed.store(false);
      curlCountdown.store(n);
      const bool complete = Run(scenario, false);
      curlCountdown.store(0);
      fires = curlFailed.load();
      EXPECT_TRUE(fires || complete);
      EXPECT_FALSE(HasFailure()) << scenario.name << ", allocation " << n << " of libcurl";
    }
  }
  curl_global_cleanup();
}

}  // namespace
