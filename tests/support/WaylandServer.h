#pragma once

#include <memory>
#include <string>

#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"

namespace test {

// A private Wayland compositor without a screen anybody sees, and without an X server beside it.
// $WAYLAND_DISPLAY and $XDG_RUNTIME_DIR name it while it lives. In a test that is run by root it is
// the console user's. Make it on the main thread after the Sandbox.
class WaylandServer {
 public:
  // Whether the programs that this needs are installed. A test says
  //     if (!WaylandServer::isAvailable()) GTEST_SKIP() << WaylandServer::kNeeds;
  static bool isAvailable();
  static constexpr char kNeeds[] = "needs sway and grim";

  explicit WaylandServer(const Sandbox& sandbox);
  ~WaylandServer();
  WaylandServer(const WaylandServer&) = delete;
  WaylandServer& operator=(const WaylandServer&) = delete;

  // Kills the compositor, as a crash of it would; its clients lose their connection.
  void kill();

  // What follows runs tools on the compositor and may be called by any thread.

  // Whether a window with exactly this title is on the screen now, and whether it has the focus.
  bool isVisible(const std::string& title) const;
  bool isActive(const std::string& title) const;
  // Waits up to ten seconds for a window that has the focus.
  bool waitForWindow(const std::string& title) const;
  // The wish to close the window that has the focus.
  void close() const;
  // The pixels of the whole screen, good for comparing.
  std::string pixels() const;

 private:
  bool matches(const std::string& criteria) const;

  std::unique_ptr<ChildProgram> compositor_;
  std::string control_;
};

}  // namespace test
