#include "DemoCache.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Origin.h"
#include "ZVBase.h"
#include "ZVHttpBaseCache.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t kCacheTimeSeconds = 60;
constexpr int32_t kDurationMs = 60000;  // of the sample, which ./demo makes
constexpr uint32_t kBlockBytes = 65536;
constexpr int32_t kReadWaitMs = 1;
constexpr std::chrono::seconds kSilenceLimit{60};
constexpr uint64_t kPlayedBytes = 500000;  // after each seek
// In hundredths of the file. The first and those next to an earlier one lie in what is cached.
constexpr int kSeeks[] = {1, 60, 61, 3, 90, 30, 31, 62, 99, 4};

double MillisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

std::vector<char> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

int32_t KeepFailure(void* code, int32_t reported) {
  if (reported != ZV_HTTP_CODE_OK) {
    static_cast<std::atomic<int32_t>*>(code)->store(reported);
  }
  return 0;
}

// A file cache in a folder of its own, both gone at the end.
class Player {
 public:
  explicit Player(const std::filesystem::path& folder)
      : folder_(folder), cache_(ZV_HttpBaseCacheInit(KeepFailure, &code_)) {
    std::filesystem::create_directories(folder);
    const std::string prefix = (folder / "").string();
    const LocalCacheParam files = {kCacheTimeSeconds, prefix.c_str()};
    ZV_HttpBaseCacheSetLocalCache(cache_, &files);
  }
  ~Player() {
    ZV_HttpBaseCacheRelease(&cache_);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  bool Open(const std::string& url) {
    const bool open = ZV_HttpBaseCacheOpen(cache_, url.c_str()) == 0;
    ZV_HttpBaseCacheSetDuration(cache_, &kDurationMs);
    return open;
  }

  bool Seek(const std::string& url, uint64_t position) {
    ZV_HttpBaseCacheSetRange(cache_, static_cast<int64_t>(position), -1);
    return ZV_HttpBaseCacheOpen(cache_, url.c_str()) == 0;
  }

  // Plays count bytes and compares them with those of media from position on. *firstByteMs: since begin.
  bool Play(const std::vector<char>& media, uint64_t position, uint64_t count, Clock::time_point begin,
            double* firstByteMs) {
    std::vector<char> block(kBlockBytes);
    Clock::time_point heard = begin;
    uint64_t done = 0;
    while (done < count && code_.load() == 0 && Clock::now() - heard < kSilenceLimit) {
      uint32_t bytes = 0;
      const uint32_t size = static_cast<uint32_t>(std::min<uint64_t>(kBlockBytes, count - done));
      const int32_t more = ZV_HttpBaseCacheRead(cache_, block.data(), size, &bytes);
      if (bytes > 0 && done == 0) {
        *firstByteMs = MillisecondsSince(begin);
      }
      if (!std::equal(block.begin(), block.begin() + bytes, media.begin() + static_cast<int64_t>(position + done))) {
        return false;
      }
      done += bytes;
      heard = bytes > 0 ? Clock::now() : heard;
      if (bytes == 0) {
        if (more != 1) {
          break;
        }
        ZV_SleepFor(kReadWaitMs);
      }
    }
    return done == count && code_.load() == 0;
  }

 private:
  const std::filesystem::path folder_;
  std::atomic<int32_t> code_ = 0;
  HttpBaseCache* cache_;
};

struct Show {
  const std::vector<char>& media;
  origin::Server* server;
  std::string url;
  Player* player;
};

// Seeks, plays a little, prints the row. Cached: no request was needed.
bool ShowSeek(const Show& show, int hundredths) {
  const uint64_t position = show.media.size() / 100 * static_cast<uint64_t>(hundredths);
  const uint64_t count = std::min<uint64_t>(kPlayedBytes, show.media.size() - position);
  const int before = show.server->RequestCount();
  double firstByteMs = 0;
  const Clock::time_point begin = Clock::now();
  const bool right =
      show.player->Seek(show.url, position) && show.player->Play(show.media, position, 1, begin, &firstByteMs);
  const int requests = show.server->RequestCount() - before;
  double ignored = 0;
  const bool rest = right && show.player->Play(show.media, position + 1, count - 1, Clock::now(), &ignored);
  std::printf("%12" PRIu64 " %12s %16.2f %9d   %s\n", position, requests == 0 ? "cached" : "not cached", firstByteMs,
              requests, rest ? "every byte right" : "WRONG");
  std::fflush(stdout);
  return rest;
}

}  // namespace

bool ShowCache(const std::string& path) {
  const std::filesystem::path file(path);
  const std::vector<char> media = ReadFile(path);
  origin::Server server;
  server.ServeDirectory(file.parent_path().string());
  Player player(file.parent_path() / "cache");
  const Show show = {media, &server, server.Url("/" + file.filename().string()), &player};

  double firstByteMs = 0;
  const Clock::time_point begin = Clock::now();
  bool good = !media.empty() && player.Open(show.url) && player.Play(media, 0, media.size() / 10, begin, &firstByteMs);
  std::printf("\nthe progressive cache: %zu bytes of media; first byte %.2f ms after the open, %s\n\n", media.size(),
              firstByteMs, good ? "the first tenth right" : "WRONG");
  std::printf("%12s %12s %16s %9s\n", "seek to", "", "first byte, ms", "requests");
  for (const int hundredths : kSeeks) {
    good = good && ShowSeek(show, hundredths);
  }
  std::printf("%d requests in all\n", server.RequestCount());
  return good;
}
