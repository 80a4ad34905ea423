// A player's way through the exported functions: one handle, downloads read to their end.
#ifndef TESTS_REAL_PLAYER_H
#define TESTS_REAL_PLAYER_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ZVHttpBase.h"

struct Download {
  std::string body;
  std::vector<int32_t> codes;  // in the order of their arrival
  int64_t length = 0;          // what GetContentLength gave at the end
  std::string redirect;        // where redirects led, "" without one
  bool ended = false;          // Read gave 0; otherwise nothing came for a long time
};

class Player {
 public:
  explicit Player(int32_t connections);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  // Settings beyond these are made on the handle itself.
  HttpBase* Handle() { return handle_; }

  Download Get(const std::string& url);
  // The same, but the bytes go to the sink, in order, instead of the body.
  Download Get(const std::string& url, const std::function<void(const char* bytes, uint32_t count)>& sink);

 private:
  static int32_t OnMessage(void* self, int32_t code);

  HttpBase* handle_;
  std::mutex mutex_;
  std::vector<int32_t> codes_;  // under mutex_
};

#endif
