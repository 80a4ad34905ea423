// A connection's way to its client, plain or TLS. Used on the server's thread only. At most one Read and one Write (or
// Finish) are under way at a time; their Done is called later, never inside the call, and keeps alive what it holds.
#ifndef TESTS_SUPPORT_ORIGIN_TRANSPORT_H
#define TESTS_SUPPORT_ORIGIN_TRANSPORT_H

#include <cstddef>
#include <functional>
#include <memory>

#include <boost/asio/ip/tcp.hpp>

namespace origin {

class Transport {
 public:
  using Done = std::function<void(bool isGood, size_t bytes)>;

  virtual ~Transport() = default;

  virtual void Handshake(Done done) = 0;
  virtual void Read(char* out, size_t max, Done done) = 0;
  // Writes all bytes.
  virtual void Write(const char* bytes, size_t n, Done done) = 0;
  // Tells the client that nothing more comes, as the protocol wants it.
  virtual void Finish(Done done) = 0;
  // Ends at once; what is under way is done with isGood false. A reset drops what the client has not got yet.
  virtual void Close(bool reset) = 0;
  // Bytes written that the client's system has not acknowledged yet; 0 where the system does not tell.
  virtual int UnsentBytes() = 0;
};

std::unique_ptr<Transport> MakePlainTransport(boost::asio::ip::tcp::socket socket);

// A server's side of TLS, with a self-signed certificate for 127.0.0.1 and localhost.
class Tls {
 public:
  virtual ~Tls() = default;

  // What it gives must not outlive it.
  virtual std::unique_ptr<Transport> Wrap(boost::asio::ip::tcp::socket socket) = 0;
};

// Throws when it cannot be made, or when this build has no TLS.
std::unique_ptr<Tls> MakeTls();

}  // namespace origin

#endif
