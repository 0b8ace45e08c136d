#include "tests/support/Sandbox.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/PrivateMachine.h"

namespace test {
namespace fs = std::filesystem;
namespace {

void check(bool ok, const std::string& what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

void writeFile(const std::string& path, std::string_view contents) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << contents;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

std::string nameIn(const std::string& line) {
  return line.substr(0, line.find(':'));
}

// The third field.
std::string numberIn(const std::string& line) {
  std::istringstream fields(line);
  std::string number;
  for (int field = 0; field < 3; ++field) std::getline(fields, number, ':');
  return number;
}

// Puts lines of `people`, whose fields are as in passwd(5), before those of everybody else; who has
// the name or the number of one of them is left out.
void putFirst(const std::string& database, const std::vector<std::string>& people) {
  std::string all;
  for (const std::string& person : people) all += person + '\n';
  std::istringstream others(readFile(database));
  for (std::string other; std::getline(others, other);) {
    const bool isNamesake = std::ranges::any_of(people, [&](const std::string& person) {
      return nameIn(other) == nameIn(person) || numberIn(other) == numberIn(person);
    });
    if (!isNamesake) all += other + '\n';
  }
  writeFile(database, all);
}

void mountOver(const std::string& source, const std::string& target) {
  check(::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0,
        "bind " + source + " over " + target);
}

}  // namespace

Sandbox::Sandbox() {
  std::string name = (fs::canonical(fs::temp_directory_path()) / "qv-test-XXXXXX").string();
  check(::mkdtemp(name.data()) != nullptr, "mkdtemp " + name);
  root_ = name;
  janitor_ = std::make_unique<Janitor>(root_);
  check(::chmod(root_.c_str(), 0755) == 0, "chmod " + root_);
  ::setenv("TMPDIR", makeDirectory("tmp").c_str(), 1);
  check(::chmod(path("tmp").c_str(), 01777) == 0, "chmod tmp");
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"}) {
    ::unsetenv(variable);
  }
  setHome(makeDirectory("home/tester"));
}

void Sandbox::setHome(const std::string& home) {
  home_ = home;
  ::setenv("HOME", home.c_str(), 1);
  ::setenv("XDG_CACHE_HOME", (home + "/.cache").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
}

std::string Sandbox::homeOf(std::string_view user) const {
  return path("home/" + std::string(user));
}

std::string Sandbox::path(std::string_view relative) const {
  return root_ + "/" + std::string(relative);
}

std::string Sandbox::makeFile(std::string_view relative, std::string_view contents) const {
  const std::string full = path(relative);
  fs::create_directories(fs::path(full).parent_path());
  writeFile(full, contents);
  return full;
}

std::string Sandbox::makeDirectory(std::string_view relative) const {
  std::string full = path(relative);
  fs::create_directories(full);
  return full;
}

// static
bool Sandbox::canSimulateMachine() {
  return ::geteuid() == 0 && PrivateMachine::isEntered();
}

void Sandbox::simulateMachine() {
  check(::unshare(CLONE_NEWNS) == 0, "unshare");
  check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");

  overlay("/etc", path("etc"));
  admitPeople();
  mountOver(path("etc"), "/etc");
  mountOver(makeDirectory("root"), "/root");
  mountOver(makeDirectory("run/systemd"), "/run/systemd");
  mountOver(makeDirectory("usr-local-share"), "/usr/local/share");
  // That of an installed helper.
  fs::remove_all("/var/lib/quorvale");
  setHome("/root");
}

void Sandbox::admitPeople() const {
  std::vector<std::string> people;
  std::vector<std::string> groups;
  for (const char* user : {kConsoleUser, kOtherUser}) {
    const std::string id = std::to_string(idOf(user));
    const std::string name = user;
    people.push_back(name + ":x:" + id + ":" + id + "::" + homeOf(user) + ":/bin/sh");
    groups.push_back(name + ":x:" + id + ":");
    check(::chown(makeDirectory("home/" + name).c_str(), idOf(user), idOf(user)) == 0, "chown");
  }
  putFirst(path("etc/passwd"), people);
  putFirst(path("etc/group"), groups);
}

// Shows at `target` what `lower` holds; changes stay in the scratch directory.
void Sandbox::overlay(const std::string& lower, const std::string& target) const {
  const std::string scratch = "overlay" + lower;
  fs::create_directories(target);
  const std::string options = "lowerdir=" + lower +
                              ",upperdir=" + makeDirectory(scratch + "/upper") +
                              ",workdir=" + makeDirectory(scratch + "/work");
  check(::mount("overlay", target.c_str(), "overlay", 0, options.c_str()) == 0, "overlay " + lower);
}

void Sandbox::setConsoleUser(std::string_view user) const {
  makeDirectory("run/systemd/seats");
  writeFile(path("run/systemd/seats/seat0"),
            "IS_VTCONSOLE=1\nACTIVE=c1\nACTIVE_UID=" + std::to_string(idOf(user)) + "\n");
}

void Sandbox::setNobodyAtConsole() const {
  fs::remove(path("run/systemd/seats/seat0"));
}

void Sandbox::becomeUser(std::string_view user) {
  const unsigned id = idOf(user);
  check(::setgroups(0, nullptr) == 0, "setgroups");
  check(::setresgid(id, id, id) == 0, "setresgid");
  check(::setresuid(id, id, id) == 0, "setresuid");
  setHome(homeOf(user));
}

std::vector<std::string> Sandbox::commandThatBecomes(std::string_view user) const {
  const std::string id = std::to_string(idOf(user));
  const std::string home = homeOf(user);
  return {"/usr/bin/setpriv",
          "--reuid=" + id,
          "--regid=" + id,
          "--clear-groups",
          "/usr/bin/env",
          "HOME=" + home,
          "XDG_CACHE_HOME=" + home + "/.cache",
          "XDG_CONFIG_HOME=" + home + "/.config",
          "XDG_DATA_HOME=" + home + "/.local/share"};
}

// static
unsigned Sandbox::idOf(std::string_view user) {
  if (user == kConsoleUser) return kConsoleUserId;
  if (user == kOtherUser) return kOtherUserId;
  throw std::invalid_argument("the sandbox knows nobody called " + std::string(user));
}

std::string Sandbox::mountTmpfs(std::string_view relative, unsigned long bytes) const {
  std::string target = makeDirectory(relative);
  const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
  check(::mount("tmpfs", target.c_str(), "tmpfs", 0, options.c_str()) == 0, "mount " + target);
  return target;
}

std::string readFile(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace test
