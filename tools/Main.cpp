// zvhttp: the downloader and the caches on the command line. This file reads the arguments; each command has a file of its own.
#include <cstdio>
#include <exception>
#include <string>

#include "Arguments.h"
#include "Get.h"
#include "Hls.h"
#include "Probe.h"
#include "Serve.h"
#include "Signals.h"
#include "Stream.h"
#include "System.h"
#include "Text.h"

namespace {

constexpr const char* kExitCodes = R"(Exit codes:
  0    done
  1    internal error (memory ran out)
  2    bad arguments, nothing was attempted
  3    transfer failed: bad URL, no connection, time-out, broken off, too few bytes
  4    the server answered with an HTTP error status
  5    the output cannot be written (disk full, no permission, closed pipe)
  130  interrupted (SIGINT)
  143  terminated (SIGTERM)
)";

constexpr const char* kGetExamples = R"(Examples:
  zvhttp get http://host/film.mp4                        writes film.mp4
  zvhttp get -n 5 --stats -o /tmp/film http://host/film  over five connections
  zvhttp get --range -1000 -o - http://host/film | xxd   the last 1000 bytes

A file gets its name when it is complete; until then it is a hidden temporary file next to it.
)";

constexpr const char* kStreamExamples = R"(Examples:
  zvhttp stream http://host/film.mp4 | mpv -           plays while it reads ahead
  zvhttp stream -n 3 --duration 5400000 -o f http://host/film.mp4
  zvhttp stream --walk 7,200 http://host/film.mp4      200 random reads and seeks, a JSON line for each

It ends well when the reader of standard output has seen enough. The cache files are gone at the end, however it ends.
)";

constexpr const char* kHlsExamples = R"(Examples:
  zvhttp hls http://host/film.m3u8 | mpv -             plays while up to five workers fetch ahead
  zvhttp hls --variant 0 -o film.ts http://host/master.m3u8
  zvhttp hls --workers 2 --live-edge 1 --stats -o - http://host/live.m3u8 >/dev/null

Of a master playlist one variant is played, without renditions that have playlists of their own. What is written is the
segments in their order, with their maps (EXT-X-MAP) before them. Encrypted segments are refused. The options of requests
reach playlists and maps; segments are asked for with the library's defaults, and --retries and --retry-delay say how
often one is tried again after a status of 500 and more.
It ends well when the reader of standard output has seen enough. The cache files are gone at the end, however it ends.
)";

constexpr const char* kProbeExamples = R"(Examples:
  zvhttp probe --offset 90000000 http://host/film.mp4             a seek while the transfer runs
  zvhttp probe --offset 500000 --idle 2000 http://host/film.mp4   back into what is cached

Prints first_ms=X seek_ms=Y: from opening, and from the seek, to the first byte, in milliseconds.
)";

constexpr const char* kServeExamples = R"(Examples:
  zvhttp serve /srv/media --port 8080
  zvhttp serve --pattern 1000000000    1 GB of synthetic bytes under /pattern/1000000000

The URL is printed on standard output, a line per request on standard error. Ends with 0 on SIGINT and SIGTERM.
)";

// An empty text accepts; any other is the error that CLI11 shows.
std::string CheckRange(const std::string& text) {
  int64_t first = 0;
  int64_t last = 0;
  return ParseRangeText(text, &first, &last) ? "" : "'" + text + "' is not FIRST-LAST, FIRST- or -COUNT";
}

std::string CheckWalk(const std::string& text) {
  return ParseWalk(text) ? "" : "'" + text + "' is not SEED or SEED,STEPS";
}

CLI::App* AddGet(CLI::App* app, GetOptions* options, std::string* rangeText) {
  CLI::App* get = app->add_subcommand("get", "Fetch a URL into a file or to standard output");
  get->footer(std::string(kGetExamples) + "\n" + kExitCodes);
  AddCommonOptions(get, &options->common);
  get->add_option("-o,--output", options->output, "File to write, '-' for standard output; default: named by the URL")
      ->type_name("FILE")
      ->check(Named(CheckNotEmpty));
  CLI::Option* range =
      get->add_option("--range", *rangeText, "Only these bytes: FIRST-LAST, FIRST- to the end, -COUNT the last ones")
          ->type_name("RANGE")
          ->check(Named(CheckRange));
  get->add_flag("--whole", options->whole, "Fetch all of it into memory over one connection, then write it")
      ->excludes(range);
  return get;
}

CLI::App* AddStream(CLI::App* app, StreamOptions* options, std::string* walkText) {
  CLI::App* stream = app->add_subcommand("stream", "Read a URL through the cache, as a player does");
  stream->footer(std::string(kStreamExamples) + "\n" + kExitCodes);
  AddCommonOptions(stream, &options->common);
  AddCacheOptions(stream, &options->cache.folder, &options->cache.cacheTime);
  stream
      ->add_option("--duration", options->cache.durationMs,
                   "Length of the media: what a second of it takes follows from it")
      ->type_name("MS")
      ->check(CLI::Range(0, kNoLimit));
  AddOutputOption(stream, &options->output);
  CLI::Option* seek =
      stream
          ->add_option("--seek", options->seeks,
                       "Begin there; repeatable: go to each place in turn, await its first byte, write from the last")
          ->type_name("BYTE")
          ->expected(1)
          ->take_all()
          ->allow_extra_args(false)
          ->check(CLI::Range(int64_t{0}, kLastPosition));
  stream
      ->add_option(
          "--walk", *walkText,
          "Instead of the stream, write one line of JSON for each of STEPS (100) random reads, pauses and seeks")
      ->type_name("SEED[,STEPS]")
      ->check(Named(CheckWalk))
      ->excludes(seek);
  return stream;
}

CLI::App* AddHls(CLI::App* app, HlsOptions* options) {
  CLI::App* hls = app->add_subcommand("hls", "Play an HLS playlist through the segment cache");
  hls->footer(std::string(kHlsExamples) + "\n" + kExitCodes);
  CommonOptions* const common = &options->source.common;
  AddUrl(hls, common);
  AddOutputOption(hls, &options->output);
  hls->add_option("--workers", options->segments.workers, "Segments fetched at a time, 1 to 5; default 5")
      ->type_name("N")
      ->check(CLI::Range(kLeastConnections, kMostConnections));
  AddCacheOptions(hls, &options->segments.folder, &options->segments.cacheTime);
  hls->add_option("--start", options->start, "Begin with the segment of this media sequence number")
      ->type_name("SEQ")
      ->check(CLI::Range(int64_t{0}, kLastPosition));
  hls->add_option("--live-edge", options->liveEdge, "Begin so many segments before the end of a live list; default 3")
      ->type_name("N")
      ->check(CLI::Range(1, kNoLimit));
  hls->add_option("--live-wait", options->source.liveWaitSeconds,
                  "Give up a live list that brings nothing new for so long; default 60")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, kNoLimit));
  hls->add_option("--variant", options->source.variant,
                  "Place in the master playlist, from 0; default: the one of the highest bandwidth")
      ->type_name("N")
      ->check(CLI::Range(0, kNoLimit));
  AddRequestOptions(hls, common);
  AddReportOptions(hls, common);
  AddLogOption(hls, common);
  return hls;
}

CLI::App* AddProbe(CLI::App* app, ProbeOptions* options) {
  CLI::App* probe = app->add_subcommand("probe", "Measure opening and one seek");
  probe->footer(std::string(kProbeExamples) + "\n" + kExitCodes);
  AddConnectionOptions(probe, &options->common);
  AddLogOption(probe, &options->common);
  probe->add_option("--offset", options->offset, "Where to seek to")
      ->type_name("BYTE")
      ->required()
      ->check(CLI::Range(int64_t{0}, kLastPosition));
  probe->add_option("--read", options->readBytes, "Read so much before; default 1000000")
      ->type_name("BYTES")
      ->check(CLI::Range(int64_t{0}, kLastPosition));
  probe->add_option("--idle", options->idleMs, "Then read nothing for so long; default 0")
      ->type_name("MS")
      ->check(CLI::Range(0, kNoLimit));
  probe->add_flag("--direct", options->direct, "The downloader alone: close, set the range, open");
  return probe;
}

CLI::App* AddServe(CLI::App* app, ServeOptions* options) {
  CLI::App* serve = app->add_subcommand("serve", "Serve a folder on 127.0.0.1");
  serve->footer(kServeExamples);
  serve->add_option("DIR", options->directory, "The folder")
      ->type_name("")
      ->check(CLI::ExistingDirectory.description(""));
  serve->add_option("--port", options->port, "Port, 0 to 65535; default 0: a free one")
      ->type_name("N")
      ->check(CLI::Range(0, 65535));
  serve->add_option("--pattern", options->patternBytes, "Also a synthetic resource of that many bytes; repeatable")
      ->type_name("BYTES")
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false);
  serve->add_flag("--https", options->https, "HTTPS, with a certificate made at start");
  serve->add_flag("--quiet", options->quiet, "No line per request");
  return serve;
}

ExitCode BadArguments(const std::string& why) {
  PrintError(why + " (see zvhttp --help)");
  return ExitCode::kBadArguments;
}

ExitCode Run(int argc, char** argv) {
  CLI::App app("Fetches and streams media over HTTP and HTTPS over one to five connections.", "zvhttp");
  app.set_version_flag("--version", "zvhttp " ZVHTTP_VERSION);
  app.require_subcommand(1);
  app.footer(std::string("zvhttp COMMAND --help tells more.\n\n") + kExitCodes);
  GetOptions getOptions;
  std::string rangeText;
  StreamOptions streamOptions;
  std::string walkText;
  HlsOptions hlsOptions;
  ProbeOptions probeOptions;
  ServeOptions serveOptions;
  const CLI::App* get = AddGet(&app, &getOptions, &rangeText);
  const CLI::App* stream = AddStream(&app, &streamOptions, &walkText);
  const CLI::App* hls = AddHls(&app, &hlsOptions);
  const CLI::App* probe = AddProbe(&app, &probeOptions);
  AddServe(&app, &serveOptions);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return error.get_exit_code() == 0 ? static_cast<ExitCode>(app.exit(error)) : BadArguments(error.what());
  }
  if (get->parsed()) {
    if (!rangeText.empty()) {
      ParseRangeText(rangeText, &getOptions.range.first, &getOptions.range.last);
    }
    return RunGet(getOptions);
  }
  if (stream->parsed()) {
    streamOptions.walk = ParseWalk(walkText);
    return RunStream(streamOptions);
  }
  if (hls->parsed()) {
    return RunHls(hlsOptions);
  }
  if (probe->parsed()) {
    return RunProbe(probeOptions);
  }
  if (serveOptions.directory.empty() && serveOptions.patternBytes.empty()) {
    return BadArguments("serve: DIR is required");
  }
  return RunServe(serveOptions);
}

}  // namespace

int main(int argc, char** argv) {
  ReserveStandardDescriptors();
  InstallSignalHandlers();
  try {
    return static_cast<int>(Run(argc, argv));
  } catch (const std::exception& error) {
    PrintError(std::string("internal error: ") + error.what());
    return static_cast<int>(ExitCode::kInternal);
  }
}
