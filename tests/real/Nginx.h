// Debian's nginx with a folder and free ports of its own, as the real server of the tests. It is one process that runs
// as whoever runs the tests, and ends with this object.
#ifndef TESTS_REAL_NGINX_H
#define TESTS_REAL_NGINX_H

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Process.h"

// How a server is spoken to; each has a port of its own.
enum class Protocol { kHttp, kHttps, kHttp2 };

// One line of the access log.
struct AccessLine {
  int64_t connection = 0;  // number of the connection
  std::string protocol;    // "HTTP/1.1", "HTTP/2.0"
  int status = 0;
  std::string target;
  std::string range;  // value of the Range header, "-" without one
  int64_t bodyBytes = 0;
};

class Nginx {
 public:
  // Makes the folder, the certificate and the media, and starts to serve. Throws std::runtime_error when it cannot.
  Nginx();
  ~Nginx();
  Nginx(const Nginx&) = delete;
  Nginx& operator=(const Nginx&) = delete;

  static constexpr int64_t kMediaBytes = 6000011;
  static constexpr int64_t kTextBytes = 2000000;
  static constexpr int64_t kHugeBytes = 5000000000;

  // Under "/": media.bin (pattern of seed 0), text.txt, huge.bin (zeros, sparse). "/slow/" has the same at 256 KiB per
  // second and answer after a first 256 KiB at once, "/packed/" the same with gzip, "/moved/" redirects to the same.
  std::string Url(Protocol protocol, const std::string& target) const;
  // The folder; tests put what they make into it.
  const std::string& Folder() const { return folder_; }

  // The lines of a target, query included, as soon as they satisfy isReached: nginx writes a line only after the client
  // has its last byte. After a deadline what there is.
  std::vector<AccessLine> WaitForLines(const std::string& target,
                                       const std::function<bool(const std::vector<AccessLine>&)>& isReached) const;

 private:
  std::vector<AccessLine> ReadLines(const std::string& target) const;
  void MakeMedia() const;
  bool Start();

  std::string folder_;
  uint16_t ports_[3] = {};
  std::unique_ptr<Process> process_;
};

int64_t SumOfBodies(const std::vector<AccessLine>& lines);
std::set<int64_t> ConnectionsOf(const std::vector<AccessLine>& lines);

// The text that text.txt holds: lines of changing words, which gzip makes a tenth of.
std::string TextOfTheServer();

#endif
