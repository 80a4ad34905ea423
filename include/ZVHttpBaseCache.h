/* ZVHttpBaseCache: a progressive reader over one downloader. With its file cache on it keeps what it has fetched in files
 * on disk, reads ahead of the player and seeks within what is there. Plain C.
 *
 * Conventions, for every function below:
 *
 * - Results. Open and Close give 0 or -1. Read gives 1 (call again), 0 (end of stream) or -1 (bad arguments). Getters
 *   give the value, or -1 (null for strings) for a null handle. All others give nothing.
 * - Bad arguments do nothing and leave a line of level 2 in the log (see LumLog.h).
 * - Threads. Every function may be called from any thread at any time between Init and Release, with two limits: Read by
 *   one thread at a time, and Release only when no other call on the handle is under way or will come. The callbacks run
 *   on the handle's own threads, and on the player's inside Open and Read; no lock of the library is held then. From a
 *   callback every function of the handle may be called except Open, Close, CloseLocalCache and Release, which are
 *   refused there.
 * - Ownership. Strings given in are copied. A string handed out is borrowed from the handle, except the value of
 *   ZV_HttpBaseCacheGetRespbyKey, which the caller frees with ZV_Free of ZVBase.
 * - Settings mean and last what they do for the downloader (see ZVHttpBase.h), unless it says otherwise.
 * - Units. Positions and lengths are bytes, -1 means not set or unknown; durations are milliseconds.
 *
 * Life of a handle: Init; settings; SetLocalCache, if wanted; Open; SetDuration when the player knows it; Read until it
 * gives 0, or stop early; SetRange and Open to seek; Release. One handle plays one stream: with the file cache on,
 * another URL given to Open is only where the same stream is fetched from now on.
 *
 * Without the file cache a handle behaves as a downloader whose message callback never receives 302.
 */
#ifndef INCLUDE_ZV_HTTP_BASE_CACHE_H
#define INCLUDE_ZV_HTTP_BASE_CACHE_H

#include <stdint.h>

#include "ZVHttpBase.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HttpBaseCache HttpBaseCache;

/* The same for both caches. */
#ifndef ZV_LOCAL_CACHE_PARAM
#define ZV_LOCAL_CACHE_PARAM
typedef struct LocalCacheParam {
  /* Seconds of media to keep ahead of the player; less than 40 counts as 40. */
  int32_t cacheTime;
  /* Text put in front of the name of every cache file as it is: a folder with its separator, and perhaps a prefix. In the
   * narrow character set of the C runtime, as fopen takes it: on Windows that is the system's code page, not UTF-8. */
  const char* cacheDir;
} LocalCacheParam;
#endif

/* What the cache state callback receives: the media time that can be read without the network, in milliseconds, whole
 * seconds. It comes when that has changed by more than a second of media, and whenever nothing is left. */
enum { ZV_CACHE_STATE_BUFFERED = 0 };
typedef void (*HttpBaseCacheStateCallback)(void* userData, int32_t state, int32_t value);

/* Makes a handle, idle, with the file cache off. callback (may be null) receives 200 once for each Open that is
 * answered, and HTTP statuses and failure codes as in ZVHttpBase.h, but never 302. While bytes are cached ahead of the
 * player a failure is kept back until they are read; the stream is then asked for again, so that a failure that has
 * passed is never heard of. After the failure of a first Open or of a seek nothing is cached and nothing is asked for
 * again by itself: only another seek helps (SetRange and Open). Null when something could not be made; then nothing is left behind. */
ZV_HTTP_BASE_API HttpBaseCache* ZV_HttpBaseCacheInit(HttpBaseMsgCallback callback, void* userData);

/* Stops everything without reporting a code, deletes the cache files, frees everything and sets *cache to null. A full
 * cache file takes the system up to a millisecond to delete, and there may be 300. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheRelease(HttpBaseCache** cache);

/* Starts the stream, or carries out the seek of SetRange, and returns at once. A seek to a cached byte is answered from
 * the cache: 200 reaches the callback before Open returns, and nothing is asked of the server. Another one starts a
 * request at that byte; its 200 or its failure comes later. -1 when an argument is null, memory runs out, the stream is
 * open already and no seek is wanted (Close does not change that while the file cache is on), or on a callback's
 * thread. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseCacheOpen(HttpBaseCache* cache, const char* url);

/* With the file cache on: puts NeedDownloadComplete back and gives 0; the download and the cache go on, for the next
 * SetRange and Open. Without: closes the downloader. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseCacheClose(HttpBaseCache* cache);

/* Copies the next bytes, at most size, to buffer and their count to *readSize. Waits for nothing but the disk.
 *  1: call again; *readSize may be 0, then nothing has arrived yet, or a failure has been reported (see Init: after some
 *     nothing will arrive until the player seeks).
 *  0: the end of the stream; the last bytes may come with it. Without the file cache also after a failure.
 * -1: cache, buffer or readSize is null. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseCacheRead(HttpBaseCache* cache, void* buffer, uint32_t size, uint32_t* readSize);

/* Turns the file cache on, once, before the first Open; later calls are refused, and so are calls while a stream is open.
 * A start given to SetRange before is where the first Open seeks to. Makes the first file of 8 MiB; when it
 * cannot be made the handle goes on without. At most 300 such files hold bytes, and one more is made ready. When none can
 * be written any more the handle leaves its file cache by itself, as CloseLocalCache does. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetLocalCache(HttpBaseCache* cache, const LocalCacheParam* param);

/* The length of the media. From it and the length of the stream follow how many bytes are kept ahead (5 MiB before) and
 * what a second of media is (1 MiB before). 0 and less are stored and change neither; nothing happens without the file
 * cache. May be called before the length of the stream is known. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetDuration(HttpBaseCache* cache, const int32_t* duration);

/* *time becomes the media time cached ahead of the player, in whole seconds but in milliseconds; the cache time once as
 * much is cached as is kept ahead; 0 without the file cache. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheGetBufferingTime(HttpBaseCache* cache, int32_t* time);

/* Leaves the file cache for good: deletes the cache files and goes on at the byte that would have been read next,
 * straight from the downloader; the 200 of that request reaches the callback. Nothing happens without the file cache. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheCloseLocalCache(HttpBaseCache* cache);

/* Sets the cache state callback; both arguments must be given. Next report. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetCacheStateCallback(HttpBaseCache* cache, HttpBaseCacheStateCallback callback);

/* With the file cache on: the next Open seeks to start (negative: 0); end has no effect, and until then Read goes on
 * where it was. Without: the range of the next Open, as for the downloader. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetRange(HttpBaseCache* cache, int64_t start, int64_t end);

/* As for the downloader, for every request from now on; Close puts it back to -1. Once the file cache has been left it has
 * no effect on requests that begin within the stream: a whole resource would begin at its first byte. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetNeedDownloadComplete(HttpBaseCache* cache, int32_t flag);

/* Length of the stream: -1 before the first answer, 0 while the server has not told it; known at the latest when the end
 * has been fetched. With the file cache on it lasts for the handle's life, otherwise Close forgets it. */
ZV_HTTP_BASE_API int64_t ZV_HttpBaseCacheGetContentLength(HttpBaseCache* cache);

/* Those of the downloader. With the file cache on they change with each request that the cache makes; the redirect URL is
 * borrowed, valid until 64 later ones have been met or the player opens without the file cache. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseCacheGetOpenFlag(HttpBaseCache* cache);
ZV_HTTP_BASE_API int32_t ZV_HttpBaseCacheGetDownSpeed(HttpBaseCache* cache);
ZV_HTTP_BASE_API const char* ZV_HttpBaseCacheGetRedirectURL(HttpBaseCache* cache);

/* The settings of the downloader. Strings and addresses must not be null. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetUserAgent(HttpBaseCache* cache, const char* userAgent);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheCleanUserAgent(HttpBaseCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetDevice(HttpBaseCache* cache, const char* device);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheCleanDevice(HttpBaseCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetReqHeader(HttpBaseCache* cache, const char* headerLine);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheCleanReqHeader(HttpBaseCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetRetryTimes(HttpBaseCache* cache, int32_t count);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetRetryDelay(HttpBaseCache* cache, int32_t ms);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetDownloadType(HttpBaseCache* cache, int32_t type);
/* 0 is refused. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetNetMonitor(HttpBaseCache* cache, intptr_t monitor);
/* Connections and bytes of one range, given by their addresses. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetHttpConnNum(HttpBaseCache* cache, const int32_t* count);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetHttpConnRangeSize(HttpBaseCache* cache, const int32_t* bytes);

/* Response headers to keep. Keys and the last values last through the requests that the cache makes by itself; without
 * the file cache Close drops them. */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheSetRespKey(HttpBaseCache* cache, const char* key);
ZV_HTTP_BASE_API void ZV_HttpBaseCacheCleanRespKey(HttpBaseCache* cache);
/* *value must not be null when the call is made (its text is not freed); it becomes a copy of what was kept for key, or
 * null when there is none. The caller frees the copy with ZV_Free(&value). */
ZV_HTTP_BASE_API void ZV_HttpBaseCacheGetRespbyKey(HttpBaseCache* cache, const char* key, char** value);

#ifdef __cplusplus
}
#endif

#endif
