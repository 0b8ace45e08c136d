#include "tests/support/LoginManager.h"

#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace test {
namespace {

const char* nameOf(LoginManager::Behaviour behaviour) {
  switch (behaviour) {
    case LoginManager::Behaviour::grants:
      return "grant";
    case LoginManager::Behaviour::grantsOnlyDelays:
      return "only-delay";
    case LoginManager::Behaviour::refuses:
      return "refuse";
    case LoginManager::Behaviour::hangs:
      return "hang";
    case LoginManager::Behaviour::answersNonsense:
      return "no-descriptor";
    case LoginManager::Behaviour::absent:
      break;
  }
  throw std::invalid_argument("an absent login manager does nothing");
}

// Everything that looks for the system bus finds this one.
void takeTheSystemBusPlace(const Sandbox& sandbox, const SessionBus& bus) {
  const std::string folder = sandbox.makeDirectory("run/dbus");
  std::filesystem::create_symlink(bus.address().substr(sizeof "unix:path=" - 1),
                                  folder + "/system_bus_socket");
  if (::mount(folder.c_str(), "/run/dbus", nullptr, MS_BIND, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "bind /run/dbus");
  }
}

}  // namespace

LoginManager::LoginManager(const Sandbox& sandbox, Behaviour behaviour) {
  bus_.emplace(sandbox, SessionBus::Admits::everybody);
  takeTheSystemBusPlace(sandbox, *bus_);
  if (behaviour == Behaviour::absent) return;
  manager_.emplace(
      std::vector<std::string>{QV_TEST_PROGRAMS "/LoginManagerHost", nameOf(behaviour)});
  if (!manager_->waitForLine("(ready)")) {
    throw std::runtime_error("the login manager does not start");
  }
}

std::vector<std::string> LoginManager::requests() {
  std::vector<std::string> requests;
  if (!manager_) return requests;
  std::ranges::copy_if(manager_->lines(), std::back_inserter(requests),
                       [](const std::string& line) { return !line.starts_with('('); });
  return requests;
}

std::size_t LoginManager::released() {
  if (!manager_) return 0;
  return static_cast<std::size_t>(std::ranges::count(manager_->lines(), "(released)"));
}

}  // namespace test
