// Where bodies come from beside what is Put: folders of the disk and packed forms.
#ifndef TESTS_SUPPORT_ORIGIN_RESOURCE_H
#define TESTS_SUPPORT_ORIGIN_RESOURCE_H

#include <optional>
#include <string>

#include "Origin.h"

namespace origin {

// What a target names below a folder: a file, a listing, or the same target with a slash at its end.
struct DirectoryEntry {
  std::optional<Resource> resource;
  std::string location;
};

// Never leaves root: ".." and links that point outside are not found.
DirectoryEntry LookUpInDirectory(const std::string& root, const std::string& target);

// The gzip form of the resource, made in memory. Nothing when the resource cannot be read.
std::optional<Resource> PackWithGzip(const Resource& resource);

}  // namespace origin

#endif
