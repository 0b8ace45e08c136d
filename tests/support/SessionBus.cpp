#include "tests/support/SessionBus.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace test {
namespace {

constexpr char kDaemon[] = "/usr/bin/dbus-daemon";

}  // namespace

SessionBus::SessionBus(const Sandbox& sandbox, Admits admits)
    : folder_(sandbox.makeDirectory("tmp/session-bus")) {
  writeConfiguration(sandbox, admits);
  daemon_ = std::make_unique<ChildProgram>(std::vector<std::string>{
      kDaemon, "--nofork", "--print-address", "--config-file=" + folder_ + "/bus.conf"});
  if (!daemon_->waitForLine("unix:")) throw std::runtime_error("dbus-daemon does not start");
}

SessionBus::SessionBus(const Sandbox& sandbox, unsigned userId)
    : folder_(sandbox.makeDirectory("tmp/session-bus-" + std::to_string(userId))) {
  writeConfiguration(sandbox, Admits::owner);
  if (::chown(folder_.c_str(), userId, userId) != 0) throw std::runtime_error("chown " + folder_);
  daemon_ = std::make_unique<ChildProgram>(
      std::vector<std::string>{kDaemon, "--nofork", "--print-address",
                               "--config-file=" + folder_ + "/bus.conf"},
      userId);
  if (!daemon_->waitForLine("unix:")) throw std::runtime_error("dbus-daemon does not start");
}

void SessionBus::writeConfiguration(const Sandbox& sandbox, Admits admits) {
  const std::string guests = admits == Admits::everybody ? "<allow user=\"*\"/>" : "";
  socket_ = folder_ + "/bus";
  const std::string relative = folder_.substr(sandbox.root().size() + 1);
  sandbox.makeDirectory(relative + "/services");
  sandbox.makeFile(relative + "/bus.conf",
                   "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
                   "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                   "<busconfig><type>session</type><listen>unix:path=" +
                       socket_ + "</listen><auth>EXTERNAL</auth><servicedir>" + servicesFolder() +
                       "</servicedir><policy context=\"default\"><allow send_destination=\"*\" "
                       "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>" +
                       guests + "</policy></busconfig>\n");
}

void SessionBus::announce() const {
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address().c_str(), 1);
}

}  // namespace test
