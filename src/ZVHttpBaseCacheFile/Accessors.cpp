// The fields of a cache file, safe to ask of no file at all. No lock is taken.
#include "ZVHttpBaseCacheFile/LogNames.h"
#include "ZVHttpBaseCacheFile/ZVHttpBaseCacheFile.h"

namespace {

bool HasFile(const char* name, const HttpBaseCacheFile* cacheFile) {
  if (cacheFile == nullptr) {
    LOG_ERROR_AS(name, "%s input param failed");
  }
  return cacheFile != nullptr;
}

}  // namespace

int32_t ZV_HttpBaseCacheFileGetCacheSize(const HttpBaseCacheFile* cacheFile) {
  return HasFile(__func__, cacheFile) ? cacheFile->cacheSize : 0;
}

int32_t ZV_HttpBaseCacheFileGetFileSize(const HttpBaseCacheFile* cacheFile) {
  return HasFile(__func__, cacheFile) ? cacheFile->fileSize : 0;
}

const char* ZV_HttpBaseCacheFileGetFileName(const HttpBaseCacheFile* cacheFile) {
  return HasFile(__func__, cacheFile) ? cacheFile->cacheFileName : nullptr;
}

void ZV_HttpBaseCacheFileSetStartPosInStream(HttpBaseCacheFile* cacheFile, int64_t pos) {
  if (HasFile(__func__, cacheFile)) {
    cacheFile->startPosInStream = pos;
  }
}

int64_t ZV_HttpBaseCacheFileGetStartPosInStream(const HttpBaseCacheFile* cacheFile) {
  return HasFile(__func__, cacheFile) ? cacheFile->startPosInStream : 0;
}

void ZV_HttpBaseCacheFileSetLast(HttpBaseCacheFile* cacheFile) {
  if (HasFile(__func__, cacheFile)) {
    cacheFile->isLast = 1;
  }
}

int32_t ZV_HttpBaseCacheFileIsLast(const HttpBaseCacheFile* cacheFile) {
  return HasFile(__func__, cacheFile) ? cacheFile->isLast : 0;
}

void ZV_HttpBaseCacheFileSetWriteFinish(HttpBaseCacheFile* cacheFile) {
  if (HasFile(__func__, cacheFile)) {
    cacheFile->isWriteFinish = 1;
  }
}

int32_t ZV_HttpBaseCacheFileIsWriteFinish(const HttpBaseCacheFile* cacheFile) {
  return HasFile(__func__, cacheFile) ? cacheFile->isWriteFinish : 0;
}

int32_t ZV_HttpBaseCacheFileGetUnreadSize(const HttpBaseCacheFile* cacheFile) {
  return cacheFile == nullptr ? 0 : cacheFile->unreadSize;
}

int32_t ZV_HttpBaseCacheFileIsReadFinish(const HttpBaseCacheFile* cacheFile) {
  return cacheFile != nullptr && cacheFile->isWriteFinish != 0 && cacheFile->unreadSize == 0 ? 1 : 0;
}
