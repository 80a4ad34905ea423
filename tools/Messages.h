// What the library's message callback has reported about a download.
#ifndef TOOLS_MESSAGES_H
#define TOOLS_MESSAGES_H

#include <atomic>
#include <cstdint>
#include <string>

#include "ExitCode.h"

// Written on the library's threads, read by the main thread.
struct Messages {
  std::atomic<bool> isAnswered{false};  // a status of success came
  std::atomic<int32_t> errorStatus{0};  // the last HTTP status that is none, 0 before
  std::atomic<int32_t> failureCode{0};  // ZV_HTTP_CODE_FAILED or ZV_HTTP_CODE_UNREACHABLE, 0 before
};

// An HttpBaseMsgCallback; userData is a Messages.
int32_t ReceiveMessage(void* userData, int32_t code);

// Whether anything but success has been reported. After an answer a later attempt may still make good for it.
bool HasComplaint(const Messages& messages);

// The outcome that the complaints of a download of url amount to; bytes had been delivered. Ok when there is none.
Outcome JudgeMessages(const Messages& messages, const std::string& url, int64_t bytes);

// The outcome of a transfer that no code of the library explains.
Outcome TransferFailed(const std::string& why);

#endif
