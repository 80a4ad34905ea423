#include "OriginConnection.h"

#include <algorithm>
#include <utility>

#include <boost/asio/post.hpp>

namespace origin {
namespace {

constexpr size_t kReadBytes = 16384;
constexpr size_t kInputLimitBytes = 65536;  // a client that sends on while it is answered is read no further
constexpr size_t kBlockBytes = 256 * 1024;
constexpr uint64_t kBlocksPerSecond = 100;  // of a paced answer
constexpr auto kUnsentPoll = std::chrono::milliseconds(1);
constexpr auto kPaceTolerance = std::chrono::milliseconds(100);

}  // namespace

Connection::Connection(Core* core, std::unique_ptr<Transport> transport, int number)
    : core_(core), transport_(std::move(transport)), number_(number), timer_(core->Io()), readBuffer_(kReadBytes) {}

void Connection::Start(bool isSilent) {
  isSilent_ = isSilent;
  if (isSilent) {
    Read();
    return;
  }
  transport_->Handshake([self = shared_from_this()](bool isGood, size_t) {
    if (isGood) {
      self->Read();
    } else {
      self->Close(false);
    }
  });
}

void Connection::Close(bool reset) {
  if (isClosed_) {
    return;
  }
  isClosed_ = true;
  if (gate_ != nullptr) {
    gate_->Forget(this);
    gate_ = nullptr;
  }
  timer_.cancel();
  EndJob(false);
  transport_->Close(reset);
  core_->Remove(shared_from_this());
}

void Connection::Read() {
  if (isReading_ || isClosed_ || input_.size() >= kInputLimitBytes) {
    return;
  }
  isReading_ = true;
  transport_->Read(readBuffer_.data(), readBuffer_.size(), [self = shared_from_this()](bool isGood, size_t bytes) {
    self->isReading_ = false;
    self->TakeInput(isGood, bytes);
  });
}

void Connection::TakeInput(bool isGood, size_t bytes) {
  if (!isGood) {
    Close(false);
  }
  if (isClosed_) {
    return;
  }
  if (!isSilent_ && !isFinishing_) {
    input_.append(readBuffer_.data(), bytes);
    TakeRequest();
  }
  Read();
}

void Connection::TakeRequest() {
  if (isClosed_ || isFinishing_ || job_) {
    return;
  }
  Request request;
  bool keepsAlive = true;
  switch (parser_.Take(&input_, &request, &keepsAlive)) {
    case RequestParser::Result::kNeedsMore:
      return;
    case RequestParser::Result::kBad:
      RefuseRequest();
      return;
    case RequestParser::Result::kRequest:
      BeginAnswer(std::move(request), keepsAlive);
  }
}

// What is no request is not logged either.
void Connection::RefuseRequest() {
  Answer answer = Status(400);
  answer.closeAfter = true;
  Plan plan = MakePlan(answer, Request{}, std::nullopt);
  job_.emplace(std::move(answer), std::move(plan));
  job_->index = -1;
  Step();
}

void Connection::BeginAnswer(Request request, bool keepsAlive) {
  request.connection = number_;
  request.onConnection = ++requests_;
  Decision decision = core_->GetBook().Decide(&request);
  if (isClosed_) {  // by the handler
    core_->GetBook().NoteEnded(request.index, false);
    return;
  }
  decision.answer.closeAfter = decision.answer.closeAfter || !keepsAlive;
  Plan plan = MakePlan(decision.answer, request, decision.entity);
  core_->GetBook().NoteStatus(request.index, plan.status);
  job_.emplace(std::move(decision.answer), std::move(plan));
  job_->index = request.index;
  PlanEvents();
  StepAfter(std::chrono::milliseconds(job_->answer.delayMs));
}

void Connection::PlanEvents() {
  const Answer& answer = job_->answer;
  std::vector<Event>& events = job_->events;
  if (answer.gate) {
    events.push_back({answer.gateAt, Act::kGate});
  }
  if (answer.stallAt) {
    events.push_back({*answer.stallAt, Act::kStall});
  }
  if (answer.cutAt) {
    events.push_back({*answer.cutAt, Act::kCut});
  }
  if (answer.resetAt) {
    events.push_back({*answer.resetAt, Act::kReset});
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const Event& left, const Event& right) { return left.position < right.position; });
}

void Connection::Step() {
  if (isClosed_ || !job_ || ActOnDueEvent()) {
    return;
  }
  if (job_->wire.IsAtEnd()) {
    EndAnswer();
  } else {
    WriteBlock();
  }
}

// Whether something was due that takes the answer out of Step's hands.
bool Connection::ActOnDueEvent() {
  if (job_->answer.cutAtWire && job_->wire.BytesDone() >= *job_->answer.cutAtWire) {
    Cut();
    return true;
  }
  while (!job_->events.empty()) {
    const Event event = job_->events.front();
    if (event.position >= 0 && !job_->wire.HasReached(static_cast<uint64_t>(event.position))) {
      return false;
    }
    job_->events.erase(job_->events.begin());
    if (event.act == Act::kCut) {
      Cut();
      return true;
    }
    if (event.act == Act::kReset) {
      ResetWhenReceived();
      return true;
    }
    if (WaitsAt(event.act == Act::kGate ? job_->answer.gate.get() : &core_->Stalls())) {
      return true;
    }
  }
  return false;
}

// False when the gate is open.
bool Connection::WaitsAt(Gate* gate) {
  const uint64_t wait = ++wait_;
  gate_ = gate;
  const bool isOpen = gate->PassOrWait(this, [mailbox = core_->GetMailbox(), weak = weak_from_this(), wait] {
    mailbox->Post([weak, wait] {
      if (const auto self = weak.lock()) {
        self->Resume(wait);
      }
    });
  });
  if (isOpen) {
    gate_ = nullptr;
  }
  return !isOpen;
}

void Connection::Resume(uint64_t wait) {
  if (gate_ != nullptr && wait == wait_) {
    gate_ = nullptr;
    RestartPace();
    Step();
  }
}

void Connection::Cut() {
  EndJob(true);
  Close(false);
}

// A reset takes back what is still on its way, so it waits until nothing is.
void Connection::ResetWhenReceived() {
  if (transport_->UnsentBytes() == 0) {
    EndJob(true);
    Close(true);
    return;
  }
  timer_.expires_after(kUnsentPoll);
  timer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
    if (!error && !self->isClosed_) {
      self->ResetWhenReceived();
    }
  });
}

void Connection::WriteBlock() {
  if (!job_->isBegun) {
    job_->isBegun = true;
    RestartPace();
  }
  writeBuffer_.resize(kBlockBytes);
  size_t bodyBytes = 0;
  const size_t n = job_->wire.Fill(writeBuffer_.data(), BlockLimit(), NextStop(), &bodyBytes);
  if (job_->wire.IsBroken()) {
    Close(false);
    return;
  }
  transport_->Write(writeBuffer_.data(), n, [self = shared_from_this(), bodyBytes](bool isGood, size_t) {
    if (!isGood) {
      self->Close(false);
    }
    if (!self->isClosed_) {
      self->core_->GetBook().NoteBodySent(self->job_->index, bodyBytes);
      self->StepAfter(self->PauseAfterBlock());
    }
  });
}

size_t Connection::BlockLimit() const {
  const Answer& answer = job_->answer;
  uint64_t limit = kBlockBytes;
  if (answer.dripBytes > 0) {
    limit = std::min<uint64_t>(limit, answer.dripBytes);
  }
  if (answer.bytesPerSecond > 0) {
    limit = std::min(limit, std::max<uint64_t>(answer.bytesPerSecond / kBlocksPerSecond, 1));
  }
  if (answer.cutAtWire) {
    limit = std::min(limit, *answer.cutAtWire - job_->wire.BytesDone());
  }
  return static_cast<size_t>(limit);
}

uint64_t Connection::NextStop() const {
  return job_->events.empty() ? Wire::kNoStop : static_cast<uint64_t>(job_->events.front().position);
}

Connection::Clock::duration Connection::PauseAfterBlock() {
  const Answer& answer = job_->answer;
  if (answer.dripBytes > 0) {
    return std::chrono::milliseconds(answer.dripMs);
  }
  if (answer.bytesPerSecond == 0) {
    return Clock::duration::zero();
  }
  const double seconds =
      static_cast<double>(job_->wire.BodyDone() - job_->paceFrom) / static_cast<double>(answer.bytesPerSecond);
  const auto due =
      job_->paceStart + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  const auto now = Clock::now();
  if (now > due + kPaceTolerance) {  // the client was slower than that: no burst to catch up
    RestartPace();
  }
  return std::max(due - now, Clock::duration::zero());
}

void Connection::RestartPace() {
  job_->paceStart = Clock::now();
  job_->paceFrom = job_->wire.BodyDone();
}

void Connection::StepAfter(Clock::duration pause) {
  if (pause <= Clock::duration::zero()) {
    Step();
    return;
  }
  timer_.expires_after(pause);
  timer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
    if (!error) {
      self->Step();
    }
  });
}

void Connection::EndAnswer() {
  const bool closes = job_->wire.GetPlan().closesAtEnd;
  EndJob(true);
  if (isClosed_) {  // by the observer
    return;
  }
  const auto self = shared_from_this();
  if (closes) {
    isFinishing_ = true;
    transport_->Finish([self](bool, size_t) { self->Close(false); });
    return;
  }
  // Not called from here, so that many requests in one packet do not nest.
  boost::asio::post(core_->Io(), [self] {
    self->TakeRequest();
    self->Read();
  });
}

void Connection::EndJob(bool isComplete) {
  if (!job_) {
    return;
  }
  const int index = job_->index;
  job_.reset();
  core_->GetBook().NoteEnded(index, isComplete);
}

}  // namespace origin
