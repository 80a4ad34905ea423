// Making a stream, running it, releasing it: the caller's threads. The relay runs on the downloader's.
#include "Common/Guard.h"
#include "ZVHttpBase/Inner.h"
#include "ZVHttpBaseSegCacheStream/LogNames.h"
#include "ZVHttpBaseSegCacheStream/Record.h"

namespace {

int32_t Relay(void* userData, int32_t code) {
  const HttpBaseSegCacheStream* const stream = static_cast<const HttpBaseSegCacheStream*>(userData);
  return stream->callback == nullptr ? 0 : stream->callback(stream->userData, code, stream->index);
}

}  // namespace

extern "C" HttpBaseSegCacheStream* ZV_HttpBaseSegCacheStreamInit(HttpBaseSegCacheStreamCallback callback,
                                                                 void* userData, int32_t index) {
  HttpBaseSegCacheStream* stream = static_cast<HttpBaseSegCacheStream*>(ZV_Calloc(sizeof(HttpBaseSegCacheStream)));
  if (stream == nullptr) {
    LOG_ERROR("%s init failed for no memory");
    return nullptr;
  }
  // Before the downloader is made: what calls back must find it.
  stream->callback = callback;
  stream->userData = userData;
  stream->index = index;
  stream->httpBase = ZV_HttpBaseInit(Relay, stream);
  if (stream->httpBase == nullptr) {
    LOG_ERROR("%s ZV_HttpBaseInit failed for no memory");
    ZV_Free(&stream);
  }
  return stream;
}

extern "C" void ZV_HttpBaseSegCacheStreamRelease(HttpBaseSegCacheStream** stream) {
  if (!HasParams(__func__, stream != nullptr && *stream != nullptr)) {
    return;
  }
  if ((*stream)->httpBase != nullptr && ZVIner_IsOwnThread((*stream)->httpBase) != 0) {
    LOG_ERROR("%s called from a callback of the stream, refused");
    return;
  }
  ZV_HttpBaseClose((*stream)->httpBase);
  ZV_HttpBaseRelease(&(*stream)->httpBase);
  ZV_Free(stream);
}

extern "C" int32_t ZV_HttpBaseSegCacheStreamOpen(HttpBaseSegCacheStream* stream, const char* url) {
  return HasParams(__func__, stream != nullptr && url != nullptr) ? ZV_HttpBaseOpen(stream->httpBase, url) : -1;
}

extern "C" int32_t ZV_HttpBaseSegCacheStreamClose(HttpBaseSegCacheStream* stream) {
  return HasParams(__func__, stream != nullptr) ? ZV_HttpBaseClose(stream->httpBase) : -1;
}

extern "C" int32_t ZV_HttpBaseSegCacheStreamRead(HttpBaseSegCacheStream* stream, void* buffer, uint32_t size,
                                                 uint32_t* readLen) {
  return HasParams(__func__, stream != nullptr && buffer != nullptr && readLen != nullptr)
             ? ZV_HttpBaseRead(stream->httpBase, buffer, size, readLen)
             : -1;
}
