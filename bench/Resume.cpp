// How soon a transfer that was paused on a full buffer goes on. Seen from outside, a byte is new when Read gives it
// after having given nothing, or when it lies behind what the buffer can hold; so the time includes emptying the buffer
// by reading, about half a millisecond, and is an upper bound.
#include <stdexcept>
#include <thread>

#include "Commands.h"
#include "ScriptedServer.h"
#include "Support.h"

namespace {

// A block that does not fit whole stays outside, so a full buffer may hold this much less. A Read that gives nothing
// before that only stands between two fragments.
constexpr int64_t kHeldBackBytes = 16384;

uint32_t ReadSome(HttpBase* handle, std::vector<char>& buffer, int64_t limit) {
  uint32_t count = 0;
  const auto size = static_cast<uint32_t>(std::min<int64_t>(limit, static_cast<int64_t>(buffer.size())));
  if (ZV_HttpBaseRead(handle, buffer.data(), size, &count) != 1) {
    throw std::runtime_error("an endless download ended");
  }
  return count;
}

// Everything of the first fragment but its last byte.
int64_t ReadUpToLastByte(HttpBase* handle, std::vector<char>& buffer) {
  int64_t position = 0;
  while (position < kFragmentBytes - 1) {
    const uint32_t count = ReadSome(handle, buffer, kFragmentBytes - 1 - position);
    if (count == 0) {
      throw std::runtime_error("a full buffer gave nothing");
    }
    position += count;
  }
  return position;
}

double ResumeOnce(HttpBase* handle, std::vector<char>& buffer) {
  int64_t position = ReadUpToLastByte(handle, buffer);
  const auto start = Clock::now();
  bool wasEmpty = false;
  while (Clock::now() - start < std::chrono::seconds(10)) {
    const uint32_t count = ReadSome(handle, buffer, kFragmentBytes);
    position += count;
    if (count > 0 && (wasEmpty || position > kBufferBytes)) {
      return MillisecondsSince(start);
    }
    if (count == 0) {
      wasEmpty = position >= kBufferBytes - kHeldBackBytes;
      std::this_thread::yield();
    }
  }
  throw std::runtime_error("the paused transfer did not go on");
}

}  // namespace

nlohmann::json MeasureResume(int repeat) {
  ScriptedServer server;
  Outcome outcome;
  const HandlePtr handle = MakeHandle(outcome);
  std::vector<char> buffer(kFragmentBytes);
  std::vector<double> samples;
  for (int i = 0; i < repeat; ++i) {
    const int64_t requestsBefore = server.Counters().requests;
    OpenUrl(handle.get(), server.Url("/flood"));
    AwaitThat("the request has come", [&] { return server.Counters().requests > requestsBefore; });
    AwaitFullBuffer(server.Counters());
    samples.push_back(ResumeOnce(handle.get(), buffer));
    ZV_HttpBaseClose(handle.get());
  }
  return Summarize(std::move(samples));
}
