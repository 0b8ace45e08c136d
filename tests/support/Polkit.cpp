#include "tests/support/Polkit.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/WaitFor.h"

namespace test {
namespace fs = std::filesystem;
namespace {

// crypt(3) of Polkit::kPassword.
constexpr char kPasswordHash[] =
    "$6$qvtest$uH.s1dhdU7XZsM6a.xYn4Q6JAe42nxywU37/feNcRGX0/mKmrk2FZuNpS.SUJq/XoRxgdT8Lvnxohp1u3xbI"
    "h/";
constexpr std::chrono::seconds kStartLimit(30);
constexpr char kBusSocket[] = "/run/dbus/system_bus_socket";

void check(bool ok, const std::string& what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

void appendLine(const std::string& path, const std::string& line) {
  std::ofstream file(path, std::ios::app);
  file << line << '\n';
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

// Puts a folder of the sandbox's own over a folder of the machine; what was there stays to be seen.
void coverWithOverlay(const Sandbox& sandbox, const std::string& folder, const std::string& name) {
  const std::string options = "lowerdir=" + folder +
                              ",upperdir=" + sandbox.makeDirectory(name + "/upper") +
                              ",workdir=" + sandbox.makeDirectory(name + "/work");
  check(::mount("overlay", folder.c_str(), "overlay", 0, options.c_str()) == 0,
        "overlay " + folder);
}

void givePasswords(const Sandbox& sandbox) {
  for (const char* user : {Sandbox::kConsoleUser, Sandbox::kOtherUser}) {
    appendLine(sandbox.path("etc/shadow"),
               std::string(user) + ":" + kPasswordHash + ":20000:0:99999:7:::");
  }
}

// Debian's authority takes the members of this group for administrators. With none of them it takes
// root, who has no password that anybody knows.
void makeAdministrator(const Sandbox& sandbox, const std::string& members) {
  const std::string path = sandbox.path("etc/group");
  std::ifstream in(path);
  std::string text;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("sudo:")) line = "sudo:x:27:" + members;
    text += line + '\n';
  }
  in.close();
  std::ofstream(path, std::ios::trunc) << text;
}

pid_t start(const std::vector<const char*>& words) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  const int nowhere = ::open("/dev/null", O_RDWR);
  for (const int end : {0, 1, 2}) ::dup2(nowhere, end);
  std::vector<char*> arguments;
  for (const char* word : words) arguments.push_back(const_cast<char*>(word));
  arguments.push_back(nullptr);
  ::execv(arguments[0], arguments.data());
  ::_exit(127);
}

bool authorityIsOnTheBus() {
  return Polkit::isOnTheBus("org.freedesktop.PolicyKit1");
}

// -1 when it does not start.
pid_t startAuthority() {
  const pid_t authority = start({"/usr/lib/polkit-1/polkitd", "--no-debug"});
  return waitFor(authorityIsOnTheBus, kStartLimit) ? authority : -1;
}

// What the custodian does: starts the daemons, tells the authority's process id, starts a missing
// authority when it gets a byte, and ends them when nobody holds the other end of the lifeline any
// more.
[[noreturn]] void keepDaemons(int lifeline, bool withAuthority) {
  // Nothing of the test's stays open here, or who waits for its end would wait for this one's too.
  lifeline = ::dup2(lifeline, 3);
  ::close_range(4, ~0U, 0);
  const pid_t bus =
      start({"/usr/bin/dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"});
  pid_t authority = 0;
  if (waitFor([] { return fs::exists(kBusSocket); }, kStartLimit) && withAuthority) {
    authority = startAuthority();
  }
  char order = 0;
  while (::write(lifeline, &authority, sizeof authority) == sizeof authority &&
         ::read(lifeline, &order, 1) == 1) {
    authority = startAuthority();
  }
  for (const pid_t daemon : {authority, bus}) {
    if (daemon > 0) ::kill(daemon, SIGKILL);
  }
  ::_exit(0);
}

}  // namespace

Polkit::Polkit(const Sandbox& sandbox, Without without) {
  check(::mount(sandbox.makeDirectory("run/dbus").c_str(), "/run/dbus", nullptr, MS_BIND,
                nullptr) == 0,
        "bind /run/dbus");
  check(::chmod("/run/dbus", 0755) == 0, "chmod /run/dbus");
  coverWithOverlay(sandbox, "/usr/share/polkit-1/actions", "actions");
  coverWithOverlay(sandbox, "/usr/libexec", "libexec");
  fs::copy(QV_TEST_POLICY, "/usr/share/polkit-1/actions");
  if (without != Without::elevator) installElevator();
  givePasswords(sandbox);
  makeAdministrator(sandbox, without == Without::administrator ? "" : kAdministrator);
  if (without == Without::bus) return;
  if (without == Without::authority) {
    // Or the bus would start it when it is spoken to.
    constexpr char kActivation[] =
        "/usr/share/dbus-1/system-services/org.freedesktop.PolicyKit1.service";
    check(::mount("/dev/null", kActivation, nullptr, MS_BIND, nullptr) == 0, "hide the activation");
  }

  int ends[2];
  check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
  custodian_ = ::fork();
  check(custodian_ >= 0, "fork");
  if (custodian_ == 0) {
    ::close(ends[0]);
    keepDaemons(ends[1], without != Without::authority);
  }
  ::close(ends[1]);
  lifeline_ = ends[0];
  hearOfAuthority();
}

void Polkit::installAuthority() {
  check(::write(lifeline_, "a", 1) == 1, "tell the custodian");
  hearOfAuthority();
}

void Polkit::hearOfAuthority() {
  const bool told = ::read(lifeline_, &authority_, sizeof authority_) == sizeof authority_;
  if (told && authority_ >= 0) return;
  endDaemons();
  throw std::runtime_error("the authority did not start");
}

void Polkit::installElevator() const {
  const fs::path installed = QV_TEST_ELEVATOR_PATH;
  fs::create_directories(installed.parent_path());
  fs::copy_file(QV_TEST_ELEVATOR, installed);
  check(::chmod(installed.c_str(), 0755) == 0, "chmod " + installed.string());
}

Polkit::~Polkit() {
  endDaemons();
}

void Polkit::endDaemons() {
  if (custodian_ <= 0) return;
  ::close(lifeline_);
  ::waitpid(custodian_, nullptr, 0);
  custodian_ = 0;
}

// static
bool Polkit::isOnTheBus(const std::string& name) {
  const std::string question =
      "dbus-send --system --print-reply --dest=org.freedesktop.DBus / "
      "org.freedesktop.DBus.GetNameOwner string:" +
      name + " >/dev/null 2>&1";
  return std::system(question.c_str()) == 0;
}

void Polkit::hang() const {
  ::kill(authority_, SIGSTOP);
}

void Polkit::goOn() const {
  ::kill(authority_, SIGCONT);
}

pid_t startAs(Sandbox& sandbox, std::string_view user, const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  check(child >= 0, "fork");
  if (child > 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::setsid();
  try {
    sandbox.becomeUser(user);
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << error.what();
  }
  std::fflush(nullptr);
  ::_exit(testing::Test::HasFailure() ? 1 : 0);
}

bool passed(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool passesAs(Sandbox& sandbox, std::string_view user, const std::function<void()>& body) {
  return passed(startAs(sandbox, user, body));
}

}  // namespace test
