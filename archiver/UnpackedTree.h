#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "archiver/Inspection.h"

namespace archiver {

// The permissions that a new item gets by the process's umask. Not thread-safe.
mode_t usualMode(mode_t wanted);

// Makes an archive's items in a folder that nobody else may enter meanwhile. No item is made
// through a link, none replaces another, nothing gets the right to run as somebody else, everything
// belongs to the caller.
class UnpackedTree {
 public:
  // `root` is the open folder; both must outlive this.
  UnpackedTree(const ZipReader& archive, int root, std::uint64_t itemLimit);

  platform::Status make(const Entry& entry);
  // What has to wait for the last item: fails when one of the links leads out of the folder by way
  // of the others, then gives the folders their permissions and times.
  platform::Status finish();

 private:
  platform::Status makeFolder(const Entry& entry);
  platform::Status makeFile(const Entry& entry);
  platform::Status makeLink(const Entry& entry);
  platform::Status linkTarget(const Entry& entry, std::string& target) const;
  posix::FileDescriptor openFolder(const std::string& path);
  bool makeFolderAt(const std::string& path);
  bool countItem();
  // `wantedMode` is for an item whose permissions the archive does not say.
  static bool describe(const posix::FileDescriptor& item, const Entry& entry, mode_t wantedMode);

  const ZipReader& archive_;
  const int root_;
  std::uint64_t itemsLeft_;
  // By path, what is in a folder before it: so it may still be entered when its turn comes.
  std::map<std::string, Entry, std::greater<>> folders_;
  std::vector<std::string> links_;
};

}  // namespace archiver
