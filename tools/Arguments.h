// Options that several commands take: how they are called, what they accept, what --help says.
#ifndef TOOLS_ARGUMENTS_H
#define TOOLS_ARGUMENTS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "CommonOptions.h"

constexpr int32_t kNoLimit = std::numeric_limits<int32_t>::max();
// As the positions of --range.
constexpr int64_t kLastPosition = (int64_t{1} << 62) - 1;

// A check gives an empty text to accept; any other is the error that CLI11 shows.
CLI::Validator Named(std::string (*check)(const std::string&));
std::string CheckOneLine(const std::string& text);
std::string CheckNotEmpty(const std::string& text);

void AddUrl(CLI::App* app, CommonOptions* options);
// -H, -A, --interface, --retries, --retry-delay.
void AddRequestOptions(CLI::App* app, CommonOptions* options);
// The URL, -n, --segment and those of requests.
void AddConnectionOptions(CLI::App* app, CommonOptions* options);
void AddHeaderKeyOption(CLI::App* app, CommonOptions* options);
// --stats, --json, --quiet.
void AddReportOptions(CLI::App* app, CommonOptions* options);
void AddLogOption(CLI::App* app, CommonOptions* options);
// All of these.
void AddCommonOptions(CLI::App* app, CommonOptions* options);

// -o of a command that writes to standard output unless told otherwise.
void AddOutputOption(CLI::App* app, std::string* output);
// --cache-dir and --cache-time.
void AddCacheOptions(CLI::App* app, std::optional<std::string>* folder, int32_t* cacheTime);

#endif
