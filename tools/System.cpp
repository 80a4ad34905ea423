#include "System.h"

#include <algorithm>
#include <cerrno>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

// Windows takes the count as a 32-bit number, and Linux writes no more than 2 GB at once either.
constexpr size_t kMostAtOnceBytes = size_t{1} << 30;

}  // namespace

#if defined(_WIN32)

void ReserveStandardDescriptors() {
  _setmode(kStandardOutput, _O_BINARY);
}

bool IsTerminal(int descriptor) {
  return _isatty(descriptor) != 0;
}

int ProcessId() {
  return _getpid();
}

bool MakePrivateFolder(const std::filesystem::path& path, std::error_code* code) {
  // The folder of temporary files is the user's own there, and hands its permissions on.
  if (std::filesystem::create_directory(path, *code)) {
    return true;
  }
  if (!*code) {
    *code = std::make_error_code(std::errc::file_exists);
  }
  return false;
}

int OpenForWriting(const std::filesystem::path& path, bool mustBeNew) {
  const int flags = _O_WRONLY | _O_CREAT | _O_BINARY | (mustBeNew ? _O_EXCL : _O_TRUNC);
  return _wopen(path.c_str(), flags, _S_IREAD | _S_IWRITE);
}

int64_t WriteSome(int descriptor, const char* bytes, size_t count) {
  return _write(descriptor, bytes, static_cast<unsigned>(std::min(count, kMostAtOnceBytes)));
}

bool CloseDescriptor(int descriptor) {
  return _close(descriptor) == 0;
}

bool FlushStandardOutput() {
  return true;
}

#else

void ReserveStandardDescriptors() {
  for (int descriptor = 0; descriptor <= kStandardError; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) {
      continue;
    }
    // The lowest free number is this one, since all below are taken. The wrong direction keeps it unusable.
    const int flags = descriptor == 0 ? O_WRONLY : O_RDONLY;
    if (open("/dev/null", flags) < 0) {
      return;
    }
  }
}

bool IsTerminal(int descriptor) {
  return isatty(descriptor) != 0;
}

int ProcessId() {
  return static_cast<int>(getpid());
}

bool MakePrivateFolder(const std::filesystem::path& path, std::error_code* code) {
  if (mkdir(path.c_str(), S_IRWXU) == 0) {
    code->clear();
    return true;
  }
  *code = std::error_code(errno, std::generic_category());
  return false;
}

int OpenForWriting(const std::filesystem::path& path, bool mustBeNew) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (mustBeNew ? O_EXCL : O_TRUNC), 0666);
}

int64_t WriteSome(int descriptor, const char* bytes, size_t count) {
  return write(descriptor, bytes, std::min(count, kMostAtOnceBytes));
}

bool CloseDescriptor(int descriptor) {
  // After EINTR the descriptor is gone on Linux, and closing it again could hit somebody else's.
  return close(descriptor) == 0 || errno == EINTR;
}

bool FlushStandardOutput() {
  // Each close of a descriptor reports the failed writes of its file, so closing a copy keeps the original.
  const int copy = dup(kStandardOutput);
  return copy >= 0 && CloseDescriptor(copy);
}

#endif
