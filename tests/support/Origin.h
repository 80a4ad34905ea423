// A scripted HTTP/1.1 origin for tests, demos and `zvhttp serve`: it answers correctly unless it is told to misbehave.
//
// A Server listens on 127.0.0.1 and runs one thread of its own. For each request it looks, in this order, for an Answer
// in the script of the target (the n-th request of a target gets the n-th row), from the handler of the target, from
// the handler of all targets. An Answer{} as it is, like no Answer at all, means: behave correctly. Correct means: 200,
// 206 or 416 for what was Put under the target or lies in the served directory, otherwise 404; keep-alive; HEAD;
// ranges.
//
// Targets are matched exactly first and, if nothing is known under the whole text, without their query. Every function
// may be called from any thread. Handlers run on the server's thread without a lock held, so they may call the server.
#ifndef TESTS_SUPPORT_ORIGIN_H
#define TESTS_SUPPORT_ORIGIN_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Pattern.h"

namespace origin {

using Headers = std::vector<std::pair<std::string, std::string>>;

// What a target holds. read fills out with the n bytes at pos (always within length) and gives false when it cannot.
// It is called on the server's thread, block by block, so a resource of any length costs no memory.
struct Resource {
  uint64_t length = 0;
  std::function<bool(uint64_t pos, char* out, size_t n)> read;
  std::string contentType = "application/octet-stream";
};

Resource PatternResource(uint64_t length, uint32_t seed = 0);
Resource BytesResource(std::string bytes, std::string contentType = "application/octet-stream");
// A file of the disk; its content type follows from its name. Length 0 and no read function when it cannot be opened.
Resource FileResource(const std::string& path);

// One request as the server saw it. The last four fields grow while it is answered.
struct Request {
  std::string method;
  std::string target;
  std::string range;   // value of the Range header, empty without one
  int64_t first = -1;  // of "bytes=first-last"; -1 where a side is open, so "bytes=-n" is first -1, last n
  int64_t last = -1;
  Headers headers;       // in their order, names as they were sent
  int connection = 0;    // number of the connection, from 1, in order of acceptance
  int onConnection = 0;  // number of this request on its connection, from 1
  int forTarget = 0;     // number of this request among those of its target, from 1
  int index = 0;         // place in the log, from 0
  std::chrono::steady_clock::time_point time;
  int status = 0;         // of the answer; 0 while undecided and for raw answers
  uint64_t bodySent = 0;  // body bytes handed to the connection (without chunk framing)
  bool ended = false;     // nothing more will be sent for it
  bool complete = false;  // it ended as the Answer says, flaws included; false when the client left before

  // Value of the first header of that name (any case), or "".
  std::string Header(const std::string& name) const;
};

// A pause point: answers that carry it wait until it is opened. Made by std::make_shared<Gate>(), may be shared by many
// answers and many servers.
class Gate {
 public:
  // Lets everyone through, those who wait and those who will come.
  void Open();
  // Closes it again for those who will come.
  void Close();
  // Lets through those who wait now.
  void ReleaseWaiting();
  // How many answers wait at it now.
  int Waiting() const;
  // Waits until at least count answers wait at it; false when that does not happen within ms.
  bool AwaitWaiting(int count, int ms = 10000) const;

  Gate();
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

 private:
  friend class Connection;
  // True when open; otherwise resume is kept and called once, from whichever thread opens the gate.
  bool PassOrWait(const void* who, std::function<void()> resume);
  void Forget(const void* who);

  struct State;
  std::unique_ptr<State> state_;
};

// Positions in an answer, counted in body bytes: kBeforeAnswer is before its first header byte, 0 is between headers
// and body, the body's length (or more) is behind its end.
constexpr int64_t kBeforeAnswer = -1;

// What a request gets. Every field has a default that means "as a correct server does it"; flaws can be combined.
struct Answer {
  // ---- What it says ----
  int status = 0;      // 0: 200, 206, 404 or 416 as it should be. 200 on a range request sends everything
  std::string reason;  // "": the usual words
  std::string version = "HTTP/1.1";
  Headers headers;                   // replace those of the same name, otherwise added; repeated names are all sent;
                                     // values go out as they are, so "a\r\n b" is a folded one
  std::vector<std::string> without;  // names of default headers that are left out (e.g. "Accept-Ranges")
  std::string location;              // adds Location; status 0 becomes 302
  std::vector<int> interim;          // statuses of 1xx answers that go first, e.g. {100, 103}
  std::optional<std::string> body;   // instead of the resource; ranges of it are served like those of a resource
  std::optional<std::string> raw;  // the whole answer, byte for byte; of the other fields only the timing, the cuts and
                                   // closeAfter count, and all its bytes are body bytes

  // ---- Which bytes ----
  bool ignoreRange = false;       // 200 and everything, although a range was asked for
  int64_t shift = 0;              // the 206 starts that many bytes later (or earlier) and says so
  std::optional<uint64_t> first;  // the 206 has these bytes, whatever was asked for, and says so
  std::optional<uint64_t> last;
  std::optional<uint64_t> maxBytes;  // the 206 has at most so many bytes and says so
  // A Content-Range that lies is one of `headers`: {"Content-Range", "bytes 5-9/*"}.
  std::optional<std::string> contentLength;  // text of Content-Length; the body stays as it is and ends the connection
  bool noContentLength = false;              // the end of the body is the end of the connection
  bool gzip = false;                         // serves the gzip form: ranges and lengths are those of the packed bytes
  bool forceBody = false;                    // sends the body after 204, 304 and to HEAD too

  // ---- How it is written ----
  size_t chunkBytes = 0;     // chunked, with chunks of that size
  Headers trailers;          // after the last chunk
  bool noLastChunk = false;  // closes instead of sending the last chunk
  bool lowerCaseNames = false;
  bool bareLf = false;            // header lines end in LF alone
  size_t fillerHeaderBytes = 0;   // adds X-Filler headers of that many bytes altogether
  size_t fillerLineBytes = 1000;  // length of each of them
  bool closeAfter = false;        // Connection: close, and closes (to close without saying so: cutAt the length)

  // ---- How it goes wrong ----
  std::optional<int64_t> cutAt;       // closes after so many body bytes
  std::optional<uint64_t> cutAtWire;  // closes after so many bytes of the answer, headers (and 1xx) included
  std::optional<int64_t> resetAt;     // the same with a reset; the client's system has received all bytes before it
  std::optional<int64_t> stallAt;  // stops there until Server::ReleaseStalls or until the client leaves, then goes on
  std::shared_ptr<Gate> gate;      // stops at gateAt until the gate is open, then goes on
  int64_t gateAt = kBeforeAnswer;

  // ---- How fast ----
  int delayMs = 0;              // before the first byte
  size_t dripBytes = 0;         // writes of so many bytes, headers included, ...
  int dripMs = 10;              // ... each so long after the last
  uint64_t bytesPerSecond = 0;  // pace of the body; 0: as fast as it goes
};

// Shorthands for the common ones; set further fields on the result.
Answer Status(int status, std::string body = "");
Answer Redirect(std::string location, int status = 302);
Answer CutAt(int64_t bodyBytes);
Answer CutAtWire(uint64_t bytes);
Answer ResetAt(int64_t bodyBytes);
Answer StallAt(int64_t bodyBytes);
Answer Raw(std::string bytes);

using Handler = std::function<Answer(const Request&)>;

// The origin has no TLS on Windows.
#if defined(_WIN32)
inline constexpr bool kHasTls = false;
#else
inline constexpr bool kHasTls = true;
#endif

struct Options {
  bool https = false;           // with a self-signed certificate made at start
  uint16_t port = 0;            // 0: a free one
  bool stallHandshake = false;  // accepts connections and never says a word on them
};

class Server {
 public:
  // Listens when it returns. Throws std::runtime_error when it cannot.
  explicit Server(Options options = {});
  // Closes every connection, lets no answer wait any more, joins the thread.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  uint16_t Port() const;
  // "http://127.0.0.1:PORT" + target.
  std::string Url(const std::string& target = "/") const;

  // ---- What it serves ----
  void Put(const std::string& target, Resource resource);
  // Files below path: single ranges, content types of media, listings of folders, nothing outside of it.
  void ServeDirectory(const std::string& path);

  // ---- The script ----
  // The rows for the next requests of the target, first to last; afterwards the handlers and the correct behaviour.
  void Script(const std::string& target, std::vector<Answer> rows);
  void Handle(const std::string& target, Handler handler);
  void Handle(Handler handler);
  // Forgets rows and handlers (not resources).
  void ClearScript();
  // Lets go every answer that stands at its stallAt now.
  void ReleaseStalls();
  // Waits until at least count answers stand at their stallAt; false when that does not happen within ms.
  bool WaitForStalls(int count, int ms = 10000) const;
  // Closes all connections at once, or resets them, as a crash of the server would. It goes on listening.
  void DropConnections(bool reset = false);
  // Called on the server's thread when a request has ended: for programs that print them.
  void OnEnded(std::function<void(const Request&)> observer);

  // ---- What happened ----
  std::vector<Request> Log() const;
  // The log of one target.
  std::vector<Request> LogOf(const std::string& target) const;
  void ClearLog();
  int RequestCount() const;
  int OpenConnections() const;
  int AcceptedConnections() const;
  // Wait until that much has happened; false when it does not within ms.
  bool WaitForRequests(int count, int ms = 10000) const;
  bool WaitForEnded(int count, int ms = 10000) const;
  bool WaitForOpenConnections(int count, int ms = 10000) const;
  // The general form: is tested with the log whenever it has changed. It must not call the server.
  bool WaitForLog(const std::function<bool(const std::vector<Request>&)>& isReached, int ms = 10000) const;

 private:
  std::shared_ptr<class Core> core_;
};

}  // namespace origin

#endif
