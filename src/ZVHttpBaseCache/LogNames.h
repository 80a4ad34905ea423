// Under which names this unit logs.
#pragma once

#include "Common/Log.h"

constexpr char kLogTag[] = "ZVLib-ZVHttpBaseCache";
constexpr char kLogPath[] = "src/ZVHttpBaseCache";

// Says under the exported function's own name that an argument is missing. Static: each unit logs under its own tag.
static inline bool HasParams(const char* name, bool given) {
  if (!given) {
    LOG_ERROR_AS(name, "%s input params failed");
  }
  return given;
}
