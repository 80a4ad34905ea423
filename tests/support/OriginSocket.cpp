#include "OriginSocket.h"

#if defined(__linux__)
#include <linux/sockios.h>
#include <sys/ioctl.h>
#endif

namespace origin {

using Socket = boost::asio::ip::tcp::socket;

void CloseSocket(Socket& socket, bool reset) {
  boost::system::error_code ignored;
  if (reset) {
    socket.set_option(boost::asio::socket_base::linger(true, 0), ignored);
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

}  // namespace origin
