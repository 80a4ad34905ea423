// What the parts of a Server share: the script and the log (under one mutex), the thread with its io_context, and the
// connections, which only that thread touches.
#ifndef TESTS_SUPPORT_ORIGIN_CORE_H
#define TESTS_SUPPORT_ORIGIN_CORE_H

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Origin.h"
#include "OriginTransport.h"

namespace origin {

class Connection;

// The way from any thread into the server's thread. It outlives the server wherever a gate still refers to it; post
// does nothing once the server is gone.
class Mailbox {
 public:
  explicit Mailbox(boost::asio::io_context* io) : io_(io) {}
  void Post(std::function<void()> work);
  void Shut();

 private:
  std::mutex mutex_;
  boost::asio::io_context* io_;
};

// What a request gets: the answer and what its target holds.
struct Decision {
  Answer answer;
  std::optional<Resource> entity;
};

// Script, resources and log. Any thread.
class Book {
 public:
  void Put(const std::string& target, Resource resource);
  void ServeDirectory(const std::string& path);
  void Script(const std::string& target, std::vector<Answer> rows);
  void Handle(const std::string& target, Handler handler);
  void Handle(Handler handler);
  void ClearScript();
  void OnEnded(std::function<void(const Request&)> observer);

  // Enters the request into the log, completing its numbers, and chooses what it gets. Server's thread.
  Decision Decide(Request* request);
  void NoteStatus(int index, int status);
  void NoteBodySent(int index, size_t bytes);
  void NoteEnded(int index, bool isComplete);
  void NoteConnections(int open, int accepted);

  std::vector<Request> Log() const;
  void ClearLog();
  int OpenConnections() const;
  int AcceptedConnections() const;
  bool WaitForLog(const std::function<bool(const std::vector<Request>&)>& isReached, int ms) const;
  bool WaitForOpenConnections(int count, int ms) const;

 private:
  std::string KeyOf(const std::string& target) const;
  std::optional<Answer> TakeRow(const std::string& key);
  Handler FindHandler(const std::string& key) const;
  std::optional<Resource> FindEntity(const std::string& key, const Request& request, Answer* answer);
  std::optional<Resource> Pack(const std::string& key, const Resource& resource);
  Request* FindEntry(int index);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  // All below: mutex_.
  std::map<std::string, Resource> resources_;
  std::map<std::string, Resource> packed_;  // gzip forms of resources_
  std::string directory_;
  std::map<std::string, std::deque<Answer>> rows_;
  std::map<std::string, Handler> handlers_;
  Handler handler_;
  std::function<void(const Request&)> observer_;
  std::map<std::string, int> counts_;
  std::vector<Request> log_;
  int nextIndex_ = 0;
  int open_ = 0;
  int accepted_ = 0;
};

class Core {
 public:
  explicit Core(const Options& options);
  ~Core();

  uint16_t Port() const { return port_; }
  bool IsHttps() const { return options_.https; }
  boost::asio::io_context& Io() { return io_; }
  Book& GetBook() { return book_; }
  const std::shared_ptr<Mailbox>& GetMailbox() const { return mailbox_; }
  Gate& Stalls() { return stalls_; }

  // Returns when it is done. Any thread.
  void DropConnections(bool reset);
  // A connection has ended. Server's thread.
  void Remove(const std::shared_ptr<Connection>& connection);

 private:
  void Listen();
  void Accept();
  void Welcome(boost::asio::ip::tcp::socket socket);
  void CloseAll(bool reset);
  void NoteConnections();

  const Options options_;
  boost::asio::io_context io_;
  std::unique_ptr<Tls> tls_;
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer acceptPause_;
  std::shared_ptr<Mailbox> mailbox_;
  Book book_;
  Gate stalls_;
  std::set<std::shared_ptr<Connection>> connections_;
  int accepted_ = 0;
  uint16_t port_ = 0;
  std::thread thread_;
};

}  // namespace origin

#endif
