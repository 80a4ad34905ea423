// What the plain and the TLS way of a connection share.
#ifndef TESTS_SUPPORT_ORIGIN_SOCKET_H
#define TESTS_SUPPORT_ORIGIN_SOCKET_H

#include <utility>

#include <boost/asio/ip/tcp.hpp>

#include "OriginTransport.h"

namespace origin {

void CloseSocket(boost::asio::ip::tcp::socket& socket, bool reset);

// 0 where the system does not tell.
int CountUnsent(boost::asio::ip::tcp::socket& socket);

// A handler that calls done.
inline auto Forward(Transport::Done done) {
  return [done = std::move(done)](const boost::system::error_code& error, size_t bytes) { done(!error, bytes); };
}

}  // namespace origin

#endif
