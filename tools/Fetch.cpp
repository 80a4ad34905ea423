#include "Fetch.h"

#include <algorithm>
#include <vector>

#include "Pause.h"

namespace {

constexpr size_t kBufferBytes = 256 << 10;

size_t Size(int64_t bytes) {
  return static_cast<size_t>(bytes);
}

// Whether nothing behind these bytes is of interest. A server that ignores the range begins with the first byte of all.
bool IsEnough(const MediaPart& part, const std::string& bytes) {
  return part.IsRange() && bytes.size() >= Size(part.first + part.length);
}

}  // namespace

Fetcher::Fetcher(const CommonOptions& options) : owner_(ReceiveMessage, &messages_) {
  if (owner_.Get() != nullptr) {
    ApplyOptions(owner_.Get(), options);
    ZV_HttpBaseSetDownloadThreadNum(owner_.Get(), 1);
  }
}

Fetched Fetcher::Fetch(const MediaPart& part, size_t most, const std::function<bool()>& isStopped) {
  Fetched fetched{{}, "", part.url};
  HttpBase* const handle = owner_.Get();
  if (handle == nullptr) {
    fetched.outcome = {ExitCode::kInternal, 0, "cannot make a downloader"};
    return fetched;
  }
  messages_.isAnswered = false;
  messages_.errorStatus = 0;
  messages_.failureCode = 0;
  if (part.IsRange()) {
    ZV_HttpBaseSetRange(handle, part.first, part.first + part.length - 1);
  }
  if (ZV_HttpBaseOpen(handle, part.url.c_str()) != 0) {
    fetched.outcome = {ExitCode::kInternal, 0, "cannot start the download"};
    return fetched;
  }
  fetched.outcome = Receive(part, most, isStopped, &fetched.bytes);
  if (const char* url = ZV_HttpBaseGetRedirectURL(handle); url != nullptr) {
    fetched.url = url;
  }
  ZV_HttpBaseClose(handle);
  return fetched;
}

void Fetcher::StopRetrying() {
  if (owner_.Get() != nullptr) {
    ZV_HttpBaseSetRetryTimes(owner_.Get(), 0);
  }
}

Outcome Fetcher::Receive(const MediaPart& part, size_t most, const std::function<bool()>& isStopped,
                         std::string* bytes) {
  std::vector<char> buffer(kBufferBytes);
  Pause pause;
  while (!isStopped()) {
    uint32_t count = 0;
    const int32_t more = ZV_HttpBaseRead(owner_.Get(), buffer.data(), static_cast<uint32_t>(buffer.size()), &count);
    bytes->append(buffer.data(), count);
    if (messages_.errorStatus != 0 && !messages_.isAnswered) {
      return JudgeMessages(messages_, part.url, 0);
    }
    if (more != 1 || IsEnough(part, *bytes)) {
      return Conclude(part, bytes);
    }
    if (bytes->size() > most) {
      return TransferFailed("more than " + std::to_string(most) + " bytes");
    }
    if (count > 0) {
      pause.Reset();
    } else {
      pause.Sleep();
    }
  }
  return TransferFailed("no answer in time");
}

// Whether everything that was promised has come; of a resource sent instead of its range, that range is left.
Outcome Fetcher::Conclude(const MediaPart& part, std::string* bytes) const {
  const bool isEnough = IsEnough(part, *bytes);
  if (!isEnough && (!messages_.isAnswered || messages_.failureCode != 0)) {
    const Outcome outcome = JudgeMessages(messages_, part.url, static_cast<int64_t>(bytes->size()));
    return outcome.IsOk() ? TransferFailed("no usable answer") : outcome;
  }
  if (part.IsRange() && bytes->size() > Size(part.length)) {
    bytes->erase(0, Size(part.first));
    bytes->resize(std::min(bytes->size(), Size(part.length)));
  }
  const int64_t expected = part.IsRange() ? part.length : ZV_HttpBaseGetContentLength(owner_.Get());
  if (expected > 0 && bytes->size() < Size(expected)) {
    return TransferFailed("short: " + std::to_string(bytes->size()) + " of " + std::to_string(expected) + " bytes");
  }
  return {};
}
