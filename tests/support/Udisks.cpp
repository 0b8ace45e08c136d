#include "tests/support/Udisks.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "tests/support/MountPoint.h"
#include "tests/support/WaitFor.h"

namespace test {
namespace fs = std::filesystem;
namespace {

constexpr char kDeviceManager[] = "/lib/systemd/systemd-udevd";
constexpr char kDaemon[] = "/usr/libexec/udisks2/udisksd";
constexpr char kControl[] = "/usr/bin/udisksctl";

void check(bool ok, const std::string& what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

void bindOver(const std::string& source, const std::string& target) {
  check(::mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
        "bind " + source + " over " + target);
}

void makeNode(const std::string& path, mode_t mode, dev_t device) {
  check(::mknod(path.c_str(), mode, device) == 0, "mknod " + path);
  check(::chmod(path.c_str(), mode & ~static_cast<mode_t>(S_IFMT)) == 0, "chmod " + path);
}

void coverDevices(const Sandbox& sandbox) {
  constexpr unsigned kLoopMajor = 7;
  constexpr unsigned kLoopDevices = 256;
  const std::string devices = sandbox.mountTmpfs("dev");
  for (const std::string name :
       {"null", "zero", "full", "random", "urandom", "tty", "loop-control"}) {
    struct stat node = {};
    check(::stat(("/dev/" + name).c_str(), &node) == 0, "stat /dev/" + name);
    makeNode(devices + "/" + name, node.st_mode, node.st_rdev);
  }
  for (unsigned i = 0; i < kLoopDevices; ++i) {
    makeNode(devices + "/loop" + std::to_string(i), S_IFBLK | 0660, ::makedev(kLoopMajor, i));
  }
  for (const std::string name : {"pts", "shm"}) {
    bindOver("/dev/" + name, sandbox.makeDirectory("dev/" + name));
  }
  fs::create_symlink("/proc/self/fd", devices + "/fd");
  bindOver(devices, "/dev");
}

// The folders that the simulated machine has of its own in /run stay.
void coverRun(const Sandbox& sandbox) {
  const std::string run = sandbox.mountTmpfs("run-of-machine");
  sandbox.makeDirectory("run-of-machine/dbus");
  bindOver(sandbox.path("run/systemd"), sandbox.makeDirectory("run-of-machine/systemd"));
  bindOver(run, "/run");
}

void allowAttaching(const Sandbox& sandbox) {
  sandbox.makeFile("etc/polkit-1/rules.d/10-image.rules",
                   "polkit.addRule(function(action, subject) {\n"
                   "  if (/^org\\.freedesktop\\.udisks2\\.(loop-setup|filesystem-mount)$/\n"
                   "          .test(action.id) &&\n"
                   "      subject.user == \"" +
                       std::string(Sandbox::kConsoleUser) +
                       "\") return polkit.Result.YES;\n"
                       "});\n");
}

// What other programs do with loop devices meanwhile is not touched.
void coverRules(const Sandbox& sandbox) {
  sandbox.makeFile("rules/60-image.rules", "SUBSYSTEM==\"block\", ATTRS{loop/backing_file}==\"" +
                                               sandbox.root() +
                                               "/*\", IMPORT{builtin}=\"blkid\"\n");
  for (const char* folder : {"/usr/lib/udev/rules.d", "/etc/udev/rules.d"}) {
    bindOver(sandbox.path("rules"), folder);
  }
}

// Whether the console user's udisksctl does it, and the last line that it prints.
bool succeeds(const std::string& arguments, std::string& line) {
  ChildProgram program(
      {"/bin/sh", "-c", std::string(kControl) + " " + arguments + " --no-user-interaction 2>&1"},
      Sandbox::kConsoleUserId);
  const std::optional<int> status = program.waitForEnd();
  line = program.lines().empty() ? "" : program.lines().back();
  return status == 0;
}

// Tries again, because others may be faster at a free loop device, and the daemon hears of its own
// one's file system only later.
std::string control(const std::string& arguments) {
  std::string line;
  if (waitFor([&] { return succeeds(arguments, line); })) return line;
  throw std::runtime_error("udisksctl " + arguments + ": " + line);
}

std::string behind(const std::string& mark, const std::string& line) {
  const std::size_t place = line.rfind(mark);
  if (place == std::string::npos) throw std::runtime_error("udisksctl printed \"" + line + "\"");
  return line.substr(place + mark.size());
}

// The first partition on a loop device, made known as the kernel's own /dev would have it.
std::string firstPartitionOf(const std::string& loopDevice) {
  const std::string name = fs::path(loopDevice).filename().string() + "p1";
  const fs::path partition = fs::path("/sys/class/block") / name;
  // A kernel may know no partition tables.
  if (!fs::exists(partition) &&
      std::system(("addpart " + loopDevice + " 1 2048 49152").c_str()) != 0) {
    throw std::runtime_error("no partition can be added to " + loopDevice);
  }
  unsigned major = 0;
  unsigned minor = 0;
  char colon = 0;
  if (!waitFor([&] { return fs::exists(partition / "dev"); }) ||
      !(std::istringstream(readFile(partition / "dev")) >> major >> colon >> minor)) {
    throw std::runtime_error("the kernel finds no partition on " + loopDevice);
  }
  makeNode("/dev/" + name, S_IFBLK | 0660, ::makedev(major, minor));
  std::ofstream(partition / "uevent") << "change";
  return "/dev/" + name;
}

std::vector<std::string> loopDevicesOf(const std::string& image) {
  std::vector<std::string> names;
  for (const auto& device : fs::directory_iterator("/sys/block")) {
    if (readFile(device.path() / "loop/backing_file") == image + "\n") {
      names.push_back(device.path().filename());
    }
  }
  return names;
}

}  // namespace

Udisks::Udisks(const Sandbox& sandbox) {
  for (const char* program : {kDeviceManager, kDaemon, kControl}) {
    if (!fs::exists(program)) throw std::runtime_error(std::string("needs ") + program);
  }
  check(::unshare(CLONE_NEWNET) == 0, "unshare the network");
  coverDevices(sandbox);
  coverRun(sandbox);
  coverRules(sandbox);
  bindOver(sandbox.mountTmpfs("media"), "/media");
  allowAttaching(sandbox);
  polkit_.emplace(sandbox);
  deviceManager_.emplace(std::vector<std::string>{kDeviceManager});
  if (!waitFor([] { return fs::exists("/run/udev/control"); })) {
    throw std::runtime_error("udevd does not start here");
  }
  daemon_.emplace(std::vector<std::string>{kDaemon});
  if (!waitFor([] { return Polkit::isOnTheBus("org.freedesktop.UDisks2"); })) {
    throw std::runtime_error("udisksd does not start here");
  }
}

Udisks::~Udisks() {
  if (isMounted()) ::umount2(mountPoint_.c_str(), MNT_DETACH);
  for (const std::string& name : loopDevicesOf(image_)) {
    const int device = ::open(("/dev/" + name).c_str(), O_RDONLY | O_CLOEXEC);
    ::ioctl(device, LOOP_CLR_FD, 0);
    ::close(device);
  }
}

void Udisks::attach(const std::string& image, On on) {
  image_ = image;
  std::string loopDevice = behind(" as ", control("loop-setup --file " + image));
  loopDevice.pop_back();  // the full stop
  const std::string device = on == On::device ? loopDevice : firstPartitionOf(loopDevice);
  mountPoint_ = behind(" at ", control("mount --block-device " + device));
}

bool Udisks::isMounted() const {
  return !mountPoint_.empty() && isMountPoint(mountPoint_);
}

bool Udisks::hasLoopDevice() const {
  return !loopDevicesOf(image_).empty();
}

}  // namespace test
