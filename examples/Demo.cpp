// The library at work: fetches media-sized files from the test origin in the same process, over HTTP and HTTPS, with 1
// and with 5 connections, compares every byte with what it must be, and prints a table. Exits with 1 when anything is
// wrong. With a media file as argument it goes on to play that through the progressive cache.
//
// Main thread only; the origin and the library bring their own threads.
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "DemoCache.h"
#include "Origin.h"
#include "Pattern.h"
#include "ZVBase.h"
#include "ZVHttpBase.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kMegabyte = 1000000;
constexpr uint64_t kFileBytes[] = {200 * kMegabyte, 1000 * kMegabyte};
constexpr uint32_t kBlockBytes = 1 << 20;
constexpr int32_t kReadWaitMs = 1;
// Far more than the slowest machine needs to deliver one more block; a demo that hangs shows nothing.
constexpr std::chrono::seconds kSilenceLimit{60};

struct Result {
  uint64_t bytes = 0;
  int64_t wrongAt = -1;  // position of the first wrong byte
  int32_t code = 0;      // what the library reported beside 200
  double seconds = 0;
  double firstByteMs = 0;
};

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

int32_t KeepFailure(void* code, int32_t reported) {
  if (reported != ZV_HTTP_CODE_OK) {
    static_cast<std::atomic<int32_t>*>(code)->store(reported);
  }
  return 0;
}

void CheckBlock(const std::vector<char>& block, uint32_t bytes, Result* result) {
  const size_t same = origin::FindPatternMismatch(block.data(), result->bytes, bytes);
  if (same < bytes && result->wrongAt < 0) {
    result->wrongAt = static_cast<int64_t>(result->bytes + same);
  }
  result->bytes += bytes;
}

// Reads the open stream to its end.
void ReadAll(HttpBase* hb, Clock::time_point begin, Result* result) {
  std::vector<char> block(kBlockBytes);
  Clock::time_point heard = begin;
  int32_t more = 1;
  while (more == 1 && Clock::now() - heard < kSilenceLimit) {
    uint32_t bytes = 0;
    more = ZV_HttpBaseRead(hb, block.data(), kBlockBytes, &bytes);
    if (bytes == 0) {
      ZV_SleepFor(more == 1 ? kReadWaitMs : 0);
      continue;
    }
    if (result->bytes == 0) {
      result->firstByteMs = SecondsSince(begin) * 1000;
    }
    CheckBlock(block, bytes, result);
    heard = Clock::now();
  }
}

Result Fetch(const std::string& url, int32_t connections) {
  Result result;
  std::atomic<int32_t> code = 0;
  HttpBase* hb = ZV_HttpBaseInit(KeepFailure, &code);
  ZV_HttpBaseSetDownloadThreadNum(hb, connections);
  const Clock::time_point begin = Clock::now();
  if (ZV_HttpBaseOpen(hb, url.c_str()) == 0) {
    ReadAll(hb, begin, &result);
  }
  result.seconds = SecondsSince(begin);
  ZV_HttpBaseRelease(&hb);
  result.code = code;
  return result;
}

std::string Verdict(const Result& result, uint64_t expected) {
  if (result.code != 0) {
    return "failed with " + std::to_string(result.code);
  }
  if (result.wrongAt >= 0) {
    return "wrong from byte " + std::to_string(result.wrongAt);
  }
  return result.bytes == expected ? "every byte right" : "wrong length";
}

// Fetches one file once, prints its row; whether all was right.
bool ShowRow(origin::Server* server, const char* scheme, uint64_t bytes, int32_t connections) {
  const std::string target = "/" + std::to_string(bytes) + ".bin";
  server->ClearLog();
  const Result result = Fetch(server->Url(target), connections);
  const std::string verdict = Verdict(result, bytes);
  std::printf("%-6s %11d %11" PRIu64 " %8.2f %8.0f %9zu %14.1f   %s\n", scheme, connections, result.bytes,
              result.seconds, static_cast<double>(result.bytes) / static_cast<double>(kMegabyte) / result.seconds,
              server->LogOf(target).size(), result.firstByteMs, verdict.c_str());
  std::fflush(stdout);
  return verdict == "every byte right";
}

}  // namespace

int main(int argc, char** argv) {
  std::printf("%-6s %11s %11s %8s %8s %9s %14s\n", "scheme", "connections", "bytes", "seconds", "MB/s", "requests",
              "first byte, ms");
  bool good = true;
  for (const bool https : {false, true}) {
    origin::Options options;
    options.https = https;
    origin::Server server(options);
    for (const uint64_t bytes : kFileBytes) {
      server.Put("/" + std::to_string(bytes) + ".bin", origin::PatternResource(bytes));
      for (const int32_t connections : {1, 5}) {
        good = ShowRow(&server, https ? "https" : "http", bytes, connections) && good;
      }
    }
  }
  if (argc > 1) {
    good = ShowCache(argv[1]) && good;
  }
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
