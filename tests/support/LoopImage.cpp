#include "tests/support/LoopImage.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "tests/support/MountPoint.h"

namespace test {
namespace {

void run(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t process = 0;
  int status = -1;
  if (::posix_spawn(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
      ::waitpid(process, &status, 0) != process || status != 0) {
    throw std::runtime_error(words[0] + " failed");
  }
}

}  // namespace

LoopImage::LoopImage(const Sandbox& sandbox, const std::string& relative)
    : image_(sandbox.makeFile("image-of-" + std::to_string(::getpid()))),
      mountPoint_(sandbox.makeDirectory(relative)) {
  std::filesystem::resize_file(image_, 1 << 20);
  run({"/usr/sbin/mke2fs", "-q", "-F", "-t", "ext4", "-O", "^has_journal", image_});
  run({"/usr/bin/mount", "-o", "loop", "--", image_, mountPoint_});
}

bool LoopImage::isMounted() const {
  return isMountPoint(mountPoint_);
}

bool LoopImage::hasLoopDevice() const {
  for (const auto& device : std::filesystem::directory_iterator("/sys/block")) {
    if (readFile(device.path() / "loop/backing_file") == image_ + "\n") return true;
  }
  return false;
}

}  // namespace test
