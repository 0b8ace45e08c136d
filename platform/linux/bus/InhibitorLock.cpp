#include "platform/InhibitorLock.h"

#include <fcntl.h>

#include "platform/Exception.h"
#include "platform/linux/bus/BusConnection.h"
#include "posix/FileDescriptor.h"

namespace platform {
namespace {

constexpr char kWho[] = "Quorvale Update Helper";

// A lock of the login manager's: it holds until its descriptor is closed.
posix::FileDescriptor descriptorIn(const BusMessage& reply) {
  int lock = -1;
  if (!reply || sd_bus_message_read(reply.get(), "h", &lock) < 0) return {};
  return posix::FileDescriptor(::fcntl(lock, F_DUPFD_CLOEXEC, 0));
}

posix::FileDescriptor takeLock(BusConnection& bus, const std::string& reason, const char* mode) {
  const BusMessage call = bus.newCall("org.freedesktop.login1", "/org/freedesktop/login1",
                                      "org.freedesktop.login1.Manager", "Inhibit");
  const bool complete = call && sd_bus_message_append(call.get(), "ssss", "shutdown:sleep", kWho,
                                                      reason.c_str(), mode) >= 0;
  return complete ? descriptorIn(bus.call(call)) : posix::FileDescriptor();
}

// A lock that blocks, because one that only delays ends after five seconds, which an update of a
// large application outlasts. Whoever is not sitting at the machine may have no more than that one.
posix::FileDescriptor takeLock(const std::string& reason) {
  const auto bus = BusConnection::openSystem();
  if (!bus) return {};
  posix::FileDescriptor lock = takeLock(*bus, reason, "block");
  return lock ? std::move(lock) : takeLock(*bus, reason, "delay");
}

}  // namespace

class InhibitorLock::Wish {
 public:
  explicit Wish(const std::string& reason) {
    try {
      lock_ = takeLock(reason);
    } catch (const Exception&) {
      // Nobody answers: then nobody is asked.
    }
  }

  bool isGranted() const { return static_cast<bool>(lock_); }

 private:
  posix::FileDescriptor lock_;
};

InhibitorLock::InhibitorLock(const std::string& reason) : wish_(std::make_unique<Wish>(reason)) {}

InhibitorLock::~InhibitorLock() = default;

bool InhibitorLock::isGranted() const {
  return wish_->isGranted();
}

}  // namespace platform
