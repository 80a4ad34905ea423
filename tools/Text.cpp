#include "Text.h"

#include <array>
#include <cstdio>

namespace {

constexpr double kMostSecondsShown = 360000;  // a hundred hours

bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (IsControl(c)) {
      c = '?';
    }
  }
  return out;
}

std::string FormatFixed(double value, int digits) {
  // The largest double has 309 digits before the point.
  std::array<char, 400> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

std::string FormatBytes(double bytes) {
  constexpr std::array<const char*, 5> kUnits = {"B", "kB", "MB", "GB", "TB"};
  size_t unit = 0;
  while (bytes >= 999.95 && unit + 1 < kUnits.size()) {
    bytes /= 1000;
    ++unit;
  }
  return FormatFixed(bytes, unit == 0 ? 0 : 1) + " " + kUnits[unit];
}

std::string FormatSeconds(double seconds) {
  if (!(seconds >= 0 && seconds < kMostSecondsShown)) {
    return "-:--";
  }
  const auto whole = static_cast<int64_t>(seconds);
  std::array<char, 64> text{};
  const auto hours = static_cast<long long>(whole / 3600);
  const auto minutes = static_cast<long long>(whole / 60 % 60);
  const auto rest = static_cast<long long>(whole % 60);
  if (hours > 0) {
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", hours, minutes, rest);
  } else {
    std::snprintf(text.data(), text.size(), "%lld:%02lld", minutes, rest);
  }
  return text.data();
}

void PrintError(std::string_view text) {
  const std::string line = "zvhttp: " + Printable(text) + "\n";
  std::fputs(line.c_str(), stderr);
}
