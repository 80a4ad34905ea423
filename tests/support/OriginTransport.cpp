#include "OriginTransport.h"

#include <utility>

#include <boost/asio/write.hpp>

#include "OriginSocket.h"

namespace origin {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using Socket = asio::ip::tcp::socket;

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

}  // namespace

std::unique_ptr<Transport> MakePlainTransport(Socket socket) {
  return std::make_unique<PlainTransport>(std::move(socket));
}

}  // namespace origin
