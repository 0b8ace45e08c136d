#include "platform/linux/crash/CrashFile.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace platform::crash {
namespace {

constexpr mode_t kForTheOwner = 0600;

// For the superuser, who may be writing into another person's home: nothing is made there that the
// person could not have made. Whether the process leaves a core dump is not changed by it. False
// when the person's rights could not be taken on.
bool actAsOwnerOf(int folder) noexcept {
  struct stat status {};
  if (::geteuid() != 0) return true;
  if (::fstat(folder, &status) != 0) return false;
  if (status.st_uid == 0) return true;
  const int dumpable = ::prctl(PR_GET_DUMPABLE);
  ::setfsgid(status.st_gid);
  ::setfsuid(status.st_uid);
  if (dumpable == 1) ::prctl(PR_SET_DUMPABLE, 1);
  // It answers what was before, also when it has changed nothing.
  return static_cast<uid_t>(::setfsuid(status.st_uid)) == status.st_uid;
}

}  // namespace

bool CrashFile::create(int folder) noexcept {
  folder_ = folder;
  if (!actAsOwnerOf(folder)) return false;
  hiddenName_.add(".crash-").addDecimal(::getpid());
  // An earlier process of this number may have left one half written.
  ::unlinkat(folder, hiddenName_.c_str(), 0);
  descriptor_ = ::openat(folder, hiddenName_.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kForTheOwner);
  whole_ = descriptor_ >= 0;
  return whole_;
}

void CrashFile::write(std::string_view text) noexcept {
  while (whole_ && !text.empty()) {
    const ssize_t count = ::write(descriptor_, text.data(), text.size());
    if (count >= 0) text.remove_prefix(static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) whole_ = false;
  }
}

void CrashFile::publish(std::string_view start, std::string_view end) noexcept {
  FixedText name;
  name.add(start).add(end);
  FixedText other;
  other.add(start).add("-").addDecimal(::getpid()).add(end);
  if (!whole_ || (!rename(name) && !rename(other))) discard();
}

bool CrashFile::rename(const FixedText& name) noexcept {
  if (::renameat2(folder_, hiddenName_.c_str(), folder_, name.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  // Some file systems do not know the flag.
  return errno == EINVAL && ::faccessat(folder_, name.c_str(), F_OK, 0) != 0 &&
         ::renameat(folder_, hiddenName_.c_str(), folder_, name.c_str()) == 0;
}

void CrashFile::discard() noexcept {
  if (descriptor_ >= 0) ::unlinkat(folder_, hiddenName_.c_str(), 0);
  whole_ = false;
}

}  // namespace platform::crash
