#include "tests/support/SlowFiles.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "tests/support/Sandbox.h"

namespace test {
namespace {

int openEvents() {
  return ::fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC);
}

int checked(int result) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), "fanotify");
  return result;
}

}  // namespace

// static
bool SlowFiles::canBeMade() {
  const int events = openEvents();
  const bool made = events >= 0 && ::fanotify_mark(events, FAN_MARK_ADD, FAN_OPEN_PERM, AT_FDCWD,
                                                   "/proc/self/exe") == 0;
  if (events >= 0) ::close(events);
  return made && Sandbox::canSimulateMachine();
}

SlowFiles::SlowFiles(const std::string& mountPoint, std::chrono::milliseconds delay,
                     Folders folders, Extent extent)
    : events_(checked(openEvents())) {
  const std::uint64_t mask =
      folders == Folders::slow ? FAN_OPEN_PERM | FAN_ONDIR : std::uint64_t{FAN_OPEN_PERM};
  const unsigned marked = extent == Extent::mount ? FAN_MARK_MOUNT : FAN_MARK_FILESYSTEM;
  checked(::fanotify_mark(events_, FAN_MARK_ADD | marked, mask, AT_FDCWD, mountPoint.c_str()));
  thread_ = std::thread([this, delay] { answer(delay); });
}

// What still waits is let through when the last descriptor is closed.
SlowFiles::~SlowFiles() {
  ending_ = true;
  thread_.join();
  ::close(events_);
}

void SlowFiles::answer(std::chrono::milliseconds delay) {
  pollfd readable = {events_, POLLIN, 0};
  while (!ending_) {
    if (::poll(&readable, 1, 10) <= 0) continue;
    fanotify_event_metadata event{};
    if (::read(events_, &event, sizeof event) != static_cast<ssize_t>(sizeof event)) continue;
    std::this_thread::sleep_for(delay);
    const fanotify_response allowed = {event.fd, FAN_ALLOW};
    [[maybe_unused]] const ssize_t written = ::write(events_, &allowed, sizeof allowed);
    ::close(event.fd);
  }
}

}  // namespace test
