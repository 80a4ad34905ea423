// Where a reference in a document leads: the resolution that every browser does (RFC 3986, section 5).
#ifndef TOOLS_URL_H
#define TOOLS_URL_H

#include <string>
#include <string_view>

// The absolute form of a reference found in the document at base, without its fragment. Blanks and control characters,
// which no request line may carry, come out as %XX. A base that is no absolute URL gives a result that is none either.
std::string ResolveUrl(std::string_view base, std::string_view reference);

#endif
