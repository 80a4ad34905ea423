#include "Serve.h"

#include <cinttypes>
#include <cstdio>
#include <exception>
#include <memory>

#include "Origin.h"
#include "Signals.h"
#include "Text.h"
#include "ZVBase.h"

namespace {

constexpr int32_t kLookForSignalMs = 100;

// Runs on the server's thread.
void PrintRequest(const origin::Request& request) {
  const std::string range = request.range.empty() ? "" : " [" + Printable(request.range) + "]";
  std::fprintf(stderr, "%s %s%s -> %d, %" PRIu64 " bytes, connection %d%s\n", Printable(request.method).c_str(),
               Printable(request.target).c_str(), range.c_str(), request.status, request.bodySent, request.connection,
               request.complete ? "" : ", left early");
}

// Null after an error line.
std::unique_ptr<origin::Server> Start(const ServeOptions& options) {
  const SignalsForMainThreadOnly guard;
  origin::Options settings;
  settings.https = options.https;
  settings.port = options.port;
  try {
    auto server = std::make_unique<origin::Server>(settings);
    if (!options.quiet) {
      server->OnEnded(PrintRequest);
    }
    if (!options.directory.empty()) {
      server->ServeDirectory(options.directory);
    }
    for (const uint64_t bytes : options.patternBytes) {
      server->Put("/pattern/" + std::to_string(bytes), origin::PatternResource(bytes));
    }
    return server;
  } catch (const std::exception& error) {
    PrintError(std::string("cannot serve: ") + error.what());
    return nullptr;
  }
}

}  // namespace

ExitCode RunServe(const ServeOptions& options) {
  const std::unique_ptr<origin::Server> server = Start(options);
  if (server == nullptr) {
    return ExitCode::kTransferFailed;
  }
  if (std::printf("%s\n", server->Url("/").c_str()) < 0 || std::fflush(stdout) != 0) {
    PrintError("cannot write the URL to standard output");
    return ExitCode::kOutputFailed;
  }
  while (!IsInterrupted()) {
    ZV_SleepFor(kLookForSignalMs);
  }
  return ExitCode::kOk;
}
