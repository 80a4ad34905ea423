// What the other units of the library may use of the downloader beyond its exported functions.
#pragma once

#include <cstdint>

#include "ZVHttpBase.h"

// An answer that ignores the range of ZV_HttpBaseSetRange is cut to it (1) instead of being delivered whole (0, default).
void ZVIner_SetStrictRange(HttpBase* hb, int32_t strict);

// Gives the first byte of the range that the next Open would ask for, -1 for none, and takes the range back.
int64_t ZVIner_TakeRangeStart(HttpBase* hb);

// Waits until a read would deliver bytes or the end, until cancelled(argument) holds, or at most ms. Returns early for no
// reason too. cancelled may be null; who changes what it looks at calls ZVIner_WakeReaders.
void ZVIner_WaitReadable(HttpBase* hb, int32_t ms, bool (*cancelled)(void* argument), void* argument);
void ZVIner_WakeReaders(HttpBase* hb);

// 1 when the body is unpacked on the way, so that the length of the headers is not that of the stream; else 0.
int32_t ZVIner_IsContentEncoded(HttpBase* hb);

// 1 when the download has ended and neither failed nor got an error status; else 0.
int32_t ZVIner_HasEndedWell(HttpBase* hb);

// 1 on the handle's own threads, where Open, Close and Release are refused; else 0.
int32_t ZVIner_IsOwnThread(HttpBase* hb);
