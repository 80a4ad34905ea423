// An HTTP server with one stream, which it gives in ranges at a rate, and which remembers what it has sent. It runs on one
// thread of its own, on a free port of 127.0.0.1.
#ifndef BENCH_MEDIA_SERVER_H
#define BENCH_MEDIA_SERVER_H

// Before Asio, which in Boost 1.74 uses std::exchange without saying so.
#include <utility>

#include <boost/asio.hpp>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Bytes [first, end) of the stream that one answer has sent.
struct SentRange {
  int64_t first = 0;
  int64_t end = 0;
};

class MediaServer {
 public:
  // bytesPerSecond holds for each connection.
  MediaServer(int64_t length, int64_t bytesPerSecond);
  ~MediaServer();
  MediaServer(const MediaServer&) = delete;
  MediaServer& operator=(const MediaServer&) = delete;

  std::string Url() const;
  int64_t Requests() const;
  std::vector<SentRange> Sent() const;

  // For the connections, on the server's thread.
  int64_t Length() const { return length_; }
  int64_t BytesPerSecond() const { return bytesPerSecond_; }
  size_t BeginAnswer(int64_t first);
  void CountSent(size_t answer, int64_t bytes);

 private:
  void Accept();

  const int64_t length_;
  const int64_t bytesPerSecond_;
  boost::asio::io_context io_;
  boost::asio::ip::tcp::acceptor acceptor_;
  mutable std::mutex mutex_;
  std::vector<SentRange> sent_;  // under the mutex; one for each answer
  std::thread thread_;
};

#endif
