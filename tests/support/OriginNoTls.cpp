// For targets without OpenSSL.
#include <stdexcept>

#include "OriginTransport.h"

namespace origin {

std::unique_ptr<Tls> MakeTls() {
  throw std::runtime_error("this build of the origin speaks no HTTPS");
}

}  // namespace origin
