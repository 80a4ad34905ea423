/* ZVHttpBase: a downloader that fetches one URL, or one byte range of it, over one to five parallel HTTP or HTTPS
 * connections and hands over the bytes in order. Plain C.
 *
 * Conventions, for every function below:
 *
 * - Results. Open and Close give 0 or -1. Read gives 1 (call again), 0 (end of stream) or -1 (bad arguments). Getters give
 *   the value, or -1 (null for strings) for a null handle. Setters, Clean functions and Release give nothing unless listed.
 * - Bad arguments do nothing and leave a line of level 2 in the log (see LumLog.h), which is silent unless a callback is
 *   set.
 * - Threads. Every function may be called from any thread at any time between Init and Release, with two limits: Read by
 *   one thread at a time, and Release only when no other call on the handle is under way or will come. The callbacks run
 *   on the handle's own threads; they should return quickly, since the transfer that called waits for them. From a
 *   callback every function of the handle may be called except Open, Close and Release, which are refused there.
 * - Ownership. Strings given in are copied. A string handed out is borrowed from the handle, except the value of
 *   ZV_HttpBaseGetRespbyKey, which the caller frees with ZV_Free of ZVBase.
 * - Settings. "Next download": taken once when the next download starts. "Next request": reaches a running download at its
 *   next request or retry. Settings last for the handle's life unless it says that Close resets them.
 * - Units. Positions and lengths are bytes, -1 means not set or unknown; byte ranges name their first and last byte.
 *
 * Life of a handle: Init; settings; Open; Read until it gives 0, or stop early; Close; Open again as often as needed;
 * Release.
 *
 * Certificates of HTTPS servers are not checked: this library is for players that must accept any origin they are given.
 */
#ifndef INCLUDE_ZV_HTTP_BASE_H
#define INCLUDE_ZV_HTTP_BASE_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(ZV_HTTP_BASE_BUILD)
#define ZV_HTTP_BASE_API __declspec(dllexport)
#elif defined(ZV_HTTP_BASE_STATIC)
#define ZV_HTTP_BASE_API
#else
#define ZV_HTTP_BASE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define ZV_HTTP_BASE_API __attribute__((visibility("default")))
#else
#define ZV_HTTP_BASE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct HttpBase HttpBase;

/* Codes that reach the message callback, beside HTTP statuses, which arrive as they are (404, 503, ...). */
enum {
  /* The first bytes of a download whose status was 200 or 206, or the end of one that is empty. Once per download. */
  ZV_HTTP_CODE_OK = 200,
  /* A followed redirect reached its target; ZV_HttpBaseGetRedirectURL names it. Again for every later good
   * answer of that download. */
  ZV_HTTP_CODE_REDIRECTED = 302,
  /* The URL is not http:// or https://, memory ran out, or a transfer failed after its retries. */
  ZV_HTTP_CODE_FAILED = 11111,
  /* Status 410, or no connection or no answer in time after the retries. */
  ZV_HTTP_CODE_UNREACHABLE = 22222
};

/* The message callback: what happened to the download. Its result is ignored. After an HTTP error status the body of the
 * error is delivered by Read like any other body when it was the first answer of the download; the body of a later one is
 * dropped. */
typedef int32_t (*HttpBaseMsgCallback)(void* userData, int32_t code);

/* The retry callback: a transfer has used up its retries. *value is 0 on entry. A value of 3000 or more left there asks
 * for one more attempt and to be asked again; less gives the transfer one last attempt. zero is 0. */
typedef int32_t (*HttpBaseRetryCallback)(void* userData, int32_t* value, int32_t zero);

/* Makes a handle with its six threads, idle. callback is required; userData is passed to both callbacks and stays the
 * caller's. Null when callback is null or something could not be made; then nothing is left behind. */
ZV_HTTP_BASE_API HttpBase* ZV_HttpBaseInit(HttpBaseMsgCallback callback, void* userData);

/* Starts to download url in the background and returns at once. -1 when the handle or url is null, when a download is
 * open (Close it first; it goes on undisturbed), or on a callback's thread. Everything else that can go wrong, a bad URL
 * included, is reported through the message callback. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseOpen(HttpBase* hb, const char* url);

/* Copies the next bytes of the stream, at most size, to buffer and their count to *readLen. Never waits.
 *  1: call again; *readLen may be 0, then nothing has arrived yet.
 *  0: the end; the last bytes may come with it. Also after a failure, when all that arrived before it has been read, and
 *     after Close. Repeats for every further call.
 * -1: hb, buffer or readLen is null, or size is 0. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseRead(HttpBase* hb, void* buffer, uint32_t size, uint32_t* readLen);

/* Stops the download and waits until nothing works on it any more: afterwards no callback of it comes. Takes milliseconds
 * in every state, longer only while a callback has not returned. Puts the range, NeedDownloadComplete and the response
 * keys back to their defaults. -1 when hb is null, when it is closed already, or on a callback's thread. A handle that was
 * never opened can be closed once. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseClose(HttpBase* hb);

/* Stops what runs, without reporting a code, joins the threads, frees everything and sets *hb to null. Refused on a
 * callback's thread. */
ZV_HTTP_BASE_API void ZV_HttpBaseRelease(HttpBase** hb);

/* 0 between Open and Close, -1 otherwise and for a null handle. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseGetOpenFlag(HttpBase* hb);

/* Bytes per second of the running download since it began, 0 before its first byte; of the last one after its end (0
 * before any); -1 after Close. At most 2147483647. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseGetDownSpeed(HttpBase* hb);

/* Where redirects have led this download, or null. Borrowed: valid until the next Open or Release. */
ZV_HTTP_BASE_API const char* ZV_HttpBaseGetRedirectURL(HttpBase* hb);

/* Length of the whole resource: -1 before it is known, 0 when the server does not tell (chunked or encoded answers). */
ZV_HTTP_BASE_API int64_t ZV_HttpBaseGetContentLength(HttpBase* hb);

/* Restricts the next download to the bytes start to end. -1 leaves a side open; (-1, n) asks for the last n bytes; a start
 * behind the end asks for everything. A server that ignores ranges sends everything, and everything is delivered. Default
 * (-1, -1); Close resets it. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetRange(HttpBase* hb, int64_t start, int64_t end);

/* Non-zero (default -1): the next download is progressive. 0: it fetches the whole resource over one connection without a
 * range into memory (1 GiB at most, beyond it fails) and Read gives nothing until it has ended. Close resets it. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetNeedDownloadComplete(HttpBase* hb, int32_t flag);

/* User-Agent of the next request; null or Clean: the default, ZOVEX/1.0. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetUserAgent(HttpBase* hb, const char* userAgent);
ZV_HTTP_BASE_API void ZV_HttpBaseCleanUserAgent(HttpBase* hb);

/* Network interface (a name such as eth0, an address or a host name of this machine) from which the next request is sent;
 * default, and after Clean: the system's choice. An interface that does not exist fails the transfer. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetDevice(HttpBase* hb, const char* device);
ZV_HTTP_BASE_API void ZV_HttpBaseCleanDevice(HttpBase* hb);

/* Adds a header line, "Name: value", to the next request and all after it; the same line may be added twice. A line
 * named Range would take the place of the library's own and fail the download: use ZV_HttpBaseSetRange. Default, and after
 * Clean: "Connection: keep-alive" and "DownLoadRate: 20000.0". */
ZV_HTTP_BASE_API void ZV_HttpBaseSetReqHeader(HttpBase* hb, const char* headerLine);
ZV_HTTP_BASE_API void ZV_HttpBaseCleanReqHeader(HttpBase* hb);

/* Asks for the value of the response header key (any case) to be kept from the next answer on; the last line that carries
 * the key wins. Close and Clean drop all keys and values. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetRespKey(HttpBase* hb, const char* key);
ZV_HTTP_BASE_API void ZV_HttpBaseCleanRespKey(HttpBase* hb);

/* *value becomes a copy of what was kept for key, spelled as it was set; null when there is none. The caller frees the
 * copy with ZV_Free(&value). */
ZV_HTTP_BASE_API void ZV_HttpBaseGetRespbyKey(HttpBase* hb, const char* key, char** value);

/* Retries of a transfer that fails, beside its first attempt. Default 2; negative: until Close. Next failure. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetRetryTimes(HttpBase* hb, int32_t count);

/* Milliseconds between attempts, rounded up to the next full 100. Default 3000, which negative values and 2147483647 also
 * mean. Next failure. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetRetryDelay(HttpBase* hb, int32_t ms);

/* 0 (default) or 1; stored, of no effect. Other values are refused. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetDownloadType(HttpBase* hb, int32_t type);

/* Stored, of no effect. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetNetMonitor(HttpBase* hb, intptr_t monitor);

/* Connections of the next download, 1 (default) to 5. 0; less than 1 is refused with -1, more than 5 counts as 5. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSetDownloadThreadNum(HttpBase* hb, int32_t count);

/* Bytes of one range, and of one fragment of the buffer, of the next download: 204800 to 716800, brought to the nearest
 * bound; default 512000. 0, or -1 for a null handle. */
ZV_HTTP_BASE_API int32_t ZV_HttpBaseSetDownloadSegLen(HttpBase* hb, int32_t length);

/* Installs the retry callback, null removes it (the default). The message callback stays. Next failure. */
ZV_HTTP_BASE_API void ZV_HttpBaseSetMsgCallBack(HttpBase* hb, HttpBaseRetryCallback callback);

#ifdef __cplusplus
}
#endif

#endif
