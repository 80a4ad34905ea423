// Under which names this unit logs.
#pragma once

#include "Common/Log.h"

constexpr char kLogTag[] = "ZVLib-ZVHttpBaseCache";
constexpr char kLogPath[] = "src/ZVHttpBaseCache";
