/* ZVHttpBaseSegCacheStream: one downloader paired with a callback that is told, beside each code, the number of the
 * stream it came from: for a caller that runs several. Plain C.
 *
 * Conventions, for every function below:
 *
 * - Each checks its arguments and then does what the downloader's function of the same name does (see ZVHttpBase.h), with
 *   its results, defaults, units and moments of effect; SetHttpConnNum is ZV_HttpBaseSetDownloadThreadNum there and
 *   SetHttpConnRangeSize is ZV_HttpBaseSetDownloadSegLen.
 * - Bad arguments do nothing, give -1 (null for strings) where there is a result, and leave a line of level 2 in the log
 *   (see LumLog.h).
 * - Threads. As for the downloader: any thread at any time between Init and Release, Read by one thread at a time, Release
 *   only when no other call on the stream is under way. The callback runs on the stream's own threads, where Open, Close
 *   and Release are refused.
 * - Ownership. Strings given in are copied. A string handed out is borrowed, except the value of
 *   ZV_HttpBaseSegCacheStreamGetRespbyKey, which the caller frees with ZV_Free of ZVBase.
 */
#ifndef INCLUDE_ZV_HTTP_BASE_SEG_CACHE_STREAM_H
#define INCLUDE_ZV_HTTP_BASE_SEG_CACHE_STREAM_H

#include <stdint.h>

#include "ZVHttpBase.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HttpBaseSegCacheStream HttpBaseSegCacheStream;

/* What happened to the download of the stream with that index; the codes are those of ZVHttpBase.h. Its result is
 * ignored. */
typedef int32_t (*HttpBaseSegCacheStreamCallback)(void* userData, int32_t code, int32_t index);

/* Makes a stream, idle. callback may be null: then nothing is reported. Null when something could not be made; then
 * nothing is left behind. */
ZV_HTTP_BASE_API HttpBaseSegCacheStream* ZV_HttpBaseSegCacheStreamInit(HttpBaseSegCacheStreamCallback callback,
                                                                       void* userData, int32_t index);

/* Closes, frees everything and sets *stream to null. Refused on a callback's thread. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamRelease(HttpBaseSegCacheStream** stream);

ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheStreamOpen(HttpBaseSegCacheStream* stream, const char* url);
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheStreamClose(HttpBaseSegCacheStream* stream);
/* *readLen is not touched when an argument is null or size is 0. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheStreamRead(HttpBaseSegCacheStream* stream, void* buffer, uint32_t size,
                                                       uint32_t* readLen);

ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheStreamGetOpenFlag(HttpBaseSegCacheStream* stream);
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheStreamGetDownSpeed(HttpBaseSegCacheStream* stream);
ZV_HTTP_BASE_API int64_t ZV_HttpBaseSegCacheStreamGetContentLength(HttpBaseSegCacheStream* stream);
ZV_HTTP_BASE_API const char* ZV_HttpBaseSegCacheStreamGetRedirectURL(HttpBaseSegCacheStream* stream);

ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetRange(HttpBaseSegCacheStream* stream, int64_t start, int64_t end);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetNeedDownloadComplete(HttpBaseSegCacheStream* stream, int32_t flag);
/* Strings and addresses must not be null, for this function and those below. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetUserAgent(HttpBaseSegCacheStream* stream, const char* userAgent);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamCleanUserAgent(HttpBaseSegCacheStream* stream);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetDevice(HttpBaseSegCacheStream* stream, const char* device);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamCleanDevice(HttpBaseSegCacheStream* stream);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetReqHeader(HttpBaseSegCacheStream* stream, const char* headerLine);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamCleanReqHeader(HttpBaseSegCacheStream* stream);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetRespKey(HttpBaseSegCacheStream* stream, const char* key);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamCleanRespKey(HttpBaseSegCacheStream* stream);
/* *value must not be null when the call is made (its text is not freed); it becomes a copy of what was kept for key, or
 * null when there is none. The caller frees the copy with ZV_Free(&value). */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamGetRespbyKey(HttpBaseSegCacheStream* stream, const char* key,
                                                            char** value);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetRetryTimes(HttpBaseSegCacheStream* stream, int32_t count);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetRetryDelay(HttpBaseSegCacheStream* stream, int32_t ms);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetDownloadType(HttpBaseSegCacheStream* stream, int32_t type);
/* 0 is refused. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetNetMonitor(HttpBaseSegCacheStream* stream, intptr_t monitor);
/* Connections, and bytes of one range, of the next download. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetHttpConnNum(HttpBaseSegCacheStream* stream, int32_t count);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheStreamSetHttpConnRangeSize(HttpBaseSegCacheStream* stream, int32_t bytes);

#ifdef __cplusplus
}
#endif

#endif
