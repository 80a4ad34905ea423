// Log lines: each unit defines kLogTag and kLogPath; the macros add the line and the function's own name, which is the
// first argument of every format. LOG_..._AS is for a helper that logs for its caller.
#pragma once

#include "LumLog.h"

#define LOG_LINE(level, name, format, ...) \
  ((void)LumLog(level, kLogTag, kLogPath, __LINE__, format, name __VA_OPT__(, ) __VA_ARGS__))

#define LOG_TRACE(format, ...) LOG_LINE(LUM_LEVEL_TRACE, __func__, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_ERROR(format, ...) LOG_LINE(LUM_LEVEL_ERROR, __func__, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_FAILURE(format, ...) LOG_LINE(LUM_LEVEL_FAILURE, __func__, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_TRACE_AS(name, format, ...) LOG_LINE(LUM_LEVEL_TRACE, name, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_ERROR_AS(name, format, ...) LOG_LINE(LUM_LEVEL_ERROR, name, format __VA_OPT__(, ) __VA_ARGS__)
#define LOG_FAILURE_AS(name, format, ...) LOG_LINE(LUM_LEVEL_FAILURE, name, format __VA_OPT__(, ) __VA_ARGS__)

// A text that is safe to print.
inline const char* Printable(const char* text) {
  return text == nullptr ? "(null)" : text;
}

// %lld wants long long, which is not what int64_t is everywhere.
inline long long Wide(long long value) {
  return value;
}
