#include "tests/support/Janitor.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

namespace test {
namespace fs = std::filesystem;
namespace {

void clearImmutableFlag(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return;
  int flags = 0;
  if (::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0) {
    flags &= ~FS_IMMUTABLE_FL;
    ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags);
  }
  ::close(descriptor);
}

// Waits until the last end that the test holds is closed.
void waitForEnd(int pipe) {
  char byte = 0;
  while (::read(pipe, &byte, 1) < 0 && errno == EINTR) {
  }
}

[[noreturn]] void runAsChild(int pipe, const std::string& directory) {
  // Neither the terminal's interrupt nor a reader of the test's output concerns the janitor.
  ::setsid();
  for (const int output : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(output);
  waitForEnd(pipe);
  removeTree(directory);
  ::_exit(0);
}

}  // namespace

void removeTree(const std::string& root) {
  std::error_code ignored;
  if (fs::remove_all(root, ignored); !ignored) return;
  for (const auto& entry : fs::recursive_directory_iterator(
           root, fs::directory_options::skip_permission_denied, ignored)) {
    std::error_code unreadable;
    if (!entry.is_symlink(unreadable)) clearImmutableFlag(entry.path());
  }
  fs::remove_all(root, ignored);
}

Janitor::Janitor(const std::string& directory) : owner_(::getpid()) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  child_ = ::fork();
  if (child_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child_ == 0) {
    ::close(ends[1]);
    runAsChild(ends[0], directory);
  }
  ::close(ends[0]);
  pipe_ = ends[1];
}

Janitor::~Janitor() {
  // A copy of the test, such as a death test's, is not the end of the test.
  if (::getpid() != owner_) return;
  ::close(pipe_);
  ::waitpid(child_, nullptr, 0);
}

}  // namespace test
