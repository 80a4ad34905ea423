/* ZVHttpBaseSegCache: plays a list of media segments. With its local cache on, one to five workers fetch the segments
 * that follow the one being read into files on disk. Plain C.
 *
 * Conventions, for every function below:
 *
 * - Results. Open and Close give 0 or -1. Read gives 1 (call again), 0 (end of the segment) or -1 (bad arguments, or
 *   nothing is open). AddSegment gives 0 or 1. Getters give the value, or -1 (null for strings) for a null handle. All
 *   others give nothing.
 * - Bad arguments do nothing and leave a line of level 2 in the log (see LumLog.h).
 * - Threads. Open, Read and Close by one thread at a time; Release only when no other call on the handle is under way or
 *   will come; every other function from any thread at any time between Init and Release. The callbacks run on the
 *   handle's own threads, and on the caller's inside Open, Read, Close and CloseLocalCache; no lock of the library is held
 *   then. From a callback every function of the handle may be called except Open, Close, CloseLocalCache and Release,
 *   which are refused there.
 * - Ownership. Strings given in are copied. A string handed out is borrowed from the handle, except the value of
 *   ZV_HttpBaseSegCacheGetRespbyKey, which the caller frees with ZV_Free of ZVBase.
 * - Units. Positions and lengths are bytes, durations and cached times milliseconds.
 *
 * Two modes. Direct, from Init on: the handle is one downloader (see ZVHttpBase.h) of any URL. Local cache, from
 * SetLocalCache until CloseLocalCache, or until a cache file can be neither made nor written: only listed segments are
 * opened and what is read comes from files. A handle that has left the local cache stays direct.
 *
 * Life of a handle with the local cache: Init; SetCacheStateCallback; SetThreadNumber; SetLocalCache; SetList; AddSegment
 * for each segment; then for each segment Open, Read until it gives 0, Close; Release. AddSegment and UpdateTsUrlBySeq go
 * on meanwhile as the playlist changes.
 */
#ifndef INCLUDE_ZV_HTTP_BASE_SEG_CACHE_H
#define INCLUDE_ZV_HTTP_BASE_SEG_CACHE_H

#include <stdint.h>

#include "ZVHttpBase.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HttpBaseSegCache HttpBaseSegCache;

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

/* What the cache state callback receives. */
enum {
  /* The media time cached ahead of the reader, in milliseconds: when a segment has been cached, about once a second of
   * media while a segment is read, at its end, and 0 when the local cache is left. */
  ZV_SEG_CACHE_STATE_BUFFERED = 0,
  /* The local cache was given up because a file could not be made or written; the value is 0. Read goes on with the same
   * segment at the same byte, from the network. */
  ZV_SEG_CACHE_STATE_GIVEN_UP = 1
};
typedef void (*HttpBaseSegCacheStateCallback)(void* userData, int32_t state, int32_t value);

/* Bytes of the caller's list block that SetList copies. */
enum { ZV_SEG_CACHE_LIST_INFO_BYTES = 1024 };

/* Makes a handle in direct mode. callback (may be null) receives, in direct mode, every code of the downloader; with the
 * local cache only what concerns the segment being read: 200 or its error status, at once in Open when it is known by
 * then, else when it comes; 302 when it was redirected; a failure of its transfer (11111, 22222, or a status that is
 * neither 200 nor 4xx), after which Open the segment again to try anew. Null when something could not be made; then
 * nothing is left behind. */
ZV_HTTP_BASE_API HttpBaseSegCache* ZV_HttpBaseSegCacheInit(HttpBaseMsgCallback callback, void* userData);

/* Stops everything without reporting a code, joins the threads, deletes the cache files, frees everything and sets *cache
 * to null. Takes milliseconds in every state, longer only while a callback has not returned. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheRelease(HttpBaseSegCache** cache);

/* While the local cache is being given up, and in direct mode after it, Open and Close (and CloseLocalCache always) may
 * wait for a callback that has not returned: do not call them with a lock held that your callbacks take.
 *
 * Direct mode: as ZV_HttpBaseOpen; once the local cache has been on, what is still open is closed first.
 * Local cache: makes the listed segment that has this URL the one that is read, from its first byte, and lets the workers
 * fetch it and the at most 300 segments behind it whose durations add up to the cache time; always 0 (-1 for null
 * arguments and on a callback's thread). The URL is looked for exactly first, then without what follows the last "?". If
 * the same URL is listed twice the first is meant; after SetRange only a segment with that start is. What else happens:
 * - Not listed: the former segment stays the one that is read.
 * - Not yet fetched: downloads under way are dropped in favour of the new window. A failure of an earlier segment's
 *   transfer is forgotten, with one exception: after an error status other than 4xx of a segment ahead no worker fetches
 *   anything any more, and every Open of a segment that is not cached reports that status again. CloseLocalCache or a new
 *   handle leads out.
 * - Cached while such a failure (11111, 22222) of a segment ahead is waiting: the workers rest until the fifth Open of a
 *   cached segment, or the first of one that is not cached. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheOpen(HttpBaseSegCache* cache, const char* url);

/* Copies the next bytes of the segment, at most size, to buffer and their count to *readSize. Never waits for the
 * network.
 *  1: call again; *readSize may be 0: nothing more has arrived yet, or the segment has failed (see the callback).
 *  0: the end of the segment, complete; the last bytes may come with it. Repeats. In direct mode as ZV_HttpBaseRead.
 * -1: an argument is null, or with the local cache no segment has been opened. In direct mode also for a size below 1. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheRead(HttpBaseSegCache* cache, void* buffer, int32_t size,
                                                 uint32_t* readSize);

/* Puts NeedDownloadComplete back to -1. Direct mode: as ZV_HttpBaseClose. Local cache: 0; the workers go on. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheClose(HttpBaseSegCache* cache);

/* Turns the local cache on, once; later calls are refused. isVod 1: a list of fixed capacity, kept; 0: a live list of at
 * most 1,999 segments, those before the one being read are dropped. Starts five worker threads, of which SetThreadNumber
 * says how many fetch. When the first cannot be made the handle stays in direct mode. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetLocalCache(HttpBaseSegCache* cache, const LocalCacheParam* param,
                                                       int32_t isVod);

/* Leaves the local cache for good: stops and joins the workers, deletes the cache files and reports 0 ms. The next Open is
 * a direct one; until then Read gives nothing. Without the local cache it only deletes the files that are left. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheCloseLocalCache(HttpBaseSegCache* cache);

/* Stops fetching: downloads under way are dropped, and Read gives nothing unless its segment is complete. After
 * ResumeCaching Read goes on where it was. Both do nothing in direct mode. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheAbortCurrentCaching(HttpBaseSegCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheResumeCaching(HttpBaseSegCache* cache);

/* Sets the cache state callback; both arguments must be given. Next report. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetCacheStateCallback(HttpBaseSegCache* cache,
                                                               HttpBaseSegCacheStateCallback callback);

/* Prepares the list, once. listInfo: ZV_SEG_CACHE_LIST_INFO_BYTES bytes that are copied and kept; segmentNum: most
 * segments of an on-demand list (a live one ignores it), 0 or less allows none; startSeq is kept. Does nothing before
 * SetLocalCache. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetList(HttpBaseSegCache* cache, const void* listInfo, int32_t segmentNum,
                                                 int32_t startSeq);

/* Appends a segment. duration: ms, a negative one counts as 0; isRange not 0: only rangeLen bytes from rangeStart on, to
 * the end of the resource when rangeLen is 0 or less; seq: its media sequence number. On demand the same URL may be added
 * again. Live: a URL that is listed already, exactly or but for what follows its last "?" (and with the same range if it
 * is one), adds nothing and gives 0; its new form is taken over unless the segment is being fetched. A new segment joins
 * the window at the next Open. 1: the list is full or not there yet, memory ran out, an argument is null. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheAddSegment(HttpBaseSegCache* cache, const char* url, int32_t duration,
                                                       int32_t isRange, int32_t rangeStart, int32_t rangeLen,
                                                       int32_t seq);

/* Gives a segment another URL: on demand the one at place seq - startSeq, live the first with that seq. A download of it
 * that is under way goes on. When memory runs out the old URL stays. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheUpdateTsUrlBySeq(HttpBaseSegCache* cache, const char* url, int32_t startSeq,
                                                          int32_t seq);

/* How many workers fetch, 1 (default) to 5; more counts as 5, less is refused. At once; surplus workers finish what they
 * are at. Until the first segment of the handle's life is complete only one works. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetThreadNumber(HttpBaseSegCache* cache, int32_t threadNum);

/* Direct mode: the range of the next Open, as for the downloader. Local cache: the next Open, and only that, looks for a
 * segment whose range starts at start; end has no effect. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetRange(HttpBaseSegCache* cache, int64_t start, int64_t end);

/* As for the downloader, for every download from now on; Close puts it back to -1. Segments that are byte ranges are
 * fetched as such whatever it says. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetNeedDownloadComplete(HttpBaseSegCache* cache, int32_t flag);

/* Connections, and bytes of one range, of the next download: in direct mode of the handle's own downloader, with the
 * local cache of each worker's. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetHttpConnNum(HttpBaseSegCache* cache, int32_t count);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetHttpConnRangeSize(HttpBaseSegCache* cache, int32_t bytes);

/* Direct mode: 0 between Open and Close, else -1. Local cache: 0 from Open on, 1 from Close on, -1 before any Open. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheGetOpenFlag(HttpBaseSegCache* cache);

/* Direct mode: as ZV_HttpBaseGetContentLength. Local cache: the low 32 bits, with their sign, of the length of the
 * resource that holds the segment being read; 0 while unknown. */
ZV_HTTP_BASE_API int64_t ZV_HttpBaseSegCacheGetContentLength(HttpBaseSegCache* cache);

/* Those of the handle's own downloader, in both modes: they tell nothing of the workers' downloads. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSegCacheGetDownSpeed(HttpBaseSegCache* cache);
ZV_HTTP_BASE_API const char* ZV_HttpBaseSegCacheGetRedirectURL(HttpBaseSegCache* cache);

/* The settings of the handle's own downloader, in both modes: they do not reach the workers, whose requests keep the
 * defaults. Strings and addresses must not be null. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetUserAgent(HttpBaseSegCache* cache, const char* userAgent);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheCleanUserAgent(HttpBaseSegCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetDevice(HttpBaseSegCache* cache, const char* device);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheCleanDevice(HttpBaseSegCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetReqHeader(HttpBaseSegCache* cache, const char* headerLine);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheCleanReqHeader(HttpBaseSegCache* cache);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetRetryTimes(HttpBaseSegCache* cache, int32_t count);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetRetryDelay(HttpBaseSegCache* cache, int32_t ms);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetDownloadType(HttpBaseSegCache* cache, int32_t type);
/* 0 is refused. */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetNetMonitor(HttpBaseSegCache* cache, intptr_t monitor);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheSetRespKey(HttpBaseSegCache* cache, const char* key);
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheCleanRespKey(HttpBaseSegCache* cache);
/* *value must not be null when the call is made (its text is not freed); it becomes a copy of what was kept for key, or
 * null when there is none. The caller frees the copy with ZV_Free(&value). */
ZV_HTTP_BASE_API void ZV_HttpBaseSegCacheGetRespbyKey(HttpBaseSegCache* cache, const char* key, char** value);

#ifdef __cplusplus
}
#endif

#endif
