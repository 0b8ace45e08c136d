#include "platform/linux/window/WindowProcess.h"

#include <poll.h>
#include <sys/socket.h>

#include <optional>
#include <utility>
#include <variant>

#include "platform/Console.h"
#include "platform/NoDestructor.h"
#include "platform/linux/loop/MainLoop.h"
#include "platform/linux/window/WindowProgram.h"

namespace platform {
namespace {

using window::Answer;
using window::Request;

constexpr char kNoDisplay[] = "No display can be opened; going on without a window.";
constexpr char kDisplayLost[] = "The display was lost; going on without a window.";
constexpr char kNoAnswer[] = "The display does not answer; going on without a window.";
constexpr char kBroken[] = "The window program answers wrongly; going on without a window.";

// Adds a request. Of what is asked again and again, and nobody has seen yet, the last counts, so
// that no more than one of a kind waits, but for alerts.
void append(std::deque<Request>& waiting, const Request& request) {
  if (!std::holds_alternative<window::ShowAlert>(request)) {
    std::erase_if(waiting, [&](const Request& each) { return each.index() == request.index(); });
  }
  waiting.push_back(request);
}

}  // namespace

// static
WindowProcess& WindowProcess::shared() {
  static NoDestructor<WindowProcess> instance;
  return *instance;
}

WindowProcess::WindowProcess()
    : lifeSigns_([this] { send(window::Ping{}); }, [this] { lose(kNoAnswer); }) {}

bool WindowProcess::send(const Request& request) {
  if (state_ == State::notStarted) start();
  if (state_ == State::gone) return false;
  append(waiting_, request);
  flush();
  if (state_ != State::gone && std::holds_alternative<window::ShowAlert>(request)) {
    ++shownAlerts_;
    lifeSigns_.begin();
  }
  return state_ != State::gone;
}

void WindowProcess::start() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return lose(kNoDisplay);
  socket_.reset(ends[0]);
  child_ = startWindowProgram(posix::FileDescriptor(ends[1]));
  if (!child_) return lose(kNoDisplay);
  state_ = State::starting;
}

// What is not taken now is sent when the socket takes it.
void WindowProcess::flush() {
  while (!waiting_.empty()) {
    const window::Sent sent = window::send(socket_.get(), encoded(waiting_.front()));
    if (sent == window::Sent::never) return lose(lossOfChild());
    if (sent == window::Sent::later) break;
    waiting_.pop_front();
  }
  const short sendable = waiting_.empty() ? 0 : POLLOUT;
  main_loop::watch(socket_.get(), static_cast<short>(POLLIN | sendable), [this] { serve(); });
}

void WindowProcess::serve() {
  flush();
  if (state_ == State::gone) return;
  const window::Received received = window::receive(socket_.get(), window::kLongestAnswer);
  if (!received.open) return lose(lossOfChild());
  if (received.packet.empty()) return;
  const std::optional<Answer> answer = window::answerIn(received.packet);
  if (!answer || !take(*answer)) lose(kBroken);
}

// Whether that may be answered now.
bool WindowProcess::take(const Answer& answer) {
  if (std::holds_alternative<window::Ready>(answer)) {
    return std::exchange(state_, State::open) == State::starting;
  }
  if (state_ != State::open) return false;
  const auto* dismissed = std::get_if<window::Dismissed>(&answer);
  return dismissed != nullptr ? takeDismissed(dismissed->number) : lifeSigns_.take();
}

bool WindowProcess::takeDismissed(std::uint32_t number) {
  if (!alertListener_.dismissed(number)) return false;
  if (--shownAlerts_ == 0) lifeSigns_.end();
  return true;
}

const char* WindowProcess::lossOfChild() const {
  return state_ == State::open ? kDisplayLost : kNoDisplay;
}

void WindowProcess::lose(const char* line) {
  state_ = State::gone;
  console::writeLine(line);
  lifeSigns_.end();
  if (socket_) main_loop::unwatch(socket_.get());
  socket_.reset();
  if (child_) child_->kill();
  child_.reset();
  waiting_.clear();
  if (alertListener_.lost != nullptr) alertListener_.lost();
}

}  // namespace platform
