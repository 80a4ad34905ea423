#include "CacheFolder.h"

#include <cerrno>
#include <system_error>

#include "System.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostNamesTried = 100;

std::string WithSeparator(const fs::path& folder) {
  return (folder / "").string();
}

}  // namespace

CacheFolder::~CacheFolder() {
  if (!private_.empty()) {
    std::error_code ignored;
    fs::remove_all(private_, ignored);
  }
}

bool CacheFolder::Open(const std::optional<std::string>& folder, std::string* error) {
  std::error_code code;
  if (folder) {
    prefix_ = WithSeparator(*folder);
    if (!fs::is_directory(*folder, code)) {
      *error = *folder + " is no folder";
      return false;
    }
    return true;
  }
  const fs::path parent = fs::temp_directory_path(code);
  if (code) {
    *error = "no folder for temporary files: " + code.message();
    return false;
  }
  const std::string name = "zvhttp-" + std::to_string(ProcessId());
  for (int attempt = 0; attempt < kMostNamesTried; ++attempt) {
    const fs::path path = parent / (attempt == 0 ? name : name + "-" + std::to_string(attempt));
    if (MakePrivateFolder(path, &code)) {
      private_ = path;
      prefix_ = WithSeparator(path);
      return true;
    }
    if (code != std::errc::file_exists) {
      break;
    }
  }
  *error = "cannot make a folder in " + parent.string() + ": " + code.message();
  return false;
}
