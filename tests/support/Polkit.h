#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Sandbox.h"

namespace test {

// A real system bus and a real authority on it, for a sandbox's simulated machine: the elevator and
// its action are installed, both people have a password, and the sandbox's other user is an
// administrator. All of it is the sandbox's own and goes with the object.
class Polkit {
 public:
  static constexpr char kAdministrator[] = "bert";
  static constexpr char kPassword[] = "correct horse";

  // What can be missing, for tests of what happens then.
  enum class Without { nothing, bus, authority, administrator, elevator };

  // After simulateMachine; as root, before any thread.
  explicit Polkit(const Sandbox& sandbox, Without without = Without::nothing);
  ~Polkit();
  Polkit(const Polkit&) = delete;
  Polkit& operator=(const Polkit&) = delete;

  // Whether somebody on the system bus has that name.
  static bool isOnTheBus(const std::string& name);

  // Stops the authority so that it answers nothing more, and lets it go on.
  void hang() const;
  void goOn() const;
  // Starts the authority on a machine that was made without one.
  void installAuthority();

 private:
  void installElevator() const;
  void hearOfAuthority();
  void endDaemons();

  // Reaped by a process of its own, which ends them when this one is gone, however it went.
  pid_t custodian_ = 0;
  int lifeline_ = -1;
  pid_t authority_ = 0;
};

// Runs `body` as that person in a child process, in a session of its own, and answers whether it
// ended without a test failure. The sandbox stays root's in this process.
bool passesAs(Sandbox& sandbox, std::string_view user, const std::function<void()>& body);

// A child process that runs `body` as that person, not waited for.
pid_t startAs(Sandbox& sandbox, std::string_view user, const std::function<void()>& body);
// Waits for such a child; answers whether it ended without a failure.
bool passed(pid_t child);

}  // namespace test
