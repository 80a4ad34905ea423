// The shared libraries themselves, on any system: what a player does on its first day. The other tests are linked with the
// library's objects; this program loads the libraries as a player would. It brings its origin along; URLs of another one,
// which hold the pattern of seed 0, may be given in ZV_SMOKE_URLS, separated by spaces: so HTTPS is tried where the origin
// has none.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Deadline.h"
#include "Origin.h"
#include "TestFolder.h"
#include "ZVBase.h"
#include "ZVHttpBase.h"
#include "ZVHttpBaseCache.h"
#include "ZVHttpBaseSegCache.h"

namespace {

constexpr uint64_t kMediaBytes = 20000000;
constexpr int kReadMs = 120000;

// What a message callback has told: the last code, 0 before.
struct Told {
  std::atomic<int32_t> code{0};
  static int32_t Take(void* self, int32_t code) {
    static_cast<Told*>(self)->code.store(code);
    return 0;
  }
};

// One call of a reading function: its result, and the count through the pointer.
using ReadCall = std::function<int32_t(char* buffer, uint32_t size, uint32_t* count)>;

// Reads until position end, or the end of the stream, and checks every byte. Gives the position, or -1 for a wrong byte.
int64_t ReadTo(const ReadCall& read, uint64_t position, uint64_t end, uint32_t seed = 0) {
  std::vector<char> buffer(200000);
  bool isWrong = false;
  WaitUntil(
      [&] {
        int32_t result = 1;
        uint32_t count = 1;
        while (result == 1 && count > 0 && position < end && !isWrong) {
          const uint64_t size = std::min<uint64_t>(buffer.size(), end - position);
          result = read(buffer.data(), static_cast<uint32_t>(size), &count);
          isWrong = !origin::CheckPattern(buffer.data(), position, count, seed);
          position += count;
        }
        return result != 1 || position >= end || isWrong;
      },
      kReadMs);
  return isWrong ? -1 : static_cast<int64_t>(position);
}

class SmokeTest : public testing::Test {
 protected:
  SmokeTest() { server_.Put("/media", origin::PatternResource(kMediaBytes)); }

  TestFolder folder_;
  origin::Server server_;
  Told told_;
};

ReadCall Reader(HttpBase* hb) {
  return [hb](char* buffer, uint32_t size, uint32_t* count) { return ZV_HttpBaseRead(hb, buffer, size, count); };
}

ReadCall Reader(HttpBaseCache* cache) {
  return [cache](char* buffer, uint32_t size, uint32_t* count) {
    return ZV_HttpBaseCacheRead(cache, buffer, size, count);
  };
}

ReadCall Reader(HttpBaseSegCache* cache) {
  return [cache](char* buffer, uint32_t size, uint32_t* count) {
    return ZV_HttpBaseSegCacheRead(cache, buffer, static_cast<int32_t>(size), count);
  };
}

TEST_F(SmokeTest, HandlesComeAndGo) {
  for (int i = 0; i < 20; ++i) {
    HttpBase* hb = ZV_HttpBaseInit(Told::Take, &told_);
    ASSERT_NE(hb, nullptr);
    EXPECT_EQ(ZV_HttpBaseGetOpenFlag(hb), -1);
    EXPECT_EQ(ZV_HttpBaseOpen(hb, nullptr), -1);
    ZV_HttpBaseRelease(&hb);
    EXPECT_EQ(hb, nullptr);
  }
  EXPECT_EQ(told_.code.load(), 0);
}

TEST_F(SmokeTest, OneAndFiveConnectionsBringEveryByte) {
  std::vector<std::string> urls = {server_.Url("/media")};
  const char* const more = std::getenv("ZV_SMOKE_URLS");
  std::istringstream words(more != nullptr ? more : "");
  for (std::string url; words >> url;) {
    urls.push_back(url);
  }
  for (const std::string& url : urls) {
    for (const int connections : {1, 5}) {
      const auto begin = std::chrono::steady_clock::now();
      HttpBase* hb = ZV_HttpBaseInit(Told::Take, &told_);
      ZV_HttpBaseSetDownloadThreadNum(hb, connections);
      ASSERT_EQ(ZV_HttpBaseOpen(hb, url.c_str()), 0);
      const int64_t position = ReadTo(Reader(hb), 0, UINT64_MAX);
      EXPECT_GT(position, 0) << url;
      EXPECT_EQ(position, ZV_HttpBaseGetContentLength(hb)) << url;
      EXPECT_EQ(told_.code.load(), 200);
      ZV_HttpBaseRelease(&hb);
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
      printf("%s, %d connections: %lld bytes in %.2f s\n", url.substr(0, url.find(':')).c_str(), connections,
             static_cast<long long>(position), took.count());
    }
  }
}

// A number, then an address in the runtime's form: Windows prints all its digits, in upper case and without a prefix.
bool IsCacheName(const std::string& name) {
#if defined(_WIN32)
  const size_t address = 2 * sizeof(void*);
  const char* const digits = "0123456789ABCDEF";
  const std::string prefix;
#else
  const size_t address = name.size() - std::min(name.size(), name.find("0x"));
  const char* const digits = "0123456789abcdef";
  const std::string prefix = "0x";
#endif
  if (name.size() <= address || address <= prefix.size()) {
    return false;
  }
  const std::string number = name.substr(0, name.size() - address);
  const std::string rest = name.substr(number.size());
  return number.find_first_not_of("0123456789") == std::string::npos && rest.substr(0, prefix.size()) == prefix &&
         rest.find_first_not_of(digits, prefix.size()) == std::string::npos;
}

void CheckNames(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    EXPECT_TRUE(IsCacheName(entry.path().filename().string())) << entry.path();
  }
}

TEST_F(SmokeTest, TheProgressiveCacheSeeks) {
  const std::string prefix = folder_.Path() + "/";
  const LocalCacheParam param = {40, prefix.c_str()};
  HttpBaseCache* cache = ZV_HttpBaseCacheInit(Told::Take, &told_);
  ZV_HttpBaseCacheSetLocalCache(cache, &param);
  const std::string url = server_.Url("/media");
  ASSERT_EQ(ZV_HttpBaseCacheOpen(cache, url.c_str()), 0);
  EXPECT_EQ(ReadTo(Reader(cache), 0, 9000000), 9000000);
  EXPECT_GE(folder_.CountFiles(), 2);
  CheckNames(folder_.Path());
  for (const uint64_t target : {uint64_t{100}, uint64_t{15000000}, uint64_t{8388608}, kMediaBytes - 1, uint64_t{0}}) {
    ZV_HttpBaseCacheSetRange(cache, static_cast<int64_t>(target), -1);
    ASSERT_EQ(ZV_HttpBaseCacheOpen(cache, url.c_str()), 0);
    const uint64_t end = std::min(target + 1000000, kMediaBytes);
    EXPECT_EQ(ReadTo(Reader(cache), target, end), static_cast<int64_t>(end)) << target;
  }
  EXPECT_EQ(ReadTo(Reader(cache), 1000000, UINT64_MAX), static_cast<int64_t>(kMediaBytes));
  ZV_HttpBaseCacheRelease(&cache);
  EXPECT_EQ(folder_.CountFiles(), 0);
}

TEST_F(SmokeTest, ASegmentListIsRead) {
  constexpr int kSegments = 6;
  constexpr int64_t kSegmentBytes = 700000;
  const std::string prefix = folder_.Path() + "/";
  const LocalCacheParam param = {40, prefix.c_str()};
  const char listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES] = {};
  HttpBaseSegCache* cache = ZV_HttpBaseSegCacheInit(Told::Take, &told_);
  ZV_HttpBaseSegCacheSetThreadNumber(cache, 5);
  ZV_HttpBaseSegCacheSetLocalCache(cache, &param, 1);
  ZV_HttpBaseSegCacheSetList(cache, listInfo, kSegments, 0);
  const auto target = [](int i) { return "/s" + std::to_string(i); };
  for (int i = 0; i < kSegments; ++i) {
    server_.Put(target(i), origin::PatternResource(kSegmentBytes, static_cast<uint32_t>(i)));
    EXPECT_EQ(ZV_HttpBaseSegCacheAddSegment(cache, server_.Url(target(i)).c_str(), 2000, 0, 0, 0, i), 0);
  }
  for (const int i : {0, 1, 2, 3, 4, 5, 2, 0}) {
    ASSERT_EQ(ZV_HttpBaseSegCacheOpen(cache, server_.Url(target(i)).c_str()), 0);
    EXPECT_EQ(ReadTo(Reader(cache), 0, UINT64_MAX, static_cast<uint32_t>(i)), kSegmentBytes) << i;
    EXPECT_EQ(ZV_HttpBaseSegCacheClose(cache), 0);
  }
  ZV_HttpBaseSegCacheRelease(&cache);
  EXPECT_EQ(folder_.CountFiles(), 0);
}

TEST_F(SmokeTest, CloseComesBackInEveryState) {
  struct State {
    const char* name;
    const char* target;
    std::function<bool()> isReached;
  };
  const auto isAnswered = [this] { return WaitUntil([this] { return told_.code.load() == 200; }); };
  server_.Handle("/silent", [](const origin::Request&) { return origin::StallAt(origin::kBeforeAnswer); });
  server_.Handle("/fails", [](const origin::Request&) { return origin::CutAt(origin::kBeforeAnswer); });
  server_.Put("/stalls", origin::PatternResource(3000000));
  server_.Handle("/stalls", [](const origin::Request&) { return origin::StallAt(1000); });
  const State states[] = {
      {"just opened", "/media", [] { return true; }},
      {"waits for an answer", "/silent", [this] { return server_.WaitForStalls(1); }},
      {"receives nothing more", "/stalls", isAnswered},
      {"pauses between attempts", "/fails", [this] { return server_.WaitForEnded(1); }},
      {"receives, or has paused", "/media", isAnswered},
  };
  for (const State& state : states) {
    for (const int connections : {1, 5}) {
      told_.code.store(0);
      server_.ClearLog();
      HttpBase* hb = ZV_HttpBaseInit(Told::Take, &told_);
      ZV_HttpBaseSetDownloadThreadNum(hb, connections);
      ASSERT_EQ(ZV_HttpBaseOpen(hb, server_.Url(state.target).c_str()), 0);
      EXPECT_TRUE(state.isReached()) << state.name;
      const auto begin = std::chrono::steady_clock::now();
      EXPECT_EQ(ZV_HttpBaseClose(hb), 0);
      const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
      printf("Close, %s, %d connections: %.1f ms\n", state.name, connections, took.count());
      EXPECT_LT(took.count(), 2000) << state.name << ": a pause between attempts alone takes 3 seconds";
      ZV_HttpBaseRelease(&hb);
      server_.DropConnections();
    }
  }
}

}  // namespace
