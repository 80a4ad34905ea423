// A small HTTP server for the states that a real one cannot be brought into on demand. The target of a request says how
// it is answered, up to a "?":
//
//   /wait   the request is read and never answered
//   /drip   an endless body at about 16 MB/s, slower than any reader
//   /flood  an endless body as fast as it is taken
//   /stall  the head and kStalledBytes of a long body, then silence
//   /drop   the connection is closed without an answer
//   /small  kStalledBytes, complete
//   /wanted as /wait; when it came is noted
//
// It runs on one thread of its own, on a free port of 127.0.0.1.
#ifndef BENCH_SCRIPTED_SERVER_H
#define BENCH_SCRIPTED_SERVER_H

// Before Asio, which in Boost 1.74 uses std::exchange without saying so.
#include <utility>

#include <atomic>
#include <boost/asio.hpp>
#include <cstdint>
#include <string>
#include <thread>

constexpr int64_t kStalledBytes = 100000;

// Written by the server's thread, read by the measurement. sentBytes counts since the latest request.
struct ServerCounters {
  std::atomic<int64_t> requests{0};
  std::atomic<int64_t> dropped{0};
  std::atomic<int64_t> sentBytes{0};
  std::atomic<int64_t> wantedTick{0};  // of the steady clock, 0: not yet
};

class ScriptedServer {
 public:
  ScriptedServer();
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::string Url(const std::string& target) const;
  const ServerCounters& Counters() const { return counters_; }

 private:
  void Accept();

  boost::asio::io_context io_;
  boost::asio::ip::tcp::acceptor acceptor_;
  ServerCounters counters_;
  std::thread thread_;
};

// Waits until a reader that does not read has stopped the server of /flood: more than the handle's buffer has been
// sent, and nothing more is taken.
void AwaitFullBuffer(const ServerCounters& counters);

// Bytes that the library's buffer holds at most: 8 fragments.
constexpr int64_t kFragmentBytes = 512000;
constexpr int64_t kBufferBytes = 8 * kFragmentBytes;

#endif
