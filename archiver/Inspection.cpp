#include "archiver/Inspection.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <unordered_set>

#include "archiver/Interruption.h"
#include "platform/linux/SystemError.h"

namespace archiver {
namespace {

using platform::Status;

constexpr std::uint64_t kLargestRatio = 1032;

std::uint64_t product(std::uint64_t one, std::uint64_t other) {
  std::uint64_t result = 0;
  const bool overflow = __builtin_mul_overflow(one, other, &result);
  return overflow ? std::numeric_limits<std::uint64_t>::max() : result;
}

}  // namespace

Bounds boundsFor(int folder, std::uint64_t archiveSize) {
  struct statvfs system {};
  if (::fstatvfs(folder, &system) != 0) return {};
  // A file system that makes inodes as it needs them says that it has none.
  const std::uint64_t items = system.f_files == 0 ? system.f_bavail : system.f_favail;
  return {.bytes = std::min(product(system.f_bavail, system.f_frsize),
                            product(archiveSize, kLargestRatio)),
          .items = items};
}

Status inspect(const ZipReader& archive, const Bounds& bounds, std::vector<Entry>& entries) {
  std::unordered_set<std::string> paths;
  std::uint64_t rest = bounds.bytes;
  for (zip_uint64_t index = 0; index < archive.count(); ++index) {
    if (isInterrupted()) return platform::statusFromErrno(EINTR);
    Entry entry;
    if (Status status = archive.describe(index, entry); !status.ok()) return status;
    if (!paths.insert(entry.path).second) {
      return Status::failure(EEXIST, "refused \"" + entry.path + "\": it is there twice");
    }
    if (entry.size > rest) {
      return Status::failure(EFBIG, "refused: it would become too large for its size or the disk");
    }
    rest -= entry.size;
    entries.push_back(std::move(entry));
  }
  return {};
}

}  // namespace archiver
