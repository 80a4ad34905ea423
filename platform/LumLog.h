/* LumLog: the log sink of the library and of its platform.
 *
 * Nothing is written until a callback is set. Messages carry no trailing newline. Every function may be called from any
 * thread. Plain C.
 */
#ifndef PLATFORM_LUM_LOG_H
#define PLATFORM_LUM_LOG_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(LUM_LOG_BUILD)
#define LUM_API __declspec(dllexport)
#else
#define LUM_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define LUM_API __attribute__((visibility("default")))
#else
#define LUM_API
#endif

#if defined(__MINGW32__)
#define LUM_FORMAT(text, first) __attribute__((format(gnu_printf, text, first)))
#elif defined(__GNUC__)
#define LUM_FORMAT(text, first) __attribute__((format(printf, text, first)))
#else
#define LUM_FORMAT(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Traces and progress; errors (bad arguments, refused calls, failed allocations and file operations); failures of a
 * download or of an initialisation. */
enum { LUM_LEVEL_TRACE = 0, LUM_LEVEL_ERROR = 2, LUM_LEVEL_FAILURE = 3, LUM_LEVEL_NONE = 4 };

/* Receives one message. text is only valid during the call; texts longer than 2047 bytes arrive cut. It is called on the
 * thread that logs, which may hold locks of the library: it must not call the library, and should return quickly. */
typedef void (*LumLogCallback)(void* userData, int32_t level, const char* moduleTag, const char* sourcePath,
                               int32_t line, const char* text);

/* Formats a message like printf and hands it to the callback, if one is set and level is not below the threshold.
 * Without a callback it costs two loads. The result is the number of characters formatted, 0 when nothing was written. */
LUM_API int32_t LumLog(int32_t level, const char* moduleTag, const char* sourcePath, int32_t line, const char* format,
                       ...) LUM_FORMAT(5, 6);

/* Sets the lowest level that reaches the callback. Default LUM_LEVEL_TRACE; LUM_LEVEL_NONE silences everything. Takes
 * effect with the next message. */
LUM_API void LumLogSetLevel(int32_t level);

/* Sets the receiver and its user pointer; a null callback (the default) turns logging off. When this returns, no call of
 * the former callback is under way any more, so its user data may be freed. Must not be called from a callback. */
LUM_API void LumLogSetCallback(LumLogCallback callback, void* userData);

#ifdef __cplusplus
}
#endif

#endif
