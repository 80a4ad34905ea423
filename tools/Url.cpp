#include "Url.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

// A URL or a reference cut into its parts; the views point into it.
struct Parts {
  std::string_view scheme;  // without its colon; empty: none
  bool hasAuthority = false;
  std::string_view authority;
  std::string_view path;
  bool hasQuery = false;
  std::string_view query;
};

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsSchemeCharacter(char c) {
  return IsLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

bool IsScheme(std::string_view text) {
  return !text.empty() && IsLetter(text.front()) && std::all_of(text.begin(), text.end(), IsSchemeCharacter);
}

Parts Split(std::string_view text) {
  Parts parts;
  text = text.substr(0, text.find('#'));
  if (const size_t colon = text.find(':'); colon != std::string_view::npos && IsScheme(text.substr(0, colon))) {
    parts.scheme = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  }
  if (const size_t mark = text.find('?'); mark != std::string_view::npos) {
    parts.hasQuery = true;
    parts.query = text.substr(mark + 1);
    text = text.substr(0, mark);
  }
  if (text.substr(0, 2) == "//") {
    parts.hasAuthority = true;
    text.remove_prefix(2);
    const size_t slash = std::min(text.find('/'), text.size());
    parts.authority = text.substr(0, slash);
    text.remove_prefix(slash);
  }
  parts.path = text;
  return parts;
}

// The path without its segments "." and "..", which lead no further up than to its root.
std::string RemoveDotSegments(std::string_view path) {
  std::string out;
  while (!path.empty()) {
    const size_t end = std::min(path.find('/', 1), path.size());
    const std::string_view segment = path.substr(0, end);
    const bool isLast = end == path.size();
    path.remove_prefix(end);
    if (segment == "/.." || segment == "..") {
      out.resize(std::min(out.rfind('/'), out.size()));
    } else if (segment != "/." && segment != ".") {
      out += segment;
      continue;
    }
    // The folder itself is meant.
    if (isLast && segment.front() == '/') {
      out += '/';
    }
  }
  return out;
}

std::string Merge(const Parts& base, std::string_view path) {
  if (base.hasAuthority && base.path.empty()) {
    return "/" + std::string(path);
  }
  const size_t slash = base.path.rfind('/');
  return std::string(base.path.substr(0, slash == std::string_view::npos ? 0 : slash + 1)) + std::string(path);
}

std::string Encode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte != 0x7f) {
      out += c;
      continue;
    }
    std::array<char, 4> code{};
    std::snprintf(code.data(), code.size(), "%%%02X", byte);
    out += code.data();
  }
  return out;
}

}  // namespace

std::string ResolveUrl(std::string_view base, std::string_view reference) {
  const Parts from = Split(base);
  const Parts to = Split(reference);
  const bool isAbsolute = !to.scheme.empty();
  const bool hasOwnAuthority = isAbsolute || to.hasAuthority;
  const Parts& place = hasOwnAuthority ? to : from;
  std::string url(isAbsolute ? to.scheme : from.scheme);
  url += url.empty() ? "" : ":";
  if (place.hasAuthority) {
    url += "//";
    url += place.authority;
  }
  const bool isSamePath = !hasOwnAuthority && to.path.empty();
  if (isSamePath) {
    url += from.path;
  } else if (hasOwnAuthority || to.path.front() == '/') {
    url += RemoveDotSegments(to.path);
  } else {
    url += RemoveDotSegments(Merge(from, to.path));
  }
  const Parts& asked = isSamePath && !to.hasQuery ? from : to;
  if (asked.hasQuery) {
    url += '?';
    url += asked.query;
  }
  return Encode(url);
}
