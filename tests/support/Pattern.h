// Synthetic media: the byte at position p is a fixed function of p, so any byte read anywhere can be checked without
// storing the media. Every word of eight bytes is a mix of its number; no shift short of 2^60 bytes repeats the data.
#ifndef TESTS_SUPPORT_PATTERN_H
#define TESTS_SUPPORT_PATTERN_H

#include <cstddef>
#include <cstdint>

namespace origin {

// The byte at position p of the pattern that belongs to seed.
uint8_t PatternByte(uint64_t p, uint32_t seed = 0);

// Writes the n bytes of the pattern that begin at pos.
void FillPattern(void* out, uint64_t pos, size_t n, uint32_t seed = 0);

// Whether data holds the n bytes of the pattern that begin at pos.
bool CheckPattern(const void* data, uint64_t pos, size_t n, uint32_t seed = 0);

// The index in data of the first byte that differs from the pattern, n when none does: for messages.
size_t FindPatternMismatch(const void* data, uint64_t pos, size_t n, uint32_t seed = 0);

}  // namespace origin

#endif
