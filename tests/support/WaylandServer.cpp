#include "tests/support/WaylandServer.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "tests/support/ToolOutput.h"
#include "tests/support/WaitFor.h"

namespace test {
namespace {

// The compositor refuses to be run by the superuser.
constexpr unsigned kPerson = Sandbox::kConsoleUserId;

// Says who it is once it serves its clients.
constexpr char kConfiguration[] =
    "xwayland disable\n"
    "exec echo \"ready $WAYLAND_DISPLAY $SWAYSOCK\"\n";

std::unique_ptr<ChildProgram> start(const std::vector<std::string>& command,
                                    const std::string& folder) {
  if (::geteuid() != 0) return std::make_unique<ChildProgram>(command);
  if (::chown(folder.c_str(), kPerson, kPerson) != 0) {
    throw std::system_error(errno, std::generic_category(), "chown " + folder);
  }
  return std::make_unique<ChildProgram>(command, kPerson);
}

}  // namespace

// static
bool WaylandServer::isAvailable() {
  return hasTool("sway") && hasTool("grim");
}

WaylandServer::WaylandServer(const Sandbox& sandbox) {
  const std::string folder = sandbox.makeDirectory("tmp/wayland");
  const std::string configuration = sandbox.makeFile("tmp/sway.conf", kConfiguration);
  const std::string run = "exec sway --config '" + configuration + "' 2>/dev/null";
  compositor_ =
      start({"/usr/bin/env", "XDG_RUNTIME_DIR=" + folder, "HOME=" + folder, "WLR_BACKENDS=headless",
             "WLR_RENDERER=pixman", "WLR_LIBINPUT_NO_DEVICES=1", "/bin/sh", "-c", run},
            folder);
  if (!compositor_->waitForLine("ready ")) throw std::runtime_error("sway does not start");
  std::istringstream words(compositor_->lines().back());
  std::string display;
  words >> display >> display >> control_;
  ::setenv("WAYLAND_DISPLAY", display.c_str(), 1);
  ::setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
}

WaylandServer::~WaylandServer() {
  ::unsetenv("WAYLAND_DISPLAY");
  ::unsetenv("XDG_RUNTIME_DIR");
}

void WaylandServer::kill() {
  compositor_.reset();
}

bool WaylandServer::matches(const std::string& criteria) const {
  return outputOf("swaymsg --socket '" + control_ + "' '[" + criteria + "] nop' && echo found")
             .find("found") != std::string::npos;
}

bool WaylandServer::isVisible(const std::string& title) const {
  return matches("title=\"^" + title + "$\"");
}

bool WaylandServer::isActive(const std::string& title) const {
  return matches("con_id=__focused__ title=\"^" + title + "$\"");
}

bool WaylandServer::waitForWindow(const std::string& title) const {
  return waitFor([&] { return isActive(title); });
}

void WaylandServer::close() const {
  outputOf("swaymsg --socket '" + control_ + "' kill");
}

std::string WaylandServer::pixels() const {
  return outputOf("grim -t ppm -");
}

}  // namespace test
