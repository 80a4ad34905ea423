#include "TestFolder.h"

#include <filesystem>
#include <iterator>
#include <random>

namespace fs = std::filesystem;

TestFolder::TestFolder() {
  std::random_device random;
  do {
    path_ = (fs::temp_directory_path() / ("zvtest" + std::to_string(random()))).string();
  } while (!fs::create_directory(path_));
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

int TestFolder::CountFiles() const {
  const fs::directory_iterator files(path_);
  return static_cast<int>(std::distance(begin(files), end(files)));
}
