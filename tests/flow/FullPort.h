// A port where connections are neither accepted nor refused: its queue is full.
#ifndef TESTS_FLOW_FULL_PORT_H
#define TESTS_FLOW_FULL_PORT_H

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <string>
#include <vector>

namespace flow {

#if defined(_WIN32)
using Socket = SOCKET;

inline void MakeNonBlocking(Socket socket) {
  u_long on = 1;
  ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
}

inline void CloseSocket(Socket socket) {
  closesocket(socket);
}
#else
using Socket = int;

inline void MakeNonBlocking(Socket socket) {
  fcntl(socket, F_SETFL, O_NONBLOCK);
}

inline void CloseSocket(Socket socket) {
  close(socket);
}
#endif

class FullPort {
 public:
  FullPort() : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    bind(listener_, reinterpret_cast<sockaddr*>(&address_), length);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &length);
    listen(listener_, 0);
    for (int i = 0; i < 8; ++i) {
      clients_.push_back(socket(AF_INET, SOCK_STREAM, 0));
      MakeNonBlocking(clients_.back());
      connect(clients_.back(), reinterpret_cast<sockaddr*>(&address_), sizeof address_);
    }
  }
  ~FullPort() {
    for (const Socket client : clients_) {
      CloseSocket(client);
    }
    CloseSocket(listener_);
  }
  FullPort(const FullPort&) = delete;
  FullPort& operator=(const FullPort&) = delete;

  std::string Url() const { return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)) + "/media"; }

 private:
  const Socket listener_;
  sockaddr_in address_ = {};
  std::vector<Socket> clients_;
};

}  // namespace flow

#endif
