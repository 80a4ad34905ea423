// Takes requests off the bytes that a connection brings. The only part of the origin that includes Beast.
#ifndef TESTS_SUPPORT_ORIGIN_PARSER_H
#define TESTS_SUPPORT_ORIGIN_PARSER_H

#include <memory>
#include <string>

#include "Origin.h"

namespace origin {

class RequestParser {
 public:
  enum class Result { kNeedsMore, kRequest, kBad };

  RequestParser();
  ~RequestParser();

  // Takes what belongs to the next request away from the front of input. On kRequest the fields of *request that the
  // client sets are filled, *keepsAlive says whether the client wants to go on, and the parser is ready for the next.
  Result Take(std::string* input, Request* request, bool* keepsAlive);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace origin

#endif
