#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Signals.h"
#include "System.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostNamesTried = 100;
// File names have at most 255 bytes; this leaves room for what is added to a temporary one.
constexpr size_t kMostNameBytes = 200;

std::string Describe(const std::error_code& code) {
  return code.message();
}

fs::path TemporaryName(const fs::path& target, int attempt) {
  std::string name = "." + target.filename().string().substr(0, kMostNameBytes) + ".zvhttp-";
  name += std::to_string(ProcessId());
  if (attempt > 0) {
    name += "-" + std::to_string(attempt);
  }
  return target.parent_path() / name;
}

}  // namespace

Output::~Output() {
  if (descriptor_ > kStandardError) {
    CloseDescriptor(descriptor_);
  }
  if (!temporary_.empty()) {
    std::error_code ignored;
    fs::remove(temporary_, ignored);
  }
}

bool Output::Open(const std::string& name, std::string* error) {
  if (name == "-") {
    name_ = "standard output";
    descriptor_ = kStandardOutput;
    return true;
  }
  name_ = name;
  std::error_code code;
  const fs::file_status status = fs::status(name, code);
  if (status.type() == fs::file_type::directory) {
    *error = "cannot write " + name_ + ": it is a folder";
    return false;
  }
  if (status.type() == fs::file_type::not_found) {
    return OpenTemporary(name, error);
  }
  if (status.type() == fs::file_type::regular) {
    // A link stays a link: what it points to is replaced.
    const fs::path real = fs::canonical(name, code);
    return OpenTemporary(code ? fs::path(name) : real, error);
  }
  descriptor_ = OpenForWriting(name, false);
  return descriptor_ >= 0 || Fail("cannot open ", errno, error);
}

bool Output::OpenTemporary(const fs::path& target, std::string* error) {
  for (int attempt = 0; attempt < kMostNamesTried; ++attempt) {
    const fs::path temporary = TemporaryName(target, attempt);
    descriptor_ = OpenForWriting(temporary, true);
    if (descriptor_ >= 0) {
      target_ = target;
      temporary_ = temporary;
      return true;
    }
    if (errno != EEXIST) {
      break;
    }
  }
  return Fail("cannot create ", errno, error);
}

bool Output::Write(const char* bytes, size_t count, std::string* error) {
  while (count > 0) {
    const int64_t written = WriteSome(descriptor_, bytes, count);
    if (written < 0 && (errno != EINTR || IsInterrupted())) {
      isReaderGone_ = errno == EPIPE;
      return Fail("cannot write ", errno, error);
    }
    if (written > 0) {
      bytes += written;
      count -= static_cast<size_t>(written);
    }
    if (count > 0 && IsInterrupted()) {
      return Fail("cannot write ", EINTR, error);
    }
  }
  return true;
}

bool Output::Finish(std::string* error) {
  const int descriptor = std::exchange(descriptor_, -1);
  const bool isClosed = descriptor == kStandardOutput ? FlushStandardOutput() : CloseDescriptor(descriptor);
  if (!isClosed) {
    return Fail("cannot write ", errno, error);
  }
  if (temporary_.empty()) {
    return true;
  }
  std::error_code code;
  // A file that is replaced hands on who may read it.
  if (const fs::file_status status = fs::status(target_, code); fs::exists(status)) {
    fs::permissions(temporary_, status.permissions(), code);
  }
  fs::rename(temporary_, target_, code);
  if (code) {
    *error = "cannot rename the complete file to " + name_ + ": " + Describe(code);
    return false;
  }
  temporary_.clear();
  return true;
}

bool Output::Fail(std::string_view what, int number, std::string* error) const {
  *error = std::string(what) + name_ + ": " + Describe(std::error_code(number, std::generic_category()));
  return false;
}

std::string FileNameOfUrl(const std::string& url) {
  const std::string text = url.substr(0, url.find_first_of("?#"));
  const size_t scheme = text.find("://");
  const size_t authority = scheme == std::string::npos ? 0 : scheme + 3;
  const size_t path = text.find('/', authority);
  if (path == std::string::npos) {
    return "";
  }
  const std::string name = text.substr(text.rfind('/') + 1);
  const bool hasControl = std::any_of(name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
  const bool isPath = name == "." || name == ".." || name.find('\\') != std::string::npos;
  return hasControl || isPath ? "" : name;
}
