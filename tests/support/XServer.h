#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace test {

// A private X server without a screen anybody sees, and optionally a window manager, which title
// bars and the keyboard's focus need. $DISPLAY names the server while it lives. Make it on the main
// thread after the Sandbox. It ends what it has started, and that ends with the test in any case.
class XServer {
 public:
  enum class WindowManager { none, openbox };

  // Whether the programs that this needs are installed. A test says
  //     if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
  static bool isAvailable();
  static constexpr char kNeeds[] = "needs Xvfb, openbox, xdotool and ImageMagick's import";

  explicit XServer(WindowManager manager = WindowManager::none);
  ~XServer();
  XServer(const XServer&) = delete;
  XServer& operator=(const XServer&) = delete;

  // Kills the server, as a crash of it would; its clients lose their connection.
  void kill();
  // Stops the server, as a hang of it would, and has it go on. What is asked of it meanwhile waits.
  void freeze() const;
  void thaw() const;

  // What follows runs tools on the server and may be called by any thread.

  // The id of the window with exactly this title that is on the screen now, or none.
  std::optional<std::string> visibleWindow(const std::string& title) const;
  // The same, waiting for it up to ten seconds; with a window manager also until it is the one that
  // has the keyboard's focus.
  std::optional<std::string> waitForWindow(const std::string& title) const;
  // The window's size as "<width>x<height>".
  std::string sizeOf(const std::string& window) const;
  // Presses a key, named as in "Escape", for whoever has the keyboard's focus;
  // openbox takes alt+F4 as the wish to close the window.
  void pressKey(const std::string& key) const;
  // Clicks at a point of the window, given in pixels from its upper left corner.
  void click(const std::string& window, int x, int y) const;
  // The pixels of the whole screen, good for comparing.
  std::string pixels() const;
  // Writes the picture of the whole screen to a file in the format of the name's extension.
  void takePicture(const std::string& path) const;

 private:
  std::optional<std::string> activeWindow(const std::string& title) const;
  void startServer();
  void startWindowManager();
  void end(pid_t& process) const;

  pid_t server_ = -1;
  pid_t manager_ = -1;
};

}  // namespace test
