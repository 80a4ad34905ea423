// Where the bytes of a command go.
//
// A regular file is written under another name in its folder and takes its own name only when it is complete, so nobody
// ever finds half of it there. Pipes, devices and standard output are written directly. Every write goes to the system
// at once, without a buffer of its own. Errors are returned as one line.
#ifndef TOOLS_OUTPUT_H
#define TOOLS_OUTPUT_H

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

class Output {
 public:
  Output() = default;
  // Without a Finish before it, what was written to a regular file is removed.
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // name is a path, or "-" for standard output. False with error when it cannot be written.
  bool Open(const std::string& name, std::string* error);
  // False with error when not every byte could be written; also when a signal asked to stop meanwhile.
  bool Write(const char* bytes, size_t count, std::string* error);
  // Whether the last failed write failed because nobody reads the pipe any more.
  bool IsReaderGone() const { return isReaderGone_; }
  // Closes it and gives a regular file its name.
  bool Finish(std::string* error);

 private:
  bool OpenTemporary(const std::filesystem::path& target, std::string* error);
  bool Fail(std::string_view what, int number, std::string* error) const;

  std::string name_;
  std::filesystem::path target_;
  std::filesystem::path temporary_;  // empty when written directly
  int descriptor_ = -1;
  bool isReaderGone_ = false;
};

// The file name that a URL suggests: its last path segment, without query and fragment. Empty when there is none that
// can be a file's name.
std::string FileNameOfUrl(const std::string& url);

#endif
