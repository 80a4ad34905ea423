// Where the files of a cache are kept: a folder that the user names, or a private one that lives as long as its object.
#ifndef TOOLS_CACHE_FOLDER_H
#define TOOLS_CACHE_FOLDER_H

#include <filesystem>
#include <optional>
#include <string>

class CacheFolder {
 public:
  CacheFolder() = default;
  // Removes a private folder with all that is in it; a folder of the user stays.
  ~CacheFolder();
  CacheFolder(const CacheFolder&) = delete;
  CacheFolder& operator=(const CacheFolder&) = delete;

  // Without a folder of the user's, makes a private one in the temporary directory. False with error when there is no
  // folder then.
  bool Open(const std::optional<std::string>& folder, std::string* error);

  // The folder with its separator, as the library wants it.
  const std::string& Prefix() const { return prefix_; }

 private:
  std::string prefix_;
  std::filesystem::path private_;  // empty for a folder of the user
};

#endif
