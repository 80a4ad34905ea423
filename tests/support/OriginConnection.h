// One connection of the origin: takes requests off it and writes their answers, one after the other. It lives on the
// server's thread. While an answer is under way it goes on reading, so that it notices when the client leaves.
//
//   Start -> Handshake -> Listen <-> (a request) BeginAnswer -> Step ... Step -> EndAnswer
//   Step: does what is due at this place (wait at a gate, cut, reset), or writes the next block and then pauses as the
//   answer wants it. Close ends everything, from every state, once.
#ifndef TESTS_SUPPORT_ORIGIN_CONNECTION_H
#define TESTS_SUPPORT_ORIGIN_CONNECTION_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/steady_timer.hpp>

#include "OriginCore.h"
#include "OriginParser.h"
#include "OriginPlan.h"

namespace origin {

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Core* core, std::unique_ptr<Transport> transport, int number);

  void Start(bool isSilent);
  void Close(bool reset);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Act { kGate, kStall, kCut, kReset };

  struct Event {
    int64_t position;
    Act act;
  };

  // One answer under way.
  struct Job {
    Job(Answer given, Plan plan) : answer(std::move(given)), wire(std::move(plan)) {}
    Answer answer;
    Wire wire;
    std::vector<Event> events;  // by position; those behind are taken away
    int index = 0;              // of the request in the log
    bool isBegun = false;
    Clock::time_point paceStart;
    uint64_t paceFrom = 0;  // body bytes that were out at paceStart
  };

  void Read();
  void TakeInput(bool isGood, size_t bytes);
  void TakeRequest();
  void RefuseRequest();
  void BeginAnswer(Request request, bool keepsAlive);
  void PlanEvents();
  void Step();
  bool ActOnDueEvent();
  bool WaitsAt(Gate* gate);
  void Resume(uint64_t wait);
  void Cut();
  void ResetWhenReceived();
  void WriteBlock();
  size_t BlockLimit() const;
  uint64_t NextStop() const;
  Clock::duration PauseAfterBlock();
  void RestartPace();
  void StepAfter(Clock::duration pause);
  void EndAnswer();
  void EndJob(bool isComplete);

  Core* const core_;
  std::unique_ptr<Transport> transport_;
  const int number_;
  boost::asio::steady_timer timer_;
  RequestParser parser_;
  std::string input_;  // bytes behind the request under way
  std::vector<char> readBuffer_;
  std::vector<char> writeBuffer_;
  std::optional<Job> job_;
  Gate* gate_ = nullptr;  // where it waits
  uint64_t wait_ = 0;     // number of the wait; a resume of an older one means nothing
  int requests_ = 0;
  bool isSilent_ = false;  // says nothing, only notices that the client leaves
  bool isReading_ = false;
  bool isFinishing_ = false;  // its last answer is out
  bool isClosed_ = false;
};

}  // namespace origin

#endif
