#include "Nginx.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "Pattern.h"

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kStartLimit{20};
constexpr std::chrono::seconds kLogLimit{20};
constexpr std::chrono::milliseconds kLookAgain{5};
// A port that was free may be taken before nginx has it; other ones then.
constexpr int kStartAttempts = 5;

// @1@ to @3@ are the ports, @F@ is the folder.
constexpr char kConfiguration[] = R"(
daemon off;
master_process off;
pid @F@/pid;
error_log @F@/error.log warn;
events { worker_connections 256; }
http {
  log_format lines "$connection\t$server_protocol\t$status\t$request_uri\t$http_range\t$body_bytes_sent";
  access_log @F@/access.log lines;
  client_body_temp_path @F@/temp;
  proxy_temp_path @F@/temp;
  fastcgi_temp_path @F@/temp;
  uwsgi_temp_path @F@/temp;
  scgi_temp_path @F@/temp;
  types { text/plain txt; }
  default_type application/octet-stream;
  sendfile on;
  ssl_certificate @F@/certificate.pem;
  ssl_certificate_key @F@/key.pem;
  server {
    listen 127.0.0.1:@1@;
    listen 127.0.0.1:@2@ ssl;
    listen 127.0.0.1:@3@ ssl http2;
    root @F@/files;
    location /slow/ { alias @F@/files/; limit_rate 256k; }
    location /packed/ { alias @F@/files/; gzip on; gzip_types text/plain; }
    location ~ ^/moved(/.*)$ { return 302 $1$is_args$args; }
  }
}
)";

std::string FindProgram(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(std::string(path != nullptr ? path : "") + ":/usr/sbin:/usr/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = folder + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  throw std::runtime_error(name + " is not installed");
}

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

uint16_t FreePort() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof(address);
  bind(listener, reinterpret_cast<sockaddr*>(&address), length);
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  close(listener);
  return ntohs(address.sin_port);
}

bool IsListening(uint16_t port) {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  const bool connected = connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(client);
  return connected;
}

void Replace(std::string* text, const std::string& mark, const std::string& value) {
  for (size_t at = text->find(mark); at != std::string::npos; at = text->find(mark, at + value.size())) {
    text->replace(at, mark.size(), value);
  }
}

std::string MakeFolder() {
  std::string name = (fs::temp_directory_path() / "zvreal.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot make " + name);
  }
  return name;
}

void MakeCertificate(const std::string& folder) {
  ProcessSetup setup;
  setup.arguments = {FindProgram("openssl"),
                     "req",
                     "-x509",
                     "-newkey",
                     "ec",
                     "-pkeyopt",
                     "ec_paramgen_curve:prime256v1",
                     "-nodes",
                     "-days",
                     "2",
                     "-subj",
                     "/CN=127.0.0.1",
                     "-keyout",
                     "key.pem",
                     "-out",
                     "certificate.pem"};
  setup.directory = folder;
  const ProcessResult result = RunProcess(setup);
  if (result.exitCode != 0) {
    throw std::runtime_error("openssl makes no certificate: " + result.error);
  }
}

}  // namespace

std::string TextOfTheServer() {
  std::string text;
  for (int line = 0; static_cast<int64_t>(text.size()) < Nginx::kTextBytes; ++line) {
    text += "line " + std::to_string(line) + " says " + std::to_string(line * 7919 % 1000) + "\n";
  }
  text.resize(Nginx::kTextBytes);
  return text;
}

int64_t SumOfBodies(const std::vector<AccessLine>& lines) {
  int64_t sum = 0;
  for (const AccessLine& line : lines) {
    sum += line.bodyBytes;
  }
  return sum;
}

std::set<int64_t> ConnectionsOf(const std::vector<AccessLine>& lines) {
  std::set<int64_t> connections;
  for (const AccessLine& line : lines) {
    connections.insert(line.connection);
  }
  return connections;
}

Nginx::Nginx() : folder_(MakeFolder()) {
  MakeMedia();
  MakeCertificate(folder_);
  int attempts = 0;
  while (!Start()) {
    if (++attempts == kStartAttempts) {
      throw std::runtime_error("nginx does not start; " + folder_ + "/error.log says why");
    }
  }
}

Nginx::~Nginx() {
  process_->Signal(SIGTERM);
  process_->Wait();
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Nginx::MakeMedia() const {
  fs::create_directory(folder_ + "/files");
  std::string media(kMediaBytes, '\0');
  origin::FillPattern(media.data(), 0, media.size());
  std::ofstream(folder_ + "/files/media.bin", std::ios::binary) << media;
  std::ofstream(folder_ + "/files/text.txt", std::ios::binary) << TextOfTheServer();
  std::ofstream(folder_ + "/files/huge.bin").close();
  fs::resize_file(folder_ + "/files/huge.bin", kHugeBytes);
}

bool Nginx::Start() {
  std::string text = kConfiguration;
  Replace(&text, "@F@", folder_);
  for (int i = 0; i < 3; ++i) {
    ports_[i] = FreePort();
    Replace(&text, "@" + std::to_string(i + 1) + "@", std::to_string(ports_[i]));
  }
  std::ofstream(folder_ + "/nginx.conf") << text;
  ProcessSetup setup;
  setup.arguments = {FindProgram("nginx"), "-e", folder_ + "/error.log", "-p", folder_, "-c", folder_ + "/nginx.conf"};
  process_ = std::make_unique<Process>(setup);
  const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
  while (std::chrono::steady_clock::now() < deadline) {
    // It writes its number when it has all its ports, so nobody else answers there.
    if (fs::exists(folder_ + "/pid") && IsListening(ports_[2])) {
      return true;
    }
    std::this_thread::sleep_for(kLookAgain);
  }
  return false;
}

std::string Nginx::Url(Protocol protocol, const std::string& target) const {
  const uint16_t port = ports_[static_cast<int>(protocol)];
  return (protocol == Protocol::kHttp ? "http" : "https") + std::string("://127.0.0.1:") + std::to_string(port) +
         target;
}

std::vector<AccessLine> Nginx::ReadLines(const std::string& target) const {
  std::vector<AccessLine> lines;
  std::ifstream log(folder_ + "/access.log");
  for (std::string text; std::getline(log, text) && !log.eof();) {
    std::istringstream fields(text);
    AccessLine line;
    fields >> line.connection >> line.protocol >> line.status >> line.target >> line.range >> line.bodyBytes;
    if (fields && line.target == target) {
      lines.push_back(line);
    }
  }
  return lines;
}

std::vector<AccessLine> Nginx::WaitForLines(
    const std::string& target, const std::function<bool(const std::vector<AccessLine>&)>& isReached) const {
  const auto deadline = std::chrono::steady_clock::now() + kLogLimit;
  std::vector<AccessLine> lines = ReadLines(target);
  while (!isReached(lines) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kLookAgain);
    lines = ReadLines(target);
  }
  return lines;
}
