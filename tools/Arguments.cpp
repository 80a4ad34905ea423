#include "Arguments.h"

#include <map>

#include "LumLog.h"

namespace {

std::string CheckHeaderLine(const std::string& text) {
  const size_t colon = text.find(':');
  if (colon == 0 || colon == std::string::npos) {
    return "'" + text + "' is not 'Name: value'";
  }
  return CheckOneLine(text);
}

}  // namespace

std::string CheckOneLine(const std::string& text) {
  return text.find_first_of("\r\n") == std::string::npos ? "" : "line breaks are not allowed";
}

std::string CheckNotEmpty(const std::string& text) {
  return text.empty() ? "must not be empty" : CheckOneLine(text);
}

CLI::Validator Named(std::string (*check)(const std::string&)) {
  return {check, "", ""};
}

void AddUrl(CLI::App* app, CommonOptions* options) {
  app->add_option("URL", options->url, "What to fetch, http:// or https://")
      ->type_name("")
      ->required()
      ->check(Named(CheckNotEmpty));
}

void AddRequestOptions(CLI::App* app, CommonOptions* options) {
  app->add_option("-H,--header", options->requestHeaders, "Add a request header line, 'Name: value'; repeatable")
      ->type_name("LINE")
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false)
      ->check(Named(CheckHeaderLine));
  app->add_option("-A,--user-agent", options->userAgent, "User-Agent instead of ZOVEX/1.0")
      ->type_name("AGENT")
      ->check(Named(CheckOneLine));
  app->add_option("--interface", options->interfaceName, "Send from this network interface, address or host name")
      ->type_name("NAME")
      ->check(Named(CheckNotEmpty));
  app->add_option("--retries", options->retries, "Attempts after the first one; -1: without end; default 2")
      ->type_name("N")
      ->check(CLI::Range(-1, kNoLimit));
  // The largest number means the default to the library.
  app->add_option("--retry-delay", options->retryDelayMs, "Milliseconds between attempts; default 3000")
      ->type_name("MS")
      ->check(CLI::Range(0, kNoLimit - 1));
}

void AddHeaderKeyOption(CLI::App* app, CommonOptions* options) {
  app->add_option("--header-key", options->headerKeys, "Report the value of this response header; repeatable")
      ->type_name("KEY")
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false)
      ->check(Named(CheckNotEmpty));
}

void AddReportOptions(CLI::App* app, CommonOptions* options) {
  app->add_flag("--stats", options->stats, "Print a table of figures on standard error at the end");
  app->add_flag("--json", options->json,
                "Print a JSON object at the end, on failure too; on standard output, with -o - on standard error");
  app->add_flag("--quiet", options->quiet, "No progress line; errors are still told");
}

void AddConnectionOptions(CLI::App* app, CommonOptions* options) {
  AddUrl(app, options);
  app->add_option("-n,--connections", options->connections, "Connections, 1 to 5; default 1")
      ->type_name("N")
      ->check(CLI::Range(kLeastConnections, kMostConnections));
  app->add_option("--segment", options->segmentBytes, "Bytes of one range request, 204800 to 716800; default 512000")
      ->type_name("BYTES")
      ->check(CLI::Range(kLeastSegmentBytes, kMostSegmentBytes));
  AddRequestOptions(app, options);
}

void AddLogOption(CLI::App* app, CommonOptions* options) {
  const std::map<std::string, int32_t> levels = {
      {"trace", LUM_LEVEL_TRACE}, {"error", LUM_LEVEL_ERROR}, {"failure", LUM_LEVEL_FAILURE}};
  app->add_option("--log", options->logLevel, "Log lines on standard error from this level on: trace, error, failure")
      ->type_name("LEVEL")
      ->transform(CLI::CheckedTransformer(levels).description(""));
}

void AddCommonOptions(CLI::App* app, CommonOptions* options) {
  AddConnectionOptions(app, options);
  AddHeaderKeyOption(app, options);
  AddReportOptions(app, options);
  AddLogOption(app, options);
}

void AddOutputOption(CLI::App* app, std::string* output) {
  app->add_option("-o,--output", *output, "File to write; default '-': standard output")
      ->type_name("FILE")
      ->check(Named(CheckNotEmpty));
}

void AddCacheOptions(CLI::App* app, std::optional<std::string>* folder, int32_t* cacheTime) {
  app->add_option("--cache-dir", *folder,
                  "Keep the cache files in this folder; default: a private one in the temporary directory")
      ->type_name("DIR")
      ->check(Named(CheckNotEmpty));
  app->add_option("--cache-time", *cacheTime, "Seconds of media to keep ahead, at least 40; default 40")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, kNoLimit));
}
