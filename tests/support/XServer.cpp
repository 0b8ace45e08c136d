#include "tests/support/XServer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/ToolOutput.h"
#include "tests/support/WaitFor.h"

namespace test {
namespace {

void check(bool ok, const std::string& what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

// Starts a program that is silent and dies with this thread; `keep` stays open in it.
pid_t start(const std::vector<const char*>& command, int keep = -1) {
  std::vector<char*> words;
  for (const char* word : command) words.push_back(const_cast<char*>(word));
  words.push_back(nullptr);
  const pid_t child = ::fork();
  check(child >= 0, "fork");
  if (child > 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int null = ::open("/dev/null", O_RDWR);
  for (const int end : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, end);
  if (keep >= 0) ::fcntl(keep, F_SETFD, 0);
  ::execvp(words.front(), words.data());
  ::_exit(127);
}

std::string firstLine(int descriptor) {
  std::string line;
  char letter = 0;
  while (::read(descriptor, &letter, 1) == 1 && letter != '\n') line += letter;
  return line;
}

}  // namespace

// static
bool XServer::isAvailable() {
  for (const char* tool : {"Xvfb", "openbox", "xdotool", "import"}) {
    if (!hasTool(tool)) return false;
  }
  return true;
}

XServer::XServer(WindowManager manager) {
  startServer();
  if (manager == WindowManager::openbox) startWindowManager();
}

XServer::~XServer() {
  end(manager_);
  end(server_);
  ::unsetenv("DISPLAY");
}

void XServer::kill() {
  end(server_);
}

void XServer::freeze() const {
  ::kill(server_, SIGSTOP);
}

void XServer::thaw() const {
  ::kill(server_, SIGCONT);
}

// The server chooses a free display and says which once it serves it.
void XServer::startServer() {
  int ends[2];
  check(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
  const std::string writeEnd = std::to_string(ends[1]);
  server_ = start({"Xvfb", "-displayfd", writeEnd.c_str(), "-screen", "0", "800x600x24",
                   "-nolisten", "tcp", "-ac", "-noreset"},
                  ends[1]);
  ::close(ends[1]);
  const std::string number = firstLine(ends[0]);
  ::close(ends[0]);
  if (number.empty()) throw std::runtime_error("Xvfb does not start");
  ::setenv("DISPLAY", (":" + number).c_str(), 1);
}

// Until it serves its events the window manager may overlook a window that wants to be shown; the
// command that it runs at its start comes after that.
void XServer::startWindowManager() {
  const std::string sign = std::filesystem::temp_directory_path() / "window-manager-is-ready";
  const std::string command = "touch '" + sign + "'";
  manager_ = start({"openbox", "--sm-disable", "--startup", command.c_str()});
  const bool ready = waitFor([&] { return std::filesystem::exists(sign); });
  if (!ready) throw std::runtime_error("openbox does not start");
}

void XServer::end(pid_t& process) const {
  if (process < 0) return;
  ::kill(process, SIGKILL);
  ::waitpid(process, nullptr, 0);
  process = -1;
}

std::optional<std::string> XServer::visibleWindow(const std::string& title) const {
  std::istringstream found(outputOf("xdotool search --onlyvisible --name '^" + title + "$'"));
  std::string window;
  if (!std::getline(found, window)) return std::nullopt;
  return window;
}

std::optional<std::string> XServer::activeWindow(const std::string& title) const {
  std::istringstream active(
      outputOf("xdotool getactivewindow && xdotool getactivewindow getwindowname"));
  std::string window;
  std::string name;
  if (!std::getline(active, window) || !std::getline(active, name) || name != title) {
    return std::nullopt;
  }
  return window;
}

std::optional<std::string> XServer::waitForWindow(const std::string& title) const {
  std::optional<std::string> window;
  waitFor([&] {
    window = manager_ < 0 ? visibleWindow(title) : activeWindow(title);
    return window.has_value();
  });
  return window;
}

std::string XServer::sizeOf(const std::string& window) const {
  std::istringstream geometry(outputOf("xdotool getwindowgeometry --shell " + window));
  std::string size;
  for (std::string line; std::getline(geometry, line);) {
    if (line.starts_with("WIDTH=")) size = line.substr(6) + "x";
    if (line.starts_with("HEIGHT=")) size += line.substr(7);
  }
  return size;
}

void XServer::pressKey(const std::string& key) const {
  outputOf("xdotool key " + key);
}

void XServer::click(const std::string& window, int x, int y) const {
  outputOf("xdotool mousemove --window " + window + " " + std::to_string(x) + " " +
           std::to_string(y) + " click 1");
}

std::string XServer::pixels() const {
  return outputOf("import -silent -window root rgb:-");
}

void XServer::takePicture(const std::string& path) const {
  outputOf("import -silent -window root '" + path + "'");
}

}  // namespace test
