#pragma once

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"

namespace test {

// A system bus of the sandbox's own, and on it a login manager that hands out locks against sleep
// and shutting down.
class LoginManager {
 public:
  // What it does when it is asked for a lock; with `absent` there is nobody on the bus.
  enum class Behaviour { grants, grantsOnlyDelays, refuses, hangs, answersNonsense, absent };

  // After simulateMachine, as root. Ready to be asked when made.
  LoginManager(const Sandbox& sandbox, Behaviour behaviour);

  // The locks that were asked for up to now, "what|who|why|mode" each.
  std::vector<std::string> requests();
  // How many of those that were handed out have been given back.
  std::size_t released();
  // Whether a lock is held now.
  bool isHeld() { return requests().size() > released(); }

  // Stops the bus so that it answers nothing more.
  void hangBus() { bus_->daemon().signal(SIGSTOP); }

 private:
  std::optional<SessionBus> bus_;
  std::optional<ChildProgram> manager_;
};

}  // namespace test
