#ifndef TESTS_SUPPORT_ORIGIN_CERTIFICATE_H
#define TESTS_SUPPORT_ORIGIN_CERTIFICATE_H

#include <memory>

#include <boost/asio/ssl/context.hpp>

namespace origin {

// A server context with a self-signed certificate for 127.0.0.1 and localhost, made in memory. Throws when it cannot.
std::unique_ptr<boost::asio::ssl::context> MakeTlsContext();

}  // namespace origin

#endif
