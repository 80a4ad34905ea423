#include "OriginTransport.h"

#include <utility>

#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>

#if defined(__linux__)
#include <linux/sockios.h>
#include <sys/ioctl.h>
#endif

namespace origin {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using Socket = asio::ip::tcp::socket;

void CloseSocket(Socket& socket, bool reset) {
  error_code ignored;
  if (reset) {
    socket.set_option(asio::socket_base::linger(true, 0), ignored);
  } else {
    socket.shutdown(Socket::shutdown_both, ignored);
  }
  socket.close(ignored);
}

int CountUnsent(Socket& socket) {
  int bytes = 0;
#if defined(__linux__)
  if (ioctl(socket.native_handle(), SIOCOUTQ, &bytes) != 0) {
    return 0;
  }
#else
  (void)socket;
#endif
  return bytes;
}

auto Forward(Transport::Done done) {
  return [done = std::move(done)](const error_code& error, size_t bytes) { done(!error, bytes); };
}

class PlainTransport : public Transport {
 public:
  explicit PlainTransport(Socket socket) : socket_(std::move(socket)) {}

  void Handshake(Done done) override {
    asio::post(socket_.get_executor(), [done = std::move(done)] { done(true, 0); });
  }
  void Read(char* out, size_t max, Done done) override {
    socket_.async_read_some(asio::buffer(out, max), Forward(std::move(done)));
  }
  void Write(const char* bytes, size_t n, Done done) override {
    asio::async_write(socket_, asio::buffer(bytes, n), Forward(std::move(done)));
  }
  void Finish(Done done) override {
    error_code ignored;
    socket_.shutdown(Socket::shutdown_send, ignored);
    asio::post(socket_.get_executor(), [done = std::move(done)] { done(true, 0); });
  }
  void Close(bool reset) override { CloseSocket(socket_, reset); }
  int UnsentBytes() override { return CountUnsent(socket_); }

 private:
  Socket socket_;
};

class TlsTransport : public Transport {
 public:
  TlsTransport(Socket socket, asio::ssl::context& context) : stream_(std::move(socket), context) {}

  void Handshake(Done done) override {
    stream_.async_handshake(asio::ssl::stream_base::server,
                            [done = std::move(done)](const error_code& error) { done(!error, 0); });
  }
  void Read(char* out, size_t max, Done done) override {
    stream_.async_read_some(asio::buffer(out, max), Forward(std::move(done)));
  }
  void Write(const char* bytes, size_t n, Done done) override {
    asio::async_write(stream_, asio::buffer(bytes, n), Forward(std::move(done)));
  }
  // A shutdown ends only when the client has answered it, which it need not do. A write behind it fails as soon as the
  // shutdown's own message is out, which is all that has to be waited for. The handler of the shutdown holds done, and
  // by it the connection, for as long as the stream is in use.
  void Finish(Done done) override {
    stream_.async_shutdown([done](const error_code&) {});
    stream_.async_write_some(asio::buffer("", 1), Forward(std::move(done)));
  }
  void Close(bool reset) override { CloseSocket(stream_.next_layer(), reset); }
  int UnsentBytes() override { return CountUnsent(stream_.next_layer()); }

 private:
  asio::ssl::stream<Socket> stream_;
};

}  // namespace

std::unique_ptr<Transport> MakePlainTransport(Socket socket) {
  return std::make_unique<PlainTransport>(std::move(socket));
}

std::unique_ptr<Transport> MakeTlsTransport(Socket socket, asio::ssl::context& context) {
  return std::make_unique<TlsTransport>(std::move(socket), context);
}

}  // namespace origin
