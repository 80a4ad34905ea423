// TLS for the origin, by OpenSSL.
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>

#include "OriginCertificate.h"
#include "OriginSocket.h"

namespace origin {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using Socket = asio::ip::tcp::socket;

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

class OpenSslTls : public Tls {
 public:
  std::unique_ptr<Transport> Wrap(Socket socket) override {
    return std::make_unique<TlsTransport>(std::move(socket), *context_);
  }

 private:
  const std::unique_ptr<asio::ssl::context> context_ = MakeTlsContext();
};

}  // namespace

std::unique_ptr<Tls> MakeTls() {
  return std::make_unique<OpenSslTls>();
}

}  // namespace origin
