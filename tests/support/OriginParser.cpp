#include "OriginParser.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "OriginText.h"

namespace origin {
namespace {

namespace http = boost::beast::http;
using Parser = http::request_parser<http::string_body>;

constexpr uint32_t kHeaderLimitBytes = 1 << 20;
constexpr uint64_t kBodyLimitBytes = 64 << 20;

std::string ToString(boost::beast::string_view text) {
  return std::string(text.data(), text.size());
}

void CopyRequest(const http::request<http::string_body>& message, Request* request) {
  request->method = ToString(message.method_string());
  request->target = ToString(message.target());
  for (const auto& field : message) {
    request->headers.emplace_back(ToString(field.name_string()), ToString(field.value()));
  }
  request->range = request->Header("Range");
  ParseRange(request->range, &request->first, &request->last);
}

}  // namespace

struct RequestParser::State {
  std::unique_ptr<Parser> parser;

  void Renew() {
    parser = std::make_unique<Parser>();
    parser->eager(true);
    parser->header_limit(kHeaderLimitBytes);
    parser->body_limit(kBodyLimitBytes);
  }
};

RequestParser::RequestParser() : state_(std::make_unique<State>()) {
  state_->Renew();
}

RequestParser::~RequestParser() = default;

RequestParser::Result RequestParser::Take(std::string* input, Request* request, bool* keepsAlive) {
  Parser& parser = *state_->parser;
  while (!input->empty() && !parser.is_done()) {
    boost::beast::error_code error;
    const size_t taken = parser.put(boost::asio::buffer(*input), error);
    input->erase(0, taken);
    if (error == http::error::need_more) {
      return Result::kNeedsMore;
    }
    if (error) {
      return Result::kBad;
    }
  }
  if (!parser.is_done()) {
    return Result::kNeedsMore;
  }
  CopyRequest(parser.get(), request);
  *keepsAlive = parser.get().keep_alive();
  state_->Renew();
  return Result::kRequest;
}

}  // namespace origin
