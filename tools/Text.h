// Small texts for people: sizes, times, and strings from the network made safe for a terminal.
#ifndef TOOLS_TEXT_H
#define TOOLS_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

// The text on one line: control characters, which could drive the terminal, become '?'.
std::string Printable(std::string_view text);

// "517 B", "12.3 MB", "4.7 GB": units of 1000.
std::string FormatBytes(double bytes);

// "0:07", "12:34", "1:02:03"; "-:--" for a negative or absurd number of seconds.
std::string FormatSeconds(double seconds);

// The value with so many digits behind the point.
std::string FormatFixed(double value, int digits);

// "zvhttp: " and the text as one line on standard error.
void PrintError(std::string_view text);

#endif
