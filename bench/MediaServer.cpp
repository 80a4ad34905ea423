#include "MediaServer.h"

#include <algorithm>
#include <chrono>
#include <memory>

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr int64_t kBlockBytes = 16384;
constexpr int kSendBufferBytes = 65536;  // what waits there counts as sent
constexpr char kRangeKey[] = "Range: bytes=";

// One connection; it lives as long as an operation on it is under way.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(tcp::socket socket, MediaServer& server)
      : socket_(std::move(socket)), timer_(socket_.get_executor()), server_(server), body_(kBlockBytes, 'z') {}

  void ReadRequest() {
    asio::async_read_until(socket_, asio::dynamic_buffer(received_), "\r\n\r\n",
                           [self = shared_from_this()](error_code error, size_t count) {
                             if (!error) {
                               self->Answer(count);
                             }
                           });
  }

 private:
  void Answer(size_t count) {
    const std::string request = received_.substr(0, count);
    received_.erase(0, count);
    position_ = 0;
    end_ = server_.Length();
    const size_t key = request.find(kRangeKey);
    const bool isRange = key != std::string::npos;
    if (isRange) {
      TakeRange(request.substr(key + sizeof kRangeKey - 1));
    }
    answer_ = server_.BeginAnswer(position_);
    head_ = isRange ? "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(position_) + "-" +
                          std::to_string(end_ - 1) + "/" + std::to_string(server_.Length()) + "\r\n"
                    : "HTTP/1.1 200 OK\r\nAccept-Ranges: bytes\r\n";
    head_ +=
        "Content-Type: application/octet-stream\r\nContent-Length: " + std::to_string(end_ - position_) + "\r\n\r\n";
    asio::async_write(socket_, asio::buffer(head_), [self = shared_from_this()](error_code error, size_t) {
      if (!error) {
        self->due_ = std::chrono::steady_clock::now();
        self->SendBlock();
      }
    });
  }

  // "first-last" or "first-".
  void TakeRange(const std::string& text) {
    size_t used = 0;
    position_ = std::clamp<int64_t>(std::stoll(text, &used), 0, server_.Length() - 1);
    const size_t last = used + 1;
    if (last < text.size() && text[last] >= '0' && text[last] <= '9') {
      end_ = std::clamp<int64_t>(std::stoll(text.substr(last)) + 1, position_ + 1, server_.Length());
    }
  }

  void SendBlock() {
    if (position_ == end_) {
      ReadRequest();
      return;
    }
    const auto size = static_cast<size_t>(std::min(kBlockBytes, end_ - position_));
    asio::async_write(socket_, asio::buffer(body_, size), [self = shared_from_this()](error_code error, size_t count) {
      self->position_ += static_cast<int64_t>(count);
      self->server_.CountSent(self->answer_, static_cast<int64_t>(count));
      if (!error) {
        self->AwaitTurn(count);
      }
    });
  }

  // A client that was slow to take the bytes is not given more at once afterwards.
  void AwaitTurn(size_t count) {
    const std::chrono::nanoseconds cost(static_cast<int64_t>(count) * 1000000000 / server_.BytesPerSecond());
    due_ = std::max(due_ + cost, std::chrono::steady_clock::now());
    timer_.expires_at(due_);
    timer_.async_wait([self = shared_from_this()](error_code error) {
      if (!error) {
        self->SendBlock();
      }
    });
  }

  tcp::socket socket_;
  asio::steady_timer timer_;
  MediaServer& server_;
  const std::string body_;
  std::string received_;
  std::string head_;
  size_t answer_ = 0;
  int64_t position_ = 0;
  int64_t end_ = 0;
  std::chrono::steady_clock::time_point due_;
};

}  // namespace

MediaServer::MediaServer(int64_t length, int64_t bytesPerSecond)
    : length_(length),
      bytesPerSecond_(bytesPerSecond),
      acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
  acceptor_.set_option(asio::socket_base::send_buffer_size(kSendBufferBytes));
  Accept();
  thread_ = std::thread([this] { io_.run(); });
}

MediaServer::~MediaServer() {
  io_.stop();
  thread_.join();
}

std::string MediaServer::Url() const {
  return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/media";
}

int64_t MediaServer::Requests() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int64_t>(sent_.size());
}

std::vector<SentRange> MediaServer::Sent() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return sent_;
}

size_t MediaServer::BeginAnswer(int64_t first) {
  const std::lock_guard<std::mutex> guard(mutex_);
  sent_.push_back({first, first});
  return sent_.size() - 1;
}

void MediaServer::CountSent(size_t answer, int64_t bytes) {
  const std::lock_guard<std::mutex> guard(mutex_);
  sent_[answer].end += bytes;
}

void MediaServer::Accept() {
  acceptor_.async_accept([this](error_code error, tcp::socket socket) {
    if (!error) {
      socket.set_option(tcp::no_delay(true));
      std::make_shared<Connection>(std::move(socket), *this)->ReadRequest();
    }
    Accept();
  });
}
