#include "OriginPlan.h"

#include <algorithm>
#include <utility>

#include "OriginText.h"

namespace origin {
namespace {

enum class Part { kWhole, kRange, kUnsatisfiable };

struct Selection {
  Part part = Part::kWhole;
  uint64_t first = 0;
  uint64_t last = 0;
};

// What a correct server makes of the request's range.
Selection SelectAsked(const Request& request, uint64_t length) {
  if (request.first < 0 && request.last < 0) {
    return {};
  }
  if (request.first < 0) {
    const uint64_t count = std::min(static_cast<uint64_t>(request.last), length);
    return count == 0 ? Selection{Part::kUnsatisfiable} : Selection{Part::kRange, length - count, length - 1};
  }
  const uint64_t first = static_cast<uint64_t>(request.first);
  if (first >= length) {
    return {Part::kUnsatisfiable};
  }
  const uint64_t last = request.last < 0 ? length - 1 : std::min(static_cast<uint64_t>(request.last), length - 1);
  return {Part::kRange, first, last};
}

// The range that is sent, with the flaws of the answer.
Selection Select(const Answer& answer, const Request& request, uint64_t length) {
  if (answer.ignoreRange || answer.status == 200) {
    return {};
  }
  Selection selection = SelectAsked(request, length);
  const bool isForced = answer.status == 206 || answer.first.has_value() || answer.last.has_value();
  if (isForced && selection.part != Part::kRange && length > 0) {
    selection = {Part::kRange, 0, length - 1};
  }
  if (selection.part != Part::kRange) {
    return selection;
  }
  const uint64_t end = length - 1;
  selection.first = std::min(answer.first.value_or(selection.first), end);
  selection.last = std::min(answer.last.value_or(selection.last), end);
  const int64_t shifted = static_cast<int64_t>(selection.first) + answer.shift;
  selection.first = std::min(static_cast<uint64_t>(std::max<int64_t>(shifted, 0)), end);
  selection.last = std::max(selection.first, selection.last);
  if (answer.maxBytes && *answer.maxBytes > 0) {
    selection.last = std::min(selection.last, selection.first + *answer.maxBytes - 1);
  }
  return selection;
}

bool Contains(const Headers& headers, const std::string& name) {
  return std::any_of(headers.begin(), headers.end(),
                     [&](const auto& header) { return EqualsIgnoringCase(header.first, name); });
}

void Drop(Headers* headers, const std::string& name) {
  std::erase_if(*headers, [&](const auto& header) { return EqualsIgnoringCase(header.first, name); });
}

// Headers of about that many bytes altogether.
void AppendFiller(const Answer& answer, Headers* headers) {
  constexpr size_t kFramingBytes = 8 + 2 + 2;  // the name, the colon and the line's end
  for (size_t done = 0; done < answer.fillerHeaderBytes;) {
    const size_t line = std::min(std::max(answer.fillerLineBytes, kFramingBytes), answer.fillerHeaderBytes - done);
    headers->emplace_back("X-Filler", std::string(line > kFramingBytes ? line - kFramingBytes : 1, 'f'));
    done += line;
  }
}

std::string FormatHeaders(const Answer& answer, const Headers& headers) {
  const char* const eol = answer.bareLf ? "\n" : "\r\n";
  std::string text;
  for (const auto& [name, value] : headers) {
    text += (answer.lowerCaseNames ? ToLower(name) : name) + ": " + value + eol;
  }
  return text + eol;
}

std::string FormatHead(const Answer& answer, const Plan& plan, const Headers& headers) {
  const std::string eol = answer.bareLf ? "\n" : "\r\n";
  std::string text;
  for (const int status : answer.interim) {
    text += "HTTP/1.1 " + std::to_string(status) + " " + ReasonOf(status) + eol;
    text += (status == 103 ? "Link: </next>; rel=preload" + eol : "") + eol;
  }
  const std::string reason = answer.reason.empty() ? ReasonOf(plan.status) : answer.reason;
  text += answer.version + " " + std::to_string(plan.status) + " " + reason + eol;
  return text + FormatHeaders(answer, headers);
}

std::string FormatContentRange(const Selection& selection, uint64_t length) {
  return "bytes " + std::to_string(selection.first) + "-" + std::to_string(selection.last) + "/" +
         std::to_string(length);
}

// The body of an answer that is not (a part of) what the target holds.
void PlanText(const Answer& answer, Plan* plan) {
  const std::string text = std::to_string(plan->status) + " " + ReasonOf(plan->status) + "\n";
  plan->body = BytesResource(answer.body.value_or(text), "text/plain");
  plan->bodyLength = plan->body.length;
}

// Chooses status and body; leaves the headers that belong to the choice.
void PlanBody(const Answer& answer, const Request& request, const std::optional<Resource>& entity, Plan* plan,
              Headers* headers) {
  plan->status = answer.status;
  if (plan->status == 0 && !answer.location.empty()) {
    plan->status = 302;
  } else if (plan->status == 0 && !entity) {
    plan->status = 404;
  }
  const bool servesEntity = entity && (plan->status == 0 || plan->status == 200 || plan->status == 206);
  if (!servesEntity) {
    PlanText(answer, plan);
    return;
  }
  headers->emplace_back("Accept-Ranges", "bytes");
  const Selection selection = Select(answer, request, entity->length);
  if (selection.part == Part::kUnsatisfiable) {
    plan->status = 416;
    PlanText(Answer{}, plan);
    headers->emplace_back("Content-Range", "bytes */" + std::to_string(entity->length));
    return;
  }
  plan->body = *entity;
  plan->bodyLength = entity->length;
  plan->status = selection.part == Part::kRange ? 206 : 200;
  if (selection.part == Part::kRange) {
    plan->bodyFirst = selection.first;
    plan->bodyLength = selection.last - selection.first + 1;
    headers->emplace_back("Content-Range", FormatContentRange(selection, entity->length));
  }
  if (answer.gzip) {
    headers->emplace_back("Content-Encoding", "gzip");
  }
}

// How the body's end is told; leaves the headers that say it.
void PlanFraming(const Answer& answer, bool hasBody, Plan* plan, Headers* headers) {
  const bool neverHasLength = !hasBody && (plan->status == 204 || plan->status == 304);
  if (answer.chunkBytes > 0) {
    headers->emplace_back("Transfer-Encoding", "chunked");
  } else if (!answer.noContentLength && !neverHasLength) {
    headers->emplace_back("Content-Length", std::to_string(plan->bodyLength));
  }
  if (answer.contentLength) {
    Drop(headers, "Content-Length");
    headers->emplace_back("Content-Length", *answer.contentLength);
  }
  if (!hasBody) {
    plan->bodyLength = 0;
  } else if (answer.chunkBytes > 0) {
    plan->chunkBytes = answer.chunkBytes;
    const std::string before = plan->bodyLength > 0 ? "\r\n" : "";
    plan->tail = answer.noLastChunk ? before : before + "0\r\n" + FormatHeaders(answer, answer.trailers);
  }
  const bool endIsClose = hasBody && (answer.chunkBytes > 0 ? answer.noLastChunk : answer.noContentLength);
  plan->closesAtEnd = plan->closesAtEnd || endIsClose || answer.contentLength.has_value();
}

Plan MakeRawPlan(const Answer& answer) {
  Plan plan;
  plan.body = BytesResource(*answer.raw);
  plan.bodyLength = plan.body.length;
  plan.closesAtEnd = answer.closeAfter;
  return plan;
}

}  // namespace

Plan MakePlan(const Answer& answer, const Request& request, const std::optional<Resource>& entity) {
  if (answer.raw) {
    return MakeRawPlan(answer);
  }
  Plan plan;
  Headers headers;
  PlanBody(answer, request, entity, &plan, &headers);
  const bool mayHaveBody = request.method != "HEAD" && plan.status != 204 && plan.status != 304;
  plan.closesAtEnd = answer.closeAfter || answer.version == "HTTP/1.0";
  if (plan.closesAtEnd) {
    headers.emplace_back("Connection", "close");
  }
  PlanFraming(answer, mayHaveBody || answer.forceBody, &plan, &headers);
  if (!plan.body.contentType.empty()) {
    headers.emplace_back("Content-Type", plan.body.contentType);
  }
  if (!answer.location.empty()) {
    headers.emplace_back("Location", answer.location);
  }
  for (const std::string& name : answer.without) {
    Drop(&headers, name);
  }
  std::erase_if(headers, [&](const auto& header) { return Contains(answer.headers, header.first); });
  headers.insert(headers.end(), answer.headers.begin(), answer.headers.end());
  AppendFiller(answer, &headers);
  plan.head = FormatHead(answer, plan, headers);
  return plan;
}

}  // namespace origin
