#include "archiver/SourceWalk.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <vector>

#include "archiver/Beneath.h"
#include "archiver/Interruption.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/DirectoryReader.h"

namespace archiver {
namespace {

using platform::Status;
using platform::statusFromErrno;

using Visitor = std::function<Status(const SourceItem&)>;

class SourceWalk {
 public:
  SourceWalk(const platform::Location& source, bool keepParent, const Visitor& visit)
      : root_(source.descriptor()),
        sourceName_(source.name),
        keepParent_(keepParent),
        visit_(visit) {}

  Status visit(const std::string& path) const;

 private:
  std::optional<SourceItem> describe(const std::string& path) const;
  std::string nameOf(const std::string& path) const;
  Status visitContents(const std::string& path) const;
  Status failure(const std::string& path) const {
    return statusFromErrno(errno, platform::pathOf(root_, path));
  }

  const int root_;
  const std::string& sourceName_;
  const bool keepParent_;
  const Visitor& visit_;
};

// None, with errno set, when the names could not all be read.
std::optional<std::vector<std::string>> sortedNames(const posix::FileDescriptor& folder) {
  std::vector<std::string> names;
  platform::DirectoryReader reader(folder.get());
  while (const auto entry = reader.next()) names.emplace_back(entry->name);
  errno = reader.error();
  if (errno != 0) return std::nullopt;
  std::ranges::sort(names);
  return names;
}

std::optional<SourceItem> SourceWalk::describe(const std::string& path) const {
  const posix::FileDescriptor item = openBeneath(root_, path, O_PATH | O_NOFOLLOW);
  SourceItem described{.path = path, .name = nameOf(path), .status = {}, .linkTarget = {}};
  if (!item || ::fstat(item.get(), &described.status) != 0) return std::nullopt;
  if (!S_ISLNK(described.status.st_mode)) return described;
  described.linkTarget.resize(PATH_MAX);
  const ssize_t length =
      ::readlinkat(item.get(), "", described.linkTarget.data(), described.linkTarget.size());
  if (length < 0) return std::nullopt;
  described.linkTarget.resize(static_cast<std::size_t>(length));
  return described;
}

// "" for the source itself when it is left out.
std::string SourceWalk::nameOf(const std::string& path) const {
  return keepParent_ ? path : path.substr(std::min(sourceName_.size() + 1, path.size()));
}

Status SourceWalk::visit(const std::string& path) const {
  if (isInterrupted()) return statusFromErrno(EINTR);
  std::optional<SourceItem> item = describe(path);
  if (!item) return failure(path);
  const bool folder = S_ISDIR(item->status.st_mode);
  if (item->name.empty() && !folder) item->name = path;
  if (!item->name.empty()) {
    if (Status status = visit_(*item); !status.ok()) return status;
  }
  return folder ? visitContents(path) : Status();
}

Status SourceWalk::visitContents(const std::string& path) const {
  posix::FileDescriptor folder = openBeneath(root_, path, O_RDONLY | O_DIRECTORY);
  const auto names = folder ? sortedNames(folder) : std::nullopt;
  if (!names) return failure(path);
  // Not one for each level.
  folder.reset();
  for (const std::string& name : *names) {
    if (Status status = visit(path + '/' + name); !status.ok()) return status;
  }
  return {};
}

}  // namespace

Status walkSource(const platform::Location& source, bool keepParent, const Visitor& visit) {
  return SourceWalk(source, keepParent, visit).visit(source.name);
}

}  // namespace archiver
