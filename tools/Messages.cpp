#include "Messages.h"

#include "ZVBase.h"
#include "ZVHttpBase.h"

namespace {

bool IsHttpUrl(const std::string& url) {
  return ZV_Strnicmp(url.c_str(), "http://", 7) == 0 || ZV_Strnicmp(url.c_str(), "https://", 8) == 0;
}

std::string After(int64_t bytes) {
  return bytes > 0 ? " after " + std::to_string(bytes) + " bytes" : "";
}

std::string DescribeFailure(int32_t code, const std::string& url, int64_t bytes) {
  if (!IsHttpUrl(url)) {
    return "transfer failed: the URL does not begin with http:// or https://";
  }
  if (code == ZV_HTTP_CODE_UNREACHABLE) {
    return "transfer failed" + After(bytes) + ": no connection, no answer in time, or the resource is gone (410)";
  }
  return "transfer failed" + After(bytes) + ": the URL is not valid, the host is unknown, or the connection broke";
}

}  // namespace

int32_t ReceiveMessage(void* userData, int32_t code) {
  auto* messages = static_cast<Messages*>(userData);
  switch (code) {
    case ZV_HTTP_CODE_REDIRECTED:
      break;
    case ZV_HTTP_CODE_FAILED:
    case ZV_HTTP_CODE_UNREACHABLE:
      messages->failureCode = code;
      break;
    default:
      // 203, 204 and the like arrive as they are and are no errors.
      if (code >= 200 && code <= 299) {
        messages->isAnswered = true;
      } else {
        messages->errorStatus = code;
      }
  }
  return 0;
}

bool HasComplaint(const Messages& messages) {
  return messages.errorStatus != 0 || messages.failureCode != 0;
}

Outcome JudgeMessages(const Messages& messages, const std::string& url, int64_t bytes) {
  const int32_t status = messages.errorStatus;
  const int32_t failure = messages.failureCode;
  // The status says more than the failure that follows from it.
  if (status != 0) {
    return {ExitCode::kHttpError, status, "HTTP status " + std::to_string(status) + After(bytes)};
  }
  if (failure != 0) {
    return {ExitCode::kTransferFailed, failure, DescribeFailure(failure, url, bytes)};
  }
  return {};
}

Outcome TransferFailed(const std::string& why) {
  return {ExitCode::kTransferFailed, 0, "transfer failed: " + why};
}
