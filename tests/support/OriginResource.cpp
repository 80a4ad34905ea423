#include "OriginResource.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <system_error>

#define ZLIB_CONST
#include <zlib.h>

#include "OriginText.h"

namespace origin {
namespace {

namespace fs = std::filesystem;

// A file that several answers may read from; a seek is made only where an answer does not follow the last read.
class OpenFile {
 public:
  explicit OpenFile(const std::string& path) : stream_(path, std::ios::binary) {}

  bool IsOpen() const { return stream_.is_open(); }

  bool Read(uint64_t pos, char* out, size_t n) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (pos != next_) {
      stream_.clear();
      stream_.seekg(static_cast<std::streamoff>(pos));
    }
    stream_.read(out, static_cast<std::streamsize>(n));
    next_ = pos + n;
    return stream_.good();
  }

 private:
  std::mutex mutex_;
  std::ifstream stream_;
  uint64_t next_ = 0;
};

// Whether every part of the path stays where it is or goes down.
bool StaysInside(const fs::path& relative) {
  return !relative.has_root_path() &&
         std::none_of(relative.begin(), relative.end(), [](const fs::path& part) { return part == ".."; });
}

// The real path of the file, empty when it does not exist below root once links are followed.
fs::path ResolveBelow(const fs::path& root, const fs::path& relative) {
  std::error_code error;
  const fs::path realRoot = fs::canonical(root, error);
  if (error) {
    return {};
  }
  const fs::path real = fs::canonical(realRoot / relative, error);
  if (error) {
    return {};
  }
  const fs::path back = real.lexically_relative(realRoot);
  return !back.empty() && StaysInside(back) ? real : fs::path();
}

std::string DescribeEntry(const fs::directory_entry& entry) {
  std::error_code error;
  std::string name = entry.path().filename().string();
  std::string size;
  if (entry.is_directory(error)) {
    name += '/';
  } else if (entry.is_regular_file(error)) {
    size = std::to_string(entry.file_size(error));
  }
  return "<tr><td><a href=\"" + EncodePercent(name) + "\">" + EscapeHtml(name) + "</a></td><td>" + size + "</td></tr>";
}

Resource ListDirectory(const fs::path& path, const std::string& title) {
  std::vector<std::string> rows;
  std::error_code error;
  for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error)) {
    rows.push_back(DescribeEntry(*it));
  }
  std::sort(rows.begin(), rows.end());
  std::ostringstream html;
  html << "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>" << EscapeHtml(title)
       << "</title></head><body><h1>" << EscapeHtml(title) << "</h1><table>\n";
  for (const std::string& row : rows) {
    html << row << '\n';
  }
  html << "</table></body></html>\n";
  return BytesResource(html.str(), ContentTypeOf(".html"));
}

constexpr size_t kPackBlockBytes = 65536;
constexpr int kGzipWindowBits = 15 + 16;

// Feeds the whole resource through the packer, appending to packed.
bool PackBlocks(const Resource& resource, z_stream* stream, std::string* packed) {
  std::string in(kPackBlockBytes, '\0');
  std::string out(kPackBlockBytes, '\0');
  int result = Z_OK;
  for (uint64_t pos = 0; result != Z_STREAM_END;) {
    if (stream->avail_in == 0 && pos < resource.length) {
      const size_t n = static_cast<size_t>(std::min<uint64_t>(in.size(), resource.length - pos));
      if (!resource.read(pos, in.data(), n)) {
        return false;
      }
      pos += n;
      stream->next_in = reinterpret_cast<const Bytef*>(in.data());
      stream->avail_in = static_cast<uInt>(n);
    }
    stream->next_out = reinterpret_cast<Bytef*>(out.data());
    stream->avail_out = static_cast<uInt>(out.size());
    result = deflate(stream, pos < resource.length ? Z_NO_FLUSH : Z_FINISH);
    if (result == Z_STREAM_ERROR) {
      return false;
    }
    packed->append(out, 0, out.size() - stream->avail_out);
  }
  return true;
}

}  // namespace

Resource PatternResource(uint64_t length, uint32_t seed) {
  Resource resource;
  resource.length = length;
  resource.read = [seed](uint64_t pos, char* out, size_t n) {
    FillPattern(out, pos, n, seed);
    return true;
  };
  return resource;
}

Resource BytesResource(std::string bytes, std::string contentType) {
  Resource resource;
  resource.length = bytes.size();
  resource.contentType = std::move(contentType);
  const auto shared = std::make_shared<const std::string>(std::move(bytes));
  resource.read = [shared](uint64_t pos, char* out, size_t n) {
    memcpy(out, shared->data() + pos, n);
    return true;
  };
  return resource;
}

Resource FileResource(const std::string& path) {
  Resource resource;
  std::error_code error;
  const uint64_t length = fs::is_regular_file(path, error) ? fs::file_size(path, error) : 0;
  const auto file = std::make_shared<OpenFile>(path);
  if (error || !file->IsOpen()) {
    return resource;
  }
  resource.length = length;
  resource.contentType = ContentTypeOf(path);
  resource.read = [file](uint64_t pos, char* out, size_t n) { return file->Read(pos, out, n); };
  return resource;
}

DirectoryEntry LookUpInDirectory(const std::string& root, const std::string& target) {
  DirectoryEntry entry;
  const std::string path = target.substr(0, target.find_first_of("?#"));
  std::string decoded;
  if (path.empty() || path[0] != '/' || !DecodePercent(path, &decoded)) {
    return entry;
  }
  const fs::path relative = fs::path(decoded.substr(1)).relative_path();
  const bool isEscape = decoded.find('\\') != std::string::npos || decoded.compare(0, 2, "//") == 0;
  const fs::path real = isEscape || !StaysInside(relative) ? fs::path() : ResolveBelow(root, relative);
  std::error_code error;
  if (real.empty()) {
    return entry;
  }
  if (fs::is_directory(real, error)) {
    if (decoded.back() == '/') {
      entry.resource = ListDirectory(real, decoded);
    } else {
      entry.location = path + "/";
    }
  } else if (fs::is_regular_file(real, error) && decoded.back() != '/') {
    Resource file = FileResource(real.string());
    if (file.read) {
      entry.resource = std::move(file);
    }
  }
  return entry;
}

std::optional<Resource> PackWithGzip(const Resource& resource) {
  z_stream stream = {};
  if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, kGzipWindowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    return std::nullopt;
  }
  std::string packed;
  const bool isPacked = PackBlocks(resource, &stream, &packed);
  deflateEnd(&stream);
  if (!isPacked) {
    return std::nullopt;
  }
  return BytesResource(std::move(packed), resource.contentType);
}

}  // namespace origin
