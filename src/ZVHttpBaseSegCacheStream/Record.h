// The record of a stream, for the segment cache, which asks its downloader more than the exported functions tell.
//
// Fixed from Init to Release; it has no lock and no thread of its own. The relay reads it on the downloader's threads.
#pragma once

#include <cstdint>

#include "ZVHttpBaseSegCacheStream.h"

struct HttpBaseSegCacheStream {
  HttpBaseSegCacheStreamCallback callback;  // may be null
  void* userData;
  HttpBase* httpBase;  // owned
  int32_t index;
};
