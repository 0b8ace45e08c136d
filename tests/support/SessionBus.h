#pragma once

#include <memory>
#include <string>

#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"

namespace test {

// A private session bus in the sandbox. The environment is not changed: a test that wants the bus
// found calls `announce`.
class SessionBus {
 public:
  // Whom it lets in: a session's bus only its owner, the system's bus everybody.
  enum class Admits { owner, everybody };

  // Starts the bus and waits until it takes connections.
  explicit SessionBus(const Sandbox& sandbox, Admits admits = Admits::owner);
  // The same for one of the sandbox's people; the test must be root.
  SessionBus(const Sandbox& sandbox, unsigned userId);

  std::string address() const { return "unix:path=" + socket_; }
  // Names the bus in DBUS_SESSION_BUS_ADDRESS.
  void announce() const;

  ChildProgram& daemon() { return *daemon_; }

  // Files that start a program for a name that nobody has: the bus looks for them here.
  std::string servicesFolder() const { return folder_ + "/services"; }

 private:
  void writeConfiguration(const Sandbox& sandbox, Admits admits);

  std::string folder_;
  std::string socket_;
  std::unique_ptr<ChildProgram> daemon_;
};

}  // namespace test
