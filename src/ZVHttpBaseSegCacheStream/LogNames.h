// Under which names this unit logs.
#pragma once

#include "Common/Log.h"

constexpr char kLogTag[] = "ZVLib-ZVHttpBaseSegCacheStream";
constexpr char kLogPath[] = "src/ZVHttpBaseSegCacheStream";

// The two wordings for a missing argument, under the exported function's own name. Static: each unit logs under its own
// tag.
static inline bool HasParams(const char* name, bool given) {
  if (!given) {
    LOG_ERROR_AS(name, "%s input params failed");
  }
  return given;
}

static inline bool IsLegal(const char* name, bool given) {
  if (!given) {
    LOG_ERROR_AS(name, "%s input params illegal");
  }
  return given;
}
