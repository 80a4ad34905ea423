// Bytes into and out of a cache file. Every operation seeks to its own offset first, so the writer and the reader of one
// stream may alternate. A stream that has failed is cleared: the next operation begins from a known offset again.
#include <algorithm>

#include "ZVHttpBaseCacheFile/LogNames.h"
#include "ZVHttpBaseCacheFile/ZVHttpBaseCacheFile.h"

namespace {

constexpr char kWriteName[] = "ZV_HttpBaseCacheFileWriteDataToCacheFile";

// Offsets are 32-bit words: bytes that would pass them are not written.
uint32_t Append(HttpBaseCacheFile* cacheFile, const void* buffer, uint32_t size) {
  if (size > static_cast<uint32_t>(INT32_MAX - cacheFile->writePos) ||
      fseek(cacheFile->file, cacheFile->writePos, SEEK_SET) != 0) {
    return 0;
  }
  return static_cast<uint32_t>(fwrite(buffer, 1, size, cacheFile->file));
}

}  // namespace

int32_t PutBytes(HttpBaseCacheFile* cacheFile, const void* buffer, uint32_t size) {
  const uint32_t written = Append(cacheFile, buffer, size);
  if (written < size) {
    LOG_ERROR_AS(kWriteName, "%s write failed actual %d for %d to %s", static_cast<int32_t>(written),
                 static_cast<int32_t>(size), Printable(cacheFile->cacheFileName));
    clearerr(cacheFile->file);
    return 1;
  }
  if (fflush(cacheFile->file) != 0) {
    LOG_ERROR_AS(kWriteName, "%s flush failed for %s", Printable(cacheFile->cacheFileName));
    clearerr(cacheFile->file);
    return 1;
  }
  cacheFile->writePos = static_cast<int32_t>(ftell(cacheFile->file));
  return 0;
}

void CountBytes(HttpBaseCacheFile* cacheFile, uint32_t size) {
  cacheFile->cacheSize += static_cast<int32_t>(size);
  cacheFile->unreadSize += static_cast<int32_t>(size);
}

int32_t ZV_HttpBaseCacheFileWriteDataToCacheFile(HttpBaseCacheFile* cacheFile, const void* buffer, uint32_t size) {
  if (cacheFile == nullptr || buffer == nullptr) {
    LOG_ERROR("%s input param failed");
    return 1;
  }
  if (PutBytes(cacheFile, buffer, size) != 0) {
    return 1;
  }
  CountBytes(cacheFile, size);
  return 0;
}

void ZV_HttpBaseCacheFileReadDataFromCacheFile(HttpBaseCacheFile* cacheFile, void* buffer, uint32_t size,
                                               uint32_t* readSize) {
  if (cacheFile == nullptr || buffer == nullptr || size == 0 || readSize == nullptr) {
    return;
  }
  *readSize = 0;
  if (cacheFile->unreadSize <= 0) {
    return;
  }
  const uint32_t wanted = std::min(size, static_cast<uint32_t>(cacheFile->unreadSize));
  if (fseek(cacheFile->file, cacheFile->readPos, SEEK_SET) == 0) {
    *readSize = static_cast<uint32_t>(fread(buffer, 1, wanted, cacheFile->file));
  }
  if (*readSize < wanted) {
    clearerr(cacheFile->file);
  }
  cacheFile->readPos += static_cast<int32_t>(*readSize);
  cacheFile->unreadSize -= static_cast<int32_t>(*readSize);
}

void ZV_HttpBaseCacheFileSetReadPosInStream(HttpBaseCacheFile* cacheFile, int64_t streamPos) {
  if (cacheFile == nullptr) {
    return;
  }
  // The stream itself is left alone, since a write may be under way: each read seeks first.
  const int64_t start = cacheFile->startPosInStream;
  const int64_t offset = streamPos <= start ? 0 : streamPos - start;
  cacheFile->readPos = static_cast<int32_t>(std::min<int64_t>(offset, cacheFile->cacheSize));
  cacheFile->unreadSize = cacheFile->cacheSize - cacheFile->readPos;
}

void CutAtReadPos(HttpBaseCacheFile* cacheFile) {
  cacheFile->cacheSize = cacheFile->readPos;
  cacheFile->writePos = cacheFile->readPos;
  cacheFile->unreadSize = 0;
  cacheFile->isLast = 0;
  cacheFile->isWriteFinish = 1;
}

void ZV_HttpBaseCacheFileFlush(HttpBaseCacheFile* cacheFile) {
  if (cacheFile != nullptr && cacheFile->file != nullptr) {
    fflush(cacheFile->file);
  }
}

void ZV_HttpBaseCacheFileReset(HttpBaseCacheFile* cacheFile) {
  if (cacheFile == nullptr) {
    LOG_ERROR("%s input param failed");
    return;
  }
  cacheFile->writePos = 0;
  cacheFile->readPos = 0;
  cacheFile->startPosInStream = 0;
  cacheFile->unreadSize = 0;
  cacheFile->cacheSize = 0;
  cacheFile->isWriteFinish = 0;
  cacheFile->isLast = 0;
}
