// A cache file: one contiguous run of a stream's bytes on disk, appended to by one writer and consumed by one reader.
//
// The unit has no lock. The caller serialises the calls on one record, with one exception that keeps the disk out of the
// caller's lock: PutBytes touches only the stream and writePos, so it may run beside everything that touches neither,
// which is everything but reading, releasing and another write.
//
// Invariants:
//  1. 0 <= unreadSize <= cacheSize, and 0 <= readPos <= cacheSize
//  2. writePos = cacheSize when no write is under way
//  3. the stream byte at position p, startPosInStream <= p < startPosInStream + cacheSize, is at p - startPosInStream
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

struct HttpBaseCacheFile {
  FILE* file;                // "wb+"
  char* cacheFileName;       // owned
  int32_t readPos;           // where the next read starts
  int32_t writePos;          // where the next write starts
  int64_t startPosInStream;  // position of the byte at offset 0
  int32_t cacheSize;         // bytes of the stream in the file
  int32_t unreadSize;        // of those, not yet read
  int32_t fileSize;          // bytes reserved so far
  int32_t isLast;            // 1: holds the stream's last byte
  int32_t isWriteFinish;     // 1: nothing more will be appended
};

// Text that begins with filePath and differs from that of every other file of this process; null without memory.
char* ZV_HttpBaseCacheFileMakeCacheFileName(const char* filePath);
// A new file below the prefix filePath, with room for preWriteSize bytes; null when anything fails, with nothing left.
HttpBaseCacheFile* ZV_HttpBaseCacheFileInitCacheFile(const char* filePath, int32_t preWriteSize);
// The two halves of that, for those who reserve the room bit by bit: a file without any, and then more of it, up to `room`
// bytes. False when they cannot be had, or as soon as *stop (may be null) is not 0: then the file is only good for release.
HttpBaseCacheFile* MakeEmptyCacheFile(const char* filePath);
bool ReserveRoom(HttpBaseCacheFile* cacheFile, int32_t room, const std::atomic<int32_t>* stop);
// Closes the file and deletes it from disk.
void ZV_HttpBaseCacheFileReleaseCacheFile(HttpBaseCacheFile** cacheFile);

// 0, or 1 when not every byte is safely in the file; then nothing has changed.
int32_t ZV_HttpBaseCacheFileWriteDataToCacheFile(HttpBaseCacheFile* cacheFile, const void* buffer, uint32_t size);
// The two halves of a write: the bytes, then the counters.
int32_t PutBytes(HttpBaseCacheFile* cacheFile, const void* buffer, uint32_t size);
void CountBytes(HttpBaseCacheFile* cacheFile, uint32_t size);

// Delivers what could be read, at most size; *readSize is not touched when an argument is null or size is 0.
void ZV_HttpBaseCacheFileReadDataFromCacheFile(HttpBaseCacheFile* cacheFile, void* buffer, uint32_t size,
                                               uint32_t* readSize);
// The next read starts at streamPos, or at the nearest end of what the file holds.
void ZV_HttpBaseCacheFileSetReadPosInStream(HttpBaseCacheFile* cacheFile, int64_t streamPos);
// Forgets what has not been read, since the disk does not give it back; nothing more will be appended.
void CutAtReadPos(HttpBaseCacheFile* cacheFile);
void ZV_HttpBaseCacheFileFlush(HttpBaseCacheFile* cacheFile);
// Empty, start 0, no flag set; the file on disk stays as it is.
void ZV_HttpBaseCacheFileReset(HttpBaseCacheFile* cacheFile);

int32_t ZV_HttpBaseCacheFileGetCacheSize(const HttpBaseCacheFile* cacheFile);
int32_t ZV_HttpBaseCacheFileGetFileSize(const HttpBaseCacheFile* cacheFile);
const char* ZV_HttpBaseCacheFileGetFileName(const HttpBaseCacheFile* cacheFile);
void ZV_HttpBaseCacheFileSetStartPosInStream(HttpBaseCacheFile* cacheFile, int64_t pos);
int64_t ZV_HttpBaseCacheFileGetStartPosInStream(const HttpBaseCacheFile* cacheFile);
void ZV_HttpBaseCacheFileSetLast(HttpBaseCacheFile* cacheFile);
int32_t ZV_HttpBaseCacheFileIsLast(const HttpBaseCacheFile* cacheFile);
void ZV_HttpBaseCacheFileSetWriteFinish(HttpBaseCacheFile* cacheFile);
int32_t ZV_HttpBaseCacheFileIsWriteFinish(const HttpBaseCacheFile* cacheFile);
int32_t ZV_HttpBaseCacheFileGetUnreadSize(const HttpBaseCacheFile* cacheFile);
// 1 when the writer has finished and everything has been read.
int32_t ZV_HttpBaseCacheFileIsReadFinish(const HttpBaseCacheFile* cacheFile);
