// One cache file: what reaches the disk, what comes back, and what stays as it was when the disk refuses.
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "CachePlayer.h"
#include "FileLimit.h"

namespace cache {
namespace {

class FileTest : public CacheTest {
 protected:
  ~FileTest() override { ZV_HttpBaseCacheFileReleaseCacheFile(&file_); }

  void Make(int32_t preWriteSize = 0) {
    file_ = ZV_HttpBaseCacheFileInitCacheFile(Prefix().c_str(), preWriteSize);
    ASSERT_NE(file_, nullptr);
  }
  int32_t Write(const std::string& text) {
    return ZV_HttpBaseCacheFileWriteDataToCacheFile(file_, text.data(), static_cast<uint32_t>(text.size()));
  }
  std::string Read(uint32_t size) {
    std::string text(size, '?');
    uint32_t n = 0;
    ZV_HttpBaseCacheFileReadDataFromCacheFile(file_, text.data(), size, &n);
    text.resize(n);
    return text;
  }
  std::string Disk() const {
    std::ifstream stream(file_->cacheFileName, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  HttpBaseCacheFile* file_ = nullptr;
};

TEST_F(FileTest, RoomIsReservedInWholeBlocks) {
  struct Row {
    int32_t reserved;
    size_t onDisk;
  };
  for (const Row& row : {Row{0, 0}, Row{1, 262144}, Row{300000, 524288}, Row{8388608, 8388608}}) {
    SCOPED_TRACE(row.reserved);
    Make(row.reserved);
    EXPECT_EQ(Disk(), std::string(row.onDisk, '#'));
    EXPECT_EQ(ZV_HttpBaseCacheFileGetFileSize(file_), row.reserved);
    EXPECT_EQ(file_->cacheSize + file_->unreadSize + file_->writePos + file_->readPos, 0);
    ZV_HttpBaseCacheFileReleaseCacheFile(&file_);
    EXPECT_EQ(file_, nullptr);
    EXPECT_EQ(FilesInFolder(), 0);
  }
}

TEST_F(FileTest, TheRoomOfAFileThatIsNoLongerWantedIsNotReserved) {
  const std::atomic<int32_t> stop{1};
  file_ = MakeEmptyCacheFile(Prefix().c_str());
  ASSERT_NE(file_, nullptr);
  EXPECT_FALSE(ReserveRoom(file_, 8388608, &stop));
}

TEST_F(FileTest, BytesComeBackInOrderWhileMoreAreWritten) {
  Make(300000);
  EXPECT_EQ(Write(std::string(100, 'a')), 0);
  EXPECT_EQ(Write(std::string(50, 'b')), 0);
  EXPECT_EQ(file_->cacheSize, 150);
  EXPECT_EQ(file_->writePos, 150);
  EXPECT_EQ(Read(120), std::string(100, 'a') + std::string(20, 'b'));
  EXPECT_EQ(file_->unreadSize, 30);
  EXPECT_EQ(Write("ccc"), 0);
  EXPECT_EQ(Read(120), std::string(30, 'b').append("ccc"));
  EXPECT_EQ(Read(120), "");
  EXPECT_EQ(Disk().substr(0, 155), std::string(100, 'a') + std::string(50, 'b') + "ccc##");
}

TEST_F(FileTest, TheReadPositionStaysInsideTheFile) {
  Make();
  Write("0123456789");
  const int64_t start = 5000000000;
  ZV_HttpBaseCacheFileSetStartPosInStream(file_, start);
  struct Row {
    int64_t position;
    const char* rest;
  };
  for (const Row& row : {Row{start + 4, "456789"}, Row{start, "0123456789"}, Row{start - 1, "0123456789"},
                         Row{start + 10, ""}, Row{start + 11, ""}, Row{-1, "0123456789"}, Row{INT64_MAX, ""}}) {
    SCOPED_TRACE(row.position);
    ZV_HttpBaseCacheFileSetReadPosInStream(file_, row.position);
    EXPECT_EQ(file_->unreadSize, static_cast<int32_t>(strlen(row.rest)));
    EXPECT_EQ(Read(100), row.rest);
  }
}

TEST_F(FileTest, IsReadFinishedOnlyWhenWrittenAndRead) {
  Make();
  Write("abc");
  EXPECT_EQ(ZV_HttpBaseCacheFileIsReadFinish(file_), 0);
  ZV_HttpBaseCacheFileSetWriteFinish(file_);
  EXPECT_EQ(ZV_HttpBaseCacheFileIsReadFinish(file_), 0);
  Read(3);
  EXPECT_EQ(ZV_HttpBaseCacheFileIsReadFinish(file_), 1);
}

TEST_F(FileTest, ResetForgetsEverythingButTheFile) {
  Make(1000);
  Write("abcdef");
  Read(2);
  ZV_HttpBaseCacheFileSetStartPosInStream(file_, 9);
  ZV_HttpBaseCacheFileSetLast(file_);
  ZV_HttpBaseCacheFileSetWriteFinish(file_);
  ZV_HttpBaseCacheFileReset(file_);
  EXPECT_EQ(file_->writePos + file_->readPos + file_->unreadSize + file_->cacheSize, 0);
  EXPECT_EQ(file_->startPosInStream + file_->isLast + file_->isWriteFinish, 0);
  EXPECT_EQ(file_->fileSize, 1000);
  EXPECT_EQ(Disk().size(), 262144u);
  Write("xy");
  EXPECT_EQ(Read(10), "xy");
}

TEST_F(FileTest, AWriteThatFailsChangesNothingAndALaterOneIsInItsPlace) {
  ZV_NEEDS_FILE_LIMIT();
  Make();
  const std::string good(60000, 'g');
  ASSERT_EQ(Write(good), 0);
  {
    const FileLimit limit(100000);
    EXPECT_EQ(Write(std::string(50000, 'x')), 1);
    EXPECT_TRUE(log_.Contains("write failed", LUM_LEVEL_ERROR) || log_.Contains("flush failed", LUM_LEVEL_ERROR));
    EXPECT_EQ(file_->cacheSize, 60000);
    EXPECT_EQ(file_->writePos, 60000);
  }
  EXPECT_EQ(Write("after"), 0);
  EXPECT_EQ(Read(100000), good + "after");
}

TEST_F(FileTest, NothingIsLeftWhenAFileCannotBeMade) {
  struct Row {
    std::string prefix;
    uint64_t limit;
  };
  for (const Row& row : {Row{Prefix() + "missing/", FileLimit::kNone},
                         Row{Prefix() + std::string(4096, 'p'), FileLimit::kNone}, Row{Prefix(), 1000000}}) {
    SCOPED_TRACE(row.prefix.size());
    if (row.limit != FileLimit::kNone && !kHasFileLimit) {
      continue;
    }
    const FileLimit limit(row.limit);
    EXPECT_EQ(ZV_HttpBaseCacheFileInitCacheFile(row.prefix.c_str(), 8388608), nullptr);
    EXPECT_EQ(FilesInFolder(), 0);
  }
  EXPECT_EQ(ZV_HttpBaseCacheFileInitCacheFile(nullptr, 0), nullptr);
}

TEST_F(FileTest, AnyAllocationMayFail) {
  for (int64_t n = 1;; ++n) {
    fault_platform::FailNth(fault_platform::Kind::kAllocation, n);
    HttpBaseCacheFile* file = ZV_HttpBaseCacheFileInitCacheFile(Prefix().c_str(), 300000);
    const bool failed = fault_platform::Failed(fault_platform::Kind::kAllocation) > 0;
    fault_platform::FailNothing();
    EXPECT_EQ(file == nullptr, failed);
    ZV_HttpBaseCacheFileReleaseCacheFile(&file);
    EXPECT_EQ(FilesInFolder(), 0);
    if (!failed) {
      break;
    }
  }
}

TEST_F(FileTest, OffsetsNeverPass32Bits) {
  Make();
  file_->writePos = INT32_MAX - 3;
  EXPECT_EQ(Write("12345"), 1);
  file_->writePos = 0;
}

TEST_F(FileTest, AShortReadDeliversWhatThereWas) {
  Make();
  Write(std::string(10000, 'z'));
  std::filesystem::resize_file(file_->cacheFileName, 6000);
  EXPECT_EQ(Read(10000), std::string(6000, 'z'));
  EXPECT_EQ(file_->unreadSize, 4000);
  EXPECT_EQ(Read(10000), "");
}

TEST_F(FileTest, NullsAreRefused) {
  HttpBaseCacheFile* none = nullptr;
  char byte = 0;
  uint32_t n = 5;
  EXPECT_EQ(ZV_HttpBaseCacheFileWriteDataToCacheFile(none, &byte, 1), 1);
  ZV_HttpBaseCacheFileReadDataFromCacheFile(none, &byte, 1, &n);
  EXPECT_EQ(n, 5u);
  ZV_HttpBaseCacheFileSetReadPosInStream(none, 5);
  ZV_HttpBaseCacheFileFlush(none);
  ZV_HttpBaseCacheFileReset(none);
  ZV_HttpBaseCacheFileReleaseCacheFile(nullptr);
  ZV_HttpBaseCacheFileReleaseCacheFile(&none);
  EXPECT_EQ(ZV_HttpBaseCacheFileGetFileName(none), nullptr);
  EXPECT_EQ(ZV_HttpBaseCacheFileGetUnreadSize(none) + ZV_HttpBaseCacheFileIsReadFinish(none), 0);
  EXPECT_EQ(log_.Count("ZV_HttpBaseCacheFileGetFileName input param failed", LUM_LEVEL_ERROR), 1);
  for (const LogLine& line : log_.Lines()) {
    EXPECT_EQ(line.tag, "ZVLib-HttpBaseCacheFile");
    EXPECT_EQ(line.path, "src/ZVHttpBaseCacheFile");
  }
}

}  // namespace
}  // namespace cache
