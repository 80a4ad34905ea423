#include "ScriptedServer.h"

#include <array>
#include <memory>
#include <string_view>
#include <vector>

#include "Support.h"

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr size_t kFloodBlockBytes = 262144;
constexpr size_t kDripBlockBytes = 16384;
constexpr auto kDripInterval = std::chrono::milliseconds(1);
constexpr auto kQuietTime = std::chrono::milliseconds(30);
constexpr char kHead[] =
    "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: 1099511627776\r\n\r\n";
constexpr char kSmallHead[] =
    "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: 100000\r\n"
    "Connection: close\r\n\r\n";
static_assert(kStalledBytes == 100000);

// One connection; it lives as long as an operation on it is under way.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(tcp::socket socket, ServerCounters& counters)
      : socket_(std::move(socket)), timer_(socket_.get_executor()), counters_(counters), body_(kFloodBlockBytes, 'z') {}

  void ReadRequest() {
    asio::async_read_until(socket_, asio::dynamic_buffer(request_), "\r\n\r\n",
                           [self = shared_from_this()](error_code error, size_t) {
                             if (!error) {
                               self->Answer();
                             }
                           });
  }

 private:
  void Answer() {
    counters_.sentBytes = 0;
    if (Asks("/wanted")) {
      counters_.wantedTick = Clock::now().time_since_epoch().count();
    }
    ++counters_.requests;
    if (Asks("/drop")) {
      socket_.close();
      ++counters_.dropped;
      return;
    }
    AwaitClose();
    if (!Asks("/wait") && !Asks("/wanted")) {
      SendHead();
    }
  }

  bool Asks(const std::string& target) const {
    return request_.starts_with("GET " + target + " ") || request_.starts_with("GET " + target + "?");
  }

  // Keeps the session alive, and tells it of the client's leaving.
  void AwaitClose() {
    socket_.async_read_some(asio::buffer(ignored_), [self = shared_from_this()](error_code error, size_t) {
      if (error) {
        self->socket_.close();
        self->timer_.cancel();
      } else {
        self->AwaitClose();
      }
    });
  }

  void SendHead() {
    const std::string_view head = Asks("/small") ? kSmallHead : kHead;
    asio::async_write(socket_, asio::buffer(head.data(), head.size()),
                      [self = shared_from_this()](error_code error, size_t) {
                        if (!error) {
                          self->SendBody();
                        }
                      });
  }

  void SendBody() {
    if (Asks("/small")) {
      asio::async_write(socket_, asio::buffer(body_, kStalledBytes), [self = shared_from_this()](error_code, size_t) {
        error_code ignored;
        self->socket_.shutdown(tcp::socket::shutdown_send, ignored);
      });
    } else if (Asks("/stall")) {
      asio::async_write(socket_, asio::buffer(body_, kStalledBytes),
                        [self = shared_from_this()](error_code, size_t count) { self->Count(count); });
    } else if (Asks("/drip")) {
      Drip();
    } else {
      Flood();
    }
  }

  void Drip() {
    asio::async_write(socket_, asio::buffer(body_, kDripBlockBytes),
                      [self = shared_from_this()](error_code error, size_t count) {
                        self->Count(count);
                        if (!error) {
                          self->timer_.expires_after(kDripInterval);
                          self->timer_.async_wait([self](error_code stopped) {
                            if (!stopped && self->socket_.is_open()) {
                              self->Drip();
                            }
                          });
                        }
                      });
  }

  void Flood() {
    socket_.async_write_some(asio::buffer(body_), [self = shared_from_this()](error_code error, size_t count) {
      self->Count(count);
      if (!error) {
        self->Flood();
      }
    });
  }

  void Count(size_t count) { counters_.sentBytes += static_cast<int64_t>(count); }

  tcp::socket socket_;
  asio::steady_timer timer_;
  ServerCounters& counters_;
  std::vector<char> body_;
  std::string request_;
  std::array<char, 1024> ignored_{};
};

}  // namespace

ScriptedServer::ScriptedServer() : acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
  Accept();
  thread_ = std::thread([this] { io_.run(); });
}

ScriptedServer::~ScriptedServer() {
  io_.stop();
  thread_.join();
}

std::string ScriptedServer::Url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + target;
}

void ScriptedServer::Accept() {
  acceptor_.async_accept([this](error_code error, tcp::socket socket) {
    if (!error) {
      socket.set_option(tcp::no_delay(true));
      std::make_shared<Session>(std::move(socket), counters_)->ReadRequest();
    }
    Accept();
  });
}

void AwaitFullBuffer(const ServerCounters& counters) {
  int64_t last = 0;
  auto since = Clock::now();
  AwaitThat("the buffer is full", [&] {
    const int64_t sent = counters.sentBytes;
    if (sent != last) {
      last = sent;
      since = Clock::now();
    }
    return last >= kBufferBytes && Clock::now() - since >= kQuietTime;
  });
}
