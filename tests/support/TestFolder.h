// A folder of its own in the temporary directory, removed at the end with what is in it.
#ifndef TESTS_SUPPORT_TEST_FOLDER_H
#define TESTS_SUPPORT_TEST_FOLDER_H

#include <string>

// Windows keeps the name of a file, and of its folder, while it is open. Tests that need it otherwise begin with
// ZV_NEEDS_FILES_THAT_CAN_GO().
#if defined(_WIN32)
constexpr bool kFilesInUseCanGo = false;
#else
constexpr bool kFilesInUseCanGo = true;
#endif
#define ZV_NEEDS_FILES_THAT_CAN_GO() \
  if (!kFilesInUseCanGo)             \
  GTEST_SKIP() << "files in use cannot be renamed or removed"

class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  const std::string& Path() const { return path_; }
  int CountFiles() const;

 private:
  std::string path_;
};

#endif
