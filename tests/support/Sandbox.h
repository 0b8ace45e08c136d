#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Janitor.h"

namespace test {

// A world of its own for one test: a scratch directory, a home, temporary and XDG folders in it,
// and, for a test that runs as root in a private machine, a user database with two people, a
// console user, the superuser's home and the local library that can be what the test says. Nothing
// outside the scratch directory changes. Make it first thing in a test, before any thread; every
// test is a process of its own, so the environment is set once and never restored.
class Sandbox {
 public:
  // The people of the sandbox's user database. Both are ordinary users with homes in the sandbox,
  // with numbers that neither adduser(8) nor systemd gives to anybody. Whoever of the machine is
  // called so is hidden.
  static constexpr char kConsoleUser[] = "anna";
  static constexpr unsigned kConsoleUserId = 61001;
  static constexpr char kOtherUser[] = "bert";
  static constexpr unsigned kOtherUserId = 61002;

  // Makes the scratch directory, with HOME, TMPDIR and the XDG variables in it, and removes
  // DISPLAY, WAYLAND_DISPLAY and DBUS_SESSION_BUS_ADDRESS from the environment.
  Sandbox();
  // Removes the scratch directory with everything in it, immutable files too, also when the test
  // has given up root.
  ~Sandbox() = default;
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  // The scratch directory; absolute, without links in it, readable by everybody.
  const std::string& root() const { return root_; }
  // $HOME. After becomeUser and as the console user's, see below, that person's home.
  std::string home() const { return home_; }
  std::string homeOf(std::string_view user) const;
  // `relative` inside the scratch directory; nothing is made.
  std::string path(std::string_view relative) const;

  // Make a file with `contents`, or a directory, at `relative` with all folders above it; answer
  // the full path.
  std::string makeFile(std::string_view relative, std::string_view contents = {}) const;
  std::string makeDirectory(std::string_view relative) const;

  // Whether this process is root in a machine of its own, see PrivateMachine.h. A test that needs
  // that says
  //     if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  static bool canSimulateMachine();
  static constexpr char kNeedsRoot[] = "needs root and mounts, for a machine of its own";

  // Enters a private mount namespace with: a user database that begins with both people; /root,
  // /run/systemd and /usr/local/share of the sandbox's own; nobody at the console; HOME at /root.
  void simulateMachine();
  // Puts a person at the console, or nobody. After simulateMachine.
  void setConsoleUser(std::string_view user) const;
  void setNobodyAtConsole() const;
  // Gives up root for good and becomes that person, with HOME at that person's home. After
  // simulateMachine.
  void becomeUser(std::string_view user);
  // The words of a command line before those of a program that is to be run as that person.
  std::vector<std::string> commandThatBecomes(std::string_view user) const;
  // The number of one of the people; throws for others.
  static unsigned idOf(std::string_view user);
  // Mounts a fresh tmpfs of at most `bytes` at `relative`, made if missing, and answers its path.
  // After simulateMachine.
  std::string mountTmpfs(std::string_view relative, unsigned long bytes = 64UL << 20) const;

 private:
  void setHome(const std::string& home);
  void admitPeople() const;
  void overlay(const std::string& lower, const std::string& target) const;

  std::string root_;
  std::string home_;
  std::unique_ptr<Janitor> janitor_;
};

// The whole of a file; "" when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace test
