// Collects what is logged through LumLog while it lives. One at a time.
#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

struct LogLine {
  int32_t level = 0;
  std::string tag;
  std::string path;
  int32_t line = 0;
  std::string text;
};

class LogCapture {
 public:
  // Lines below lowestLevel are not collected.
  explicit LogCapture(int32_t lowestLevel = 0);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  // Lines whose text contains the part; level -1 means any.
  int Count(const std::string& part, int32_t level = -1) const;
  bool Contains(const std::string& part, int32_t level = -1) const;
  // Waits until such a line has come; false when it does not within ms.
  bool WaitFor(const std::string& part, int ms = 10000) const;
  void Clear();
  // All lines as one text, for messages of failing tests.
  std::string Text() const;

 private:
  static void Receive(void* self, int32_t level, const char* tag, const char* path, int32_t line, const char* text);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<LogLine> lines_;
};

#endif
