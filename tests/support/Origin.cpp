#include "Origin.h"

#include <algorithm>
#include <utility>

#include "OriginCore.h"
#include "OriginText.h"

namespace origin {

std::string Request::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (EqualsIgnoringCase(key, name)) {
      return value;
    }
  }
  return "";
}

Answer Status(int status, std::string body) {
  Answer answer;
  answer.status = status;
  if (!body.empty()) {
    answer.body = std::move(body);
  }
  return answer;
}

Answer Redirect(std::string location, int status) {
  Answer answer;
  answer.status = status;
  answer.location = std::move(location);
  return answer;
}

Answer CutAt(int64_t bodyBytes) {
  Answer answer;
  answer.cutAt = bodyBytes;
  return answer;
}

Answer CutAtWire(uint64_t bytes) {
  Answer answer;
  answer.cutAtWire = bytes;
  return answer;
}

Answer ResetAt(int64_t bodyBytes) {
  Answer answer;
  answer.resetAt = bodyBytes;
  return answer;
}

Answer StallAt(int64_t bodyBytes) {
  Answer answer;
  answer.stallAt = bodyBytes;
  return answer;
}

Answer Raw(std::string bytes) {
  Answer answer;
  answer.raw = std::move(bytes);
  return answer;
}

Server::Server(Options options) : core_(std::make_shared<Core>(options)) {}
Server::~Server() = default;

uint16_t Server::Port() const {
  return core_->Port();
}

std::string Server::Url(const std::string& target) const {
  return std::string(core_->IsHttps() ? "https" : "http") + "://127.0.0.1:" + std::to_string(core_->Port()) + target;
}

void Server::Put(const std::string& target, Resource resource) {
  core_->GetBook().Put(target, std::move(resource));
}

void Server::ServeDirectory(const std::string& path) {
  core_->GetBook().ServeDirectory(path);
}

void Server::Script(const std::string& target, std::vector<Answer> rows) {
  core_->GetBook().Script(target, std::move(rows));
}

void Server::Handle(const std::string& target, Handler handler) {
  core_->GetBook().Handle(target, std::move(handler));
}

void Server::Handle(Handler handler) {
  core_->GetBook().Handle(std::move(handler));
}

void Server::ClearScript() {
  core_->GetBook().ClearScript();
}

void Server::ReleaseStalls() {
  core_->Stalls().ReleaseWaiting();
}

bool Server::WaitForStalls(int count, int ms) const {
  return core_->Stalls().AwaitWaiting(count, ms);
}

void Server::DropConnections(bool reset) {
  core_->DropConnections(reset);
}

void Server::OnEnded(std::function<void(const Request&)> observer) {
  core_->GetBook().OnEnded(std::move(observer));
}

std::vector<Request> Server::Log() const {
  return core_->GetBook().Log();
}

std::vector<Request> Server::LogOf(const std::string& target) const {
  std::vector<Request> log = core_->GetBook().Log();
  std::erase_if(log, [&](const Request& request) { return request.target != target; });
  return log;
}

void Server::ClearLog() {
  core_->GetBook().ClearLog();
}

int Server::RequestCount() const {
  return static_cast<int>(core_->GetBook().Log().size());
}

int Server::OpenConnections() const {
  return core_->GetBook().OpenConnections();
}

int Server::AcceptedConnections() const {
  return core_->GetBook().AcceptedConnections();
}

bool Server::WaitForRequests(int count, int ms) const {
  return WaitForLog([count](const std::vector<Request>& log) { return static_cast<int>(log.size()) >= count; }, ms);
}

bool Server::WaitForEnded(int count, int ms) const {
  const auto hasEnded = [](const Request& request) { return request.ended; };
  return WaitForLog(
      [&](const std::vector<Request>& log) { return std::count_if(log.begin(), log.end(), hasEnded) >= count; }, ms);
}

bool Server::WaitForOpenConnections(int count, int ms) const {
  return core_->GetBook().WaitForOpenConnections(count, ms);
}

bool Server::WaitForLog(const std::function<bool(const std::vector<Request>&)>& isReached, int ms) const {
  return core_->GetBook().WaitForLog(isReached, ms);
}

}  // namespace origin
