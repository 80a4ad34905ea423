#include "LogCapture.h"

#include <algorithm>
#include <chrono>

#include "LumLog.h"

namespace {

bool Matches(const LogLine& line, const std::string& part, int32_t level) {
  return (level == -1 || line.level == level) && line.text.find(part) != std::string::npos;
}

std::string OrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

LogCapture::LogCapture(int32_t lowestLevel) {
  LumLogSetLevel(lowestLevel);
  LumLogSetCallback(Receive, this);
}

LogCapture::~LogCapture() {
  LumLogSetCallback(nullptr, nullptr);
  LumLogSetLevel(LUM_LEVEL_TRACE);
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return lines_;
}

int LogCapture::Count(const std::string& part, int32_t level) const {
  std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(
      std::count_if(lines_.begin(), lines_.end(), [&](const LogLine& line) { return Matches(line, part, level); }));
}

bool LogCapture::Contains(const std::string& part, int32_t level) const {
  return Count(part, level) > 0;
}

bool LogCapture::WaitFor(const std::string& part, int ms) const {
  std::unique_lock<std::mutex> held(mutex_);
  return changed_.wait_for(held, std::chrono::milliseconds(ms), [&] {
    return std::any_of(lines_.begin(), lines_.end(), [&](const LogLine& line) { return Matches(line, part, -1); });
  });
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> guard(mutex_);
  lines_.clear();
}

std::string LogCapture::Text() const {
  std::string text;
  for (const LogLine& line : Lines()) {
    text += std::to_string(line.level) + " " + line.tag + " " + line.path + ":" + std::to_string(line.line) + " " +
            line.text + "\n";
  }
  return text;
}

void LogCapture::Receive(void* self, int32_t level, const char* tag, const char* path, int32_t line, const char* text) {
  LogCapture* const capture = static_cast<LogCapture*>(self);
  std::lock_guard<std::mutex> guard(capture->mutex_);
  capture->lines_.push_back({level, OrEmpty(tag), OrEmpty(path), line, OrEmpty(text)});
  capture->changed_.notify_all();
}
