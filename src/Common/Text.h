// Strings owned by records: copies that come from and go back to the platform's memory.
#pragma once

#include <cstring>

#include "ZVBase.h"

// A copy of the first length characters of text, ended by a zero; null when memory runs out.
inline char* CopyText(const char* text, size_t length) {
  char* const copy = static_cast<char*>(ZV_Malloc(length + 1));
  if (copy != nullptr) {
    memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

inline char* CopyText(const char* text) {
  return CopyText(text, strlen(text));
}

// Replaces *owned by a copy of text, or by null when text is null. False when memory ran out; *owned is null then.
inline bool ReplaceText(char** owned, const char* text) {
  ZV_Free(owned);
  if (text == nullptr) {
    return true;
  }
  *owned = CopyText(text);
  return *owned != nullptr;
}
