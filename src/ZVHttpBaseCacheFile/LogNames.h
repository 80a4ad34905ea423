// Under which names this unit logs.
#pragma once

#include "Common/Log.h"

constexpr char kLogTag[] = "ZVLib-HttpBaseCacheFile";
constexpr char kLogPath[] = "src/ZVHttpBaseCacheFile";
