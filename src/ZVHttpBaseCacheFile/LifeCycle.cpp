// Making and deleting cache files. Called by whichever thread owns the record; no lock is taken.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Common/Guard.h"
#include "ZVHttpBaseCacheFile/LogNames.h"
#include "ZVHttpBaseCacheFile/ZVHttpBaseCacheFile.h"

namespace {

constexpr size_t kNameTailBytes = 129;
constexpr size_t kAddressBytes = 64;
constexpr int32_t kFillerBlockBytes = 262144;
constexpr int kFiller = 0x23;
constexpr char kInitName[] = "ZV_HttpBaseCacheFileInitCacheFile";

bool IsStopped(const std::atomic<int32_t>* stop) {
  return stop != nullptr && stop->load() != 0;
}

// Writes filler from the end of the room on, in whole blocks. The last flush may be the one that finds the disk full.
bool WriteFiller(HttpBaseCacheFile* cacheFile, const void* block, int32_t room, const std::atomic<int32_t>* stop) {
  FILE* const file = cacheFile->file;
  if (fseek(file, cacheFile->fileSize, SEEK_SET) != 0) {
    return false;
  }
  for (int64_t left = static_cast<int64_t>(room) - cacheFile->fileSize; left > 0; left -= kFillerBlockBytes) {
    fwrite(block, 1, static_cast<size_t>(kFillerBlockBytes), file);
    if (ferror(file) != 0 || IsStopped(stop)) {
      return false;
    }
  }
  return fflush(file) == 0 && fseek(file, 0, SEEK_SET) == 0;
}

// As the runtime prints an address. Windows prints all digits, in upper case and without a prefix; MinGW's own does not.
void PrintAddress(char (&text)[kAddressBytes], const void* address) {
#if defined(_WIN32)
  constexpr int kDigits = 2 * sizeof(void*);
  snprintf(text, sizeof text, "%0*" PRIXPTR, kDigits, reinterpret_cast<uintptr_t>(address));
#else
  snprintf(text, sizeof text, "%p", address);
#endif
}

}  // namespace

char* ZV_HttpBaseCacheFileMakeCacheFileName(const char* filePath) {
  const int64_t tick = ZV_ChronoGetTick();
  const size_t size = strlen(filePath) + kNameTailBytes;
  char* const name = static_cast<char*>(ZV_Calloc(size));
  if (name == nullptr) {
    LOG_ERROR("%s failed for no memory");
    return nullptr;
  }
  char address[kAddressBytes] = {};
  PrintAddress(address, name);
  snprintf(name, size, "%s%lld%s", filePath, Wide(tick), address);
  return name;
}

HttpBaseCacheFile* MakeEmptyCacheFile(const char* filePath) {
  if (filePath == nullptr) {
    LOG_ERROR_AS(kInitName, "%s input param filePath is NULL");
    return nullptr;
  }
  HttpBaseCacheFile* cacheFile = static_cast<HttpBaseCacheFile*>(ZV_Calloc(sizeof(HttpBaseCacheFile)));
  if (cacheFile == nullptr) {
    LOG_ERROR_AS(kInitName, "%s cacheFile failed for no memory");
    return nullptr;
  }
  ScopeGuard freeRecord([&cacheFile] { ZV_Free(&cacheFile); });
  cacheFile->cacheFileName = ZV_HttpBaseCacheFileMakeCacheFileName(filePath);
  if (cacheFile->cacheFileName == nullptr) {
    LOG_ERROR_AS(kInitName, "%s cacheFileName failed for no memory");
    return nullptr;
  }
  ScopeGuard freeName([cacheFile] { ZV_Free(&cacheFile->cacheFileName); });
  cacheFile->file = fopen(cacheFile->cacheFileName, "wb+");
  if (cacheFile->file == nullptr) {
    LOG_ERROR_AS(kInitName, "%s failed for open %s", cacheFile->cacheFileName);
    return nullptr;
  }
  freeName.Dismiss();
  freeRecord.Dismiss();
  return cacheFile;
}

bool ReserveRoom(HttpBaseCacheFile* cacheFile, int32_t room, const std::atomic<int32_t>* stop) {
  if (room <= cacheFile->fileSize) {
    return true;
  }
  void* preWriteData = ZV_Malloc(static_cast<size_t>(kFillerBlockBytes));
  if (preWriteData == nullptr) {
    LOG_ERROR_AS(kInitName, "%s preWriteData failed for no memory");
    return false;
  }
  const ScopeGuard freeBlock([&preWriteData] { ZV_Free(&preWriteData); });
  memset(preWriteData, kFiller, static_cast<size_t>(kFillerBlockBytes));
  if (!WriteFiller(cacheFile, preWriteData, room, stop)) {
    if (!IsStopped(stop)) {
      LOG_ERROR_AS(kInitName, "%s failed for write file %s", cacheFile->cacheFileName);
    }
    return false;
  }
  cacheFile->fileSize = room;
  return true;
}

HttpBaseCacheFile* ZV_HttpBaseCacheFileInitCacheFile(const char* filePath, int32_t preWriteSize) {
  HttpBaseCacheFile* cacheFile = MakeEmptyCacheFile(filePath);
  if (cacheFile != nullptr && !ReserveRoom(cacheFile, preWriteSize, nullptr)) {
    ZV_HttpBaseCacheFileReleaseCacheFile(&cacheFile);
  }
  return cacheFile;
}

void ZV_HttpBaseCacheFileReleaseCacheFile(HttpBaseCacheFile** cacheFile) {
  if (cacheFile == nullptr || *cacheFile == nullptr) {
    return;
  }
  if ((*cacheFile)->file == nullptr || (*cacheFile)->cacheFileName == nullptr) {
    LOG_ERROR("%s cache file failed");
    return;
  }
  fclose((*cacheFile)->file);
  remove((*cacheFile)->cacheFileName);
  ZV_Free(&(*cacheFile)->cacheFileName);
  ZV_Free(cacheFile);
}
