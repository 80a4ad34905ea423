#include "Player.h"

#include <chrono>
#include <stdexcept>

#include "ZVBase.h"

namespace {

constexpr std::chrono::seconds kSilenceLimit{60};
constexpr uint32_t kBlockBytes = 256 * 1024;
constexpr int32_t kReadWaitMs = 1;

}  // namespace

Player::Player(int32_t connections) : handle_(ZV_HttpBaseInit(OnMessage, this)) {
  if (handle_ == nullptr) {
    throw std::runtime_error("no handle");
  }
  ZV_HttpBaseSetDownloadThreadNum(handle_, connections);
}

Player::~Player() {
  ZV_HttpBaseRelease(&handle_);
}

int32_t Player::OnMessage(void* self, int32_t code) {
  auto* player = static_cast<Player*>(self);
  const std::lock_guard<std::mutex> lock(player->mutex_);
  player->codes_.push_back(code);
  return 0;
}

Download Player::Get(const std::string& url) {
  std::string body;
  Download download = Get(url, [&body](const char* bytes, uint32_t count) { body.append(bytes, count); });
  download.body = std::move(body);
  return download;
}

Download Player::Get(const std::string& url, const std::function<void(const char* bytes, uint32_t count)>& sink) {
  Download download;
  if (ZV_HttpBaseOpen(handle_, url.c_str()) != 0) {
    return download;
  }
  std::vector<char> block(kBlockBytes);
  auto deadline = std::chrono::steady_clock::now() + kSilenceLimit;
  int32_t more = 1;
  while (more == 1 && std::chrono::steady_clock::now() < deadline) {
    uint32_t count = 0;
    more = ZV_HttpBaseRead(handle_, block.data(), kBlockBytes, &count);
    if (count > 0) {
      sink(block.data(), count);
      deadline = std::chrono::steady_clock::now() + kSilenceLimit;
    } else if (more == 1) {
      ZV_SleepFor(kReadWaitMs);
    }
  }
  download.ended = more == 0;
  download.length = ZV_HttpBaseGetContentLength(handle_);
  const char* redirect = ZV_HttpBaseGetRedirectURL(handle_);
  download.redirect = redirect != nullptr ? redirect : "";
  ZV_HttpBaseClose(handle_);
  const std::lock_guard<std::mutex> lock(mutex_);
  download.codes.swap(codes_);
  return download;
}
