#include "Pattern.h"

#include <bit>
#include <cstring>

namespace origin {
namespace {

constexpr size_t kWordBytes = 8;

// The eight bytes of the pattern that begin at 8 * number; the first of them is the lowest.
uint64_t Word(uint64_t number, uint64_t start) {
  const uint64_t mixed = (number + start) * 0x9E3779B97F4A7C15ULL;
  return mixed ^ (mixed >> 32);
}

// Far apart for neighbouring seeds, so that two media never look like shifted copies of each other.
uint64_t StartOf(uint32_t seed) {
  return seed * 0xD6E8FEB86659FD93ULL;
}

uint8_t ByteOf(uint64_t word, uint64_t p) {
  return static_cast<uint8_t>(word >> (8 * (p % kWordBytes)));
}

uint64_t ToMemoryOrder(uint64_t word) {
  if constexpr (std::endian::native == std::endian::big) {
    return __builtin_bswap64(word);
  }
  return word;
}

size_t MismatchByBytes(const uint8_t* bytes, uint64_t pos, size_t n, uint32_t seed) {
  for (size_t i = 0; i < n; ++i) {
    if (bytes[i] != PatternByte(pos + i, seed)) {
      return i;
    }
  }
  return n;
}

// Bytes before the first whole word at or behind pos, n at most.
size_t HeadBytes(uint64_t pos, size_t n) {
  const size_t head = static_cast<size_t>((kWordBytes - pos % kWordBytes) % kWordBytes);
  return head < n ? head : n;
}

}  // namespace

uint8_t PatternByte(uint64_t p, uint32_t seed) {
  return ByteOf(Word(p / kWordBytes, StartOf(seed)), p);
}

void FillPattern(void* out, uint64_t pos, size_t n, uint32_t seed) {
  uint8_t* bytes = static_cast<uint8_t*>(out);
  size_t done = HeadBytes(pos, n);
  for (size_t i = 0; i < done; ++i) {
    bytes[i] = PatternByte(pos + i, seed);
  }
  const uint64_t start = StartOf(seed);
  uint64_t number = (pos + done) / kWordBytes;
  for (; n - done >= kWordBytes; done += kWordBytes) {
    const uint64_t word = ToMemoryOrder(Word(number++, start));
    memcpy(bytes + done, &word, kWordBytes);
  }
  for (; done < n; ++done) {
    bytes[done] = PatternByte(pos + done, seed);
  }
}

size_t FindPatternMismatch(const void* data, uint64_t pos, size_t n, uint32_t seed) {
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  size_t done = HeadBytes(pos, n);
  const size_t inHead = MismatchByBytes(bytes, pos, done, seed);
  if (inHead < done) {
    return inHead;
  }
  const uint64_t start = StartOf(seed);
  uint64_t number = (pos + done) / kWordBytes;
  for (; n - done >= kWordBytes; done += kWordBytes) {
    uint64_t word;
    memcpy(&word, bytes + done, kWordBytes);
    if (word != ToMemoryOrder(Word(number++, start))) {
      break;
    }
  }
  return done + MismatchByBytes(bytes + done, pos + done, n - done, seed);
}

bool CheckPattern(const void* data, uint64_t pos, size_t n, uint32_t seed) {
  return FindPatternMismatch(data, pos, n, seed) == n;
}

}  // namespace origin
