// A folder of its own in the temporary directory, removed at the end with what is in it.
#ifndef TESTS_SUPPORT_TEST_FOLDER_H
#define TESTS_SUPPORT_TEST_FOLDER_H

#include <string>

// Windows keeps a folder's name while a file in it is open.
#if defined(_WIN32)
constexpr bool kFoldersCanMove = false;
#else
constexpr bool kFoldersCanMove = true;
#endif

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
