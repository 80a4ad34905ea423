#include <algorithm>
#include <utility>

#include "OriginCore.h"
#include "OriginResource.h"

namespace origin {

void Book::Put(const std::string& target, Resource resource) {
  std::lock_guard<std::mutex> guard(mutex_);
  resources_[target] = std::move(resource);
  packed_.erase(target);
}

void Book::ServeDirectory(const std::string& path) {
  std::lock_guard<std::mutex> guard(mutex_);
  directory_ = path;
}

void Book::Script(const std::string& target, std::vector<Answer> rows) {
  std::lock_guard<std::mutex> guard(mutex_);
  rows_[target] = std::deque<Answer>(std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
}

void Book::Handle(const std::string& target, Handler handler) {
  std::lock_guard<std::mutex> guard(mutex_);
  handlers_[target] = std::move(handler);
}

void Book::Handle(Handler handler) {
  std::lock_guard<std::mutex> guard(mutex_);
  handler_ = std::move(handler);
}

void Book::ClearScript() {
  std::lock_guard<std::mutex> guard(mutex_);
  rows_.clear();
  handlers_.clear();
  handler_ = nullptr;
}

void Book::OnEnded(std::function<void(const Request&)> observer) {
  std::lock_guard<std::mutex> guard(mutex_);
  observer_ = std::move(observer);
}

Decision Book::Decide(Request* request) {
  Handler handler;
  std::optional<Answer> row;
  std::string key;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    key = KeyOf(request->target);
    request->forTarget = ++counts_[key];
    request->index = nextIndex_++;
    request->time = std::chrono::steady_clock::now();
    log_.push_back(*request);
    row = TakeRow(key);
    handler = row ? nullptr : FindHandler(key);
    changed_.notify_all();
  }
  Decision decision;
  if (row) {
    decision.answer = std::move(*row);
  } else if (handler) {
    decision.answer = handler(*request);
  }
  decision.entity = FindEntity(key, *request, &decision.answer);
  return decision;
}

void Book::NoteStatus(int index, int status) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (Request* const entry = FindEntry(index)) {
    entry->status = status;
  }
}

void Book::NoteBodySent(int index, size_t bytes) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (Request* const entry = FindEntry(index)) {
    entry->bodySent += bytes;
    changed_.notify_all();
  }
}

void Book::NoteEnded(int index, bool isComplete) {
  std::function<void(const Request&)> observer;
  Request copy;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    Request* const entry = FindEntry(index);
    if (entry == nullptr) {
      return;
    }
    entry->ended = true;
    entry->complete = isComplete;
    copy = *entry;
    observer = observer_;
    changed_.notify_all();
  }
  if (observer) {
    observer(copy);
  }
}

void Book::NoteConnections(int open, int accepted) {
  std::lock_guard<std::mutex> guard(mutex_);
  open_ = open;
  accepted_ = accepted;
  changed_.notify_all();
}

std::vector<Request> Book::Log() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return log_;
}

void Book::ClearLog() {
  std::lock_guard<std::mutex> guard(mutex_);
  log_.clear();
}

int Book::OpenConnections() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return open_;
}

int Book::AcceptedConnections() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return accepted_;
}

bool Book::WaitForLog(const std::function<bool(const std::vector<Request>&)>& isReached, int ms) const {
  std::unique_lock<std::mutex> held(mutex_);
  return changed_.wait_for(held, std::chrono::milliseconds(ms), [&] { return isReached(log_); });
}

bool Book::WaitForOpenConnections(int count, int ms) const {
  std::unique_lock<std::mutex> held(mutex_);
  return changed_.wait_for(held, std::chrono::milliseconds(ms), [&] { return open_ == count; });
}

std::string Book::KeyOf(const std::string& target) const {
  const bool isKnown = resources_.count(target) + rows_.count(target) + handlers_.count(target) > 0;
  return isKnown ? target : target.substr(0, target.find('?'));
}

std::optional<Answer> Book::TakeRow(const std::string& key) {
  const auto found = rows_.find(key);
  if (found == rows_.end() || found->second.empty()) {
    return std::nullopt;
  }
  Answer row = std::move(found->second.front());
  found->second.pop_front();
  return row;
}

Handler Book::FindHandler(const std::string& key) const {
  const auto found = handlers_.find(key);
  return found != handlers_.end() ? found->second : handler_;
}

std::optional<Resource> Book::FindEntity(const std::string& key, const Request& request, Answer* answer) {
  if (answer->raw) {
    return std::nullopt;
  }
  if (answer->body) {
    const Resource given = BytesResource(*answer->body);
    return answer->gzip ? PackWithGzip(given) : given;
  }
  std::string directory;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    const auto found = resources_.find(key);
    if (found != resources_.end()) {
      return answer->gzip ? Pack(key, found->second) : found->second;
    }
    directory = directory_;
  }
  if (directory.empty()) {
    return std::nullopt;
  }
  DirectoryEntry entry = LookUpInDirectory(directory, request.target);
  if (!entry.location.empty() && answer->status == 0 && answer->location.empty()) {
    answer->status = 301;
    answer->location = entry.location;
  }
  return answer->gzip && entry.resource ? PackWithGzip(*entry.resource) : entry.resource;
}

std::optional<Resource> Book::Pack(const std::string& key, const Resource& resource) {
  const auto known = packed_.find(key);
  if (known != packed_.end()) {
    return known->second;
  }
  std::optional<Resource> packed = PackWithGzip(resource);
  if (packed) {
    packed_[key] = *packed;
  }
  return packed;
}

Request* Book::FindEntry(int index) {
  // Entries are in the order of their numbers, whatever ClearLog has taken away.
  const auto found =
      std::lower_bound(log_.begin(), log_.end(), index, [](const Request& entry, int i) { return entry.index < i; });
  return found != log_.end() && found->index == index ? &*found : nullptr;
}

}  // namespace origin
