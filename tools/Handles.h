// Owners of the library's handles: made so that signals stay with the main thread, released whichever way a command ends.
#ifndef TOOLS_HANDLES_H
#define TOOLS_HANDLES_H

#include "Signals.h"
#include "ZVHttpBase.h"
#include "ZVHttpBaseCache.h"
#include "ZVHttpBaseSegCache.h"

// userData must outlive the owner.
class DownloaderOwner {
 public:
  DownloaderOwner(HttpBaseMsgCallback callback, void* userData) {
    const SignalsForMainThreadOnly guard;
    handle_ = ZV_HttpBaseInit(callback, userData);
  }
  ~DownloaderOwner() { ZV_HttpBaseRelease(&handle_); }
  DownloaderOwner(const DownloaderOwner&) = delete;
  DownloaderOwner& operator=(const DownloaderOwner&) = delete;

  // Null when it could not be made.
  HttpBase* Get() const { return handle_; }

 private:
  HttpBase* handle_ = nullptr;
};

class CacheOwner {
 public:
  CacheOwner(HttpBaseMsgCallback callback, void* userData) {
    const SignalsForMainThreadOnly guard;
    handle_ = ZV_HttpBaseCacheInit(callback, userData);
  }
  ~CacheOwner() { ZV_HttpBaseCacheRelease(&handle_); }
  CacheOwner(const CacheOwner&) = delete;
  CacheOwner& operator=(const CacheOwner&) = delete;

  // Null when it could not be made.
  HttpBaseCache* Get() const { return handle_; }

 private:
  HttpBaseCache* handle_ = nullptr;
};

class SegmentCacheOwner {
 public:
  SegmentCacheOwner(HttpBaseMsgCallback callback, void* userData) {
    const SignalsForMainThreadOnly guard;
    handle_ = ZV_HttpBaseSegCacheInit(callback, userData);
  }
  ~SegmentCacheOwner() { ZV_HttpBaseSegCacheRelease(&handle_); }
  SegmentCacheOwner(const SegmentCacheOwner&) = delete;
  SegmentCacheOwner& operator=(const SegmentCacheOwner&) = delete;

  // Null when it could not be made.
  HttpBaseSegCache* Get() const { return handle_; }

 private:
  HttpBaseSegCache* handle_ = nullptr;
};

#endif
