#include "tests/support/CaseInsensitiveDisk.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "tests/support/WaitFor.h"

namespace test {
namespace {

constexpr char kMake[] = "/usr/sbin/mkntfs";
constexpr char kServer[] = "/usr/bin/lowntfs-3g";
constexpr std::uintmax_t kSize = 4 << 20;

std::string makeImage(const Sandbox& sandbox) {
  std::string image = sandbox.makeFile("case-insensitive-image");
  std::filesystem::resize_file(image, kSize);
  const std::string command = std::string(kMake) + " -q -F -Q " + image + " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) throw std::runtime_error("mkntfs failed");
  return image;
}

dev_t deviceOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

}  // namespace

bool CaseInsensitiveDisk::isAvailable() {
  return ::access(kMake, X_OK) == 0 && ::access(kServer, X_OK) == 0 &&
         ::access("/dev/fuse", R_OK | W_OK) == 0;
}

CaseInsensitiveDisk::CaseInsensitiveDisk(const Sandbox& sandbox, const std::string& relative)
    : mountPoint_(sandbox.makeDirectory(relative)) {
  const dev_t before = deviceOf(mountPoint_);
  const std::vector<std::string> command = {kServer, "-o", "no_detach,ignore_case",
                                            makeImage(sandbox), mountPoint_};
  server_.emplace(command);
  if (!waitFor([&] { return deviceOf(mountPoint_) != before; })) {
    throw std::runtime_error("the disk was not mounted");
  }
}

CaseInsensitiveDisk::~CaseInsensitiveDisk() {
  ::umount2(mountPoint_.c_str(), MNT_DETACH);
}

}  // namespace test
