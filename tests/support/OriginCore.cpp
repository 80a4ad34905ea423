#include "OriginCore.h"

#include <chrono>
#include <future>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>

#include "OriginConnection.h"

namespace origin {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

constexpr auto kAcceptPause = std::chrono::milliseconds(10);  // when there are no descriptors left
constexpr int kSingleThread = 1;

}  // namespace

void Mailbox::Post(std::function<void()> work) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (io_ != nullptr) {
    asio::post(*io_, std::move(work));
  }
}

void Mailbox::Shut() {
  std::lock_guard<std::mutex> guard(mutex_);
  io_ = nullptr;
}

Core::Core(const Options& options)
    : options_(options),
      io_(kSingleThread),
      acceptor_(io_),
      acceptPause_(io_),
      mailbox_(std::make_shared<Mailbox>(&io_)) {
  if (options_.https && !options_.stallHandshake) {
    tls_ = MakeTls();
  }
  Listen();
  Accept();
  thread_ = std::thread([this] { io_.run(); });
}

// The thread ends by itself once nothing is left to wait for.
Core::~Core() {
  mailbox_->Shut();
  asio::post(io_, [this] {
    error_code ignored;
    acceptor_.close(ignored);
    acceptPause_.cancel();
    CloseAll(false);
  });
  thread_.join();
}

void Core::Listen() {
  try {
    const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), options_.port);
    acceptor_.open(endpoint.protocol());
    acceptor_.set_option(asio::socket_base::reuse_address(true));
    acceptor_.bind(endpoint);
    acceptor_.listen();
    port_ = acceptor_.local_endpoint().port();
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error("cannot listen on port " + std::to_string(options_.port) + ": " + error.code().message());
  }
}

void Core::Accept() {
  acceptor_.async_accept([this](const error_code& error, tcp::socket socket) {
    if (!acceptor_.is_open()) {
      return;
    }
    if (!error) {
      Welcome(std::move(socket));
      Accept();
      return;
    }
    acceptPause_.expires_after(kAcceptPause);
    acceptPause_.async_wait([this](const error_code& pauseError) {
      if (!pauseError && acceptor_.is_open()) {
        Accept();
      }
    });
  });
}

void Core::Welcome(tcp::socket socket) {
  error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
  const bool isPlain = tls_ == nullptr;
  std::unique_ptr<Transport> transport =
      isPlain ? MakePlainTransport(std::move(socket)) : tls_->Wrap(std::move(socket));
  const auto connection = std::make_shared<Connection>(this, std::move(transport), ++accepted_);
  connections_.insert(connection);
  NoteConnections();
  connection->Start(options_.stallHandshake);
}

void Core::DropConnections(bool reset) {
  if (io_.get_executor().running_in_this_thread()) {
    CloseAll(reset);
    return;
  }
  std::promise<void> done;
  asio::post(io_, [&] {
    CloseAll(reset);
    done.set_value();
  });
  done.get_future().wait();
}

void Core::Remove(const std::shared_ptr<Connection>& connection) {
  connections_.erase(connection);
  NoteConnections();
}

void Core::CloseAll(bool reset) {
  const auto all = connections_;  // Close takes each out of the set
  for (const auto& connection : all) {
    connection->Close(reset);
  }
}

void Core::NoteConnections() {
  book_.NoteConnections(static_cast<int>(connections_.size()), accepted_);
}

}  // namespace origin
