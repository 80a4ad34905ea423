// zvproxy: a TCP relay that gives loopback the delay, and each connection the bandwidth, of a long line.
//
// Every byte leaves half a round trip after it came, in both directions. The handshake of a client with the relay takes
// no time, where on a real line it costs one round trip before the client may send; so whatever a client sends in the
// first round trip after it was accepted counts as sent at the end of it. From connecting to the first byte of an
// answer that makes two round trips, as on a real line. With a rate, the bytes from server to client of each connection
// pass one after the other through a link of that rate before they are delayed. Slow start and losses are not modelled.
//
// How much is under way in one direction is bounded, so a client that stops reading stops the server.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/asio.hpp>
#include <chrono>
#include <cstdio>
#include <deque>
#include <memory>
#include <vector>

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t kBlockBytes = 262144;
constexpr size_t kPacedBlockBytes = 4096;
constexpr size_t kUnderWayBytes = 33554432;
constexpr size_t kPacedReserveBytes = 131072;
constexpr size_t kBlocksPerWrite = 16;

struct Line {
  std::chrono::microseconds oneWay{0};
  double bytesPerSecond = 0;  // 0: as fast as it goes
};

struct Block {
  std::vector<char> bytes;
  Clock::time_point due;
};

// One direction of one connection: reads ahead of what it may write by a bounded amount.
class Direction : public std::enable_shared_from_this<Direction> {
 public:
  Direction(std::shared_ptr<tcp::socket> from, std::shared_ptr<tcp::socket> to, Line line, Clock::time_point notBefore)
      : from_(std::move(from)), to_(std::move(to)), timer_(from_->get_executor()), line_(line), lastSent_(notBefore) {
    const bool paced = line_.bytesPerSecond > 0;
    blockBytes_ = paced ? kPacedBlockBytes : kBlockBytes;
    const double onTheWay = line_.bytesPerSecond * std::chrono::duration<double>(line_.oneWay).count();
    limit_ = paced ? static_cast<size_t>(onTheWay) + kPacedReserveBytes : kUnderWayBytes;
  }

  void Read() {
    if (reading_ || ended_ || queuedBytes_ >= limit_) {
      return;
    }
    reading_ = true;
    block_ = TakeSpare();
    from_->async_read_some(asio::buffer(block_), [self = shared_from_this()](error_code error, size_t count) {
      self->reading_ = false;
      error ? self->End() : self->Queue(count);
    });
  }

 private:
  std::vector<char> TakeSpare() {
    if (spare_.empty()) {
      return std::vector<char>(blockBytes_);
    }
    std::vector<char> block = std::move(spare_.back());
    spare_.pop_back();
    block.resize(blockBytes_);
    return block;
  }

  void Queue(size_t count) {
    lastSent_ = std::max(lastSent_, Clock::now()) + TimeOnLink(count);
    block_.resize(count);
    queuedBytes_ += count;
    queue_.push_back({std::move(block_), lastSent_ + line_.oneWay});
    Deliver();
    Read();
  }

  Clock::duration TimeOnLink(size_t count) const {
    if (line_.bytesPerSecond <= 0) {
      return Clock::duration::zero();
    }
    const std::chrono::duration<double> seconds(static_cast<double>(count) / line_.bytesPerSecond);
    return std::chrono::duration_cast<Clock::duration>(seconds);
  }

  // The end of the stream travels behind its bytes, with their delay.
  void End() {
    ended_ = true;
    endDue_ = std::max(lastSent_, Clock::now()) + line_.oneWay;
    Deliver();
  }

  void Deliver() {
    if (delivering_ || (queue_.empty() && !ended_)) {
      return;
    }
    delivering_ = true;
    const auto due = queue_.empty() ? endDue_ : queue_.front().due;
    if (due <= Clock::now()) {
      WriteDue();
      return;
    }
    timer_.expires_at(due);
    timer_.async_wait([self = shared_from_this()](error_code error) {
      if (!error) {
        self->WriteDue();
      }
    });
  }

  void WriteDue() {
    if (queue_.empty()) {
      Finish();
      return;
    }
    std::vector<asio::const_buffer> buffers;
    const auto now = Clock::now();
    for (const Block& block : queue_) {
      if (block.due > now || buffers.size() == kBlocksPerWrite) {
        break;
      }
      buffers.push_back(asio::buffer(block.bytes));
    }
    const size_t blocks = buffers.size();
    asio::async_write(*to_, buffers, [self = shared_from_this(), blocks](error_code error, size_t) {
      error ? self->Abort() : self->Written(blocks);
    });
  }

  void Written(size_t blocks) {
    for (size_t i = 0; i < blocks; ++i) {
      queuedBytes_ -= queue_.front().bytes.size();
      spare_.push_back(std::move(queue_.front().bytes));
      queue_.pop_front();
    }
    delivering_ = false;
    Deliver();
    Read();
  }

  void Finish() {
    error_code ignored;
    to_->shutdown(tcp::socket::shutdown_send, ignored);
  }

  // The receiver is gone: what is still under way has nowhere to go, and the sender must notice.
  void Abort() {
    error_code ignored;
    from_->close(ignored);
    to_->close(ignored);
  }

  std::shared_ptr<tcp::socket> from_;
  std::shared_ptr<tcp::socket> to_;
  asio::steady_timer timer_;
  Line line_;
  Clock::time_point lastSent_;  // when the link is free for the next byte
  Clock::time_point endDue_;
  size_t blockBytes_ = 0;
  size_t limit_ = 0;
  size_t queuedBytes_ = 0;
  std::deque<Block> queue_;
  std::vector<std::vector<char>> spare_;
  std::vector<char> block_;
  bool reading_ = false;
  bool delivering_ = false;
  bool ended_ = false;
};

struct Relay {
  tcp::acceptor& acceptor;
  tcp::endpoint server;
  Line line;
};

void Connect(const Relay& relay, tcp::socket client) {
  const auto accepted = Clock::now();
  auto near = std::make_shared<tcp::socket>(std::move(client));
  auto far = std::make_shared<tcp::socket>(near->get_executor());
  far->async_connect(relay.server, [near, far, accepted, line = relay.line](error_code error) {
    if (error) {
      return;
    }
    near->set_option(tcp::no_delay(true));
    far->set_option(tcp::no_delay(true));
    std::make_shared<Direction>(near, far, Line{line.oneWay, 0}, accepted + 2 * line.oneWay)->Read();
    std::make_shared<Direction>(far, near, line, accepted)->Read();
  });
}

void Accept(const Relay& relay) {
  relay.acceptor.async_accept([&relay](error_code error, tcp::socket client) {
    if (!error) {
      Connect(relay, std::move(client));
    }
    Accept(relay);
  });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Relays TCP connections on 127.0.0.1 with a delay and a rate");
  uint16_t listenPort = 0;
  uint16_t toPort = 0;
  double roundTripMs = 0;
  double rate = 0;
  app.add_option("--listen", listenPort, "Port to listen on; 0 takes a free one, which is printed");
  app.add_option("--to", toPort, "Port of the server")->required();
  app.add_option("--rtt-ms", roundTripMs, "Round-trip time in milliseconds")->check(CLI::NonNegativeNumber);
  app.add_option("--rate", rate, "Bytes per second and connection from the server; 0: no limit")
      ->check(CLI::NonNegativeNumber);
  CLI11_PARSE(app, argc, argv);
  try {
    asio::io_context io(1);
    const auto loopback = asio::ip::address_v4::loopback();
    tcp::acceptor acceptor(io, tcp::endpoint(loopback, listenPort));
    const std::chrono::microseconds oneWay(static_cast<int64_t>(roundTripMs * 500));
    const Relay relay{acceptor, tcp::endpoint(loopback, toPort), Line{oneWay, rate}};
    Accept(relay);
    std::printf("%u\n", static_cast<unsigned>(acceptor.local_endpoint().port()));
    std::fflush(stdout);
    io.run();
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "zvproxy: %s\n", problem.what());
    return 1;
  }
  return 0;
}
