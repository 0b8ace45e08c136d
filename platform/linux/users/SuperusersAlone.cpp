#include "platform/linux/users/SuperusersAlone.h"

#include <fts.h>
#include <sys/stat.h>

#include <memory>

#include "platform/Path.h"
#include "platform/linux/users/PlaceOwner.h"

namespace platform {
namespace {

constexpr mode_t kOthersMayWrite = S_IWGRP | S_IWOTH;

struct CloseTree {
  void operator()(FTS* tree) const { ::fts_close(tree); }
};

bool isSuperusers(const struct stat& item) {
  if (item.st_uid != 0) return false;
  return S_ISLNK(item.st_mode) || (item.st_mode & kOthersMayWrite) == 0;
}

// In a folder with the sticky bit others cannot exchange what is the superuser's.
bool isSafeFolder(const std::string& path) {
  struct stat folder {};
  return ::stat(path.c_str(), &folder) == 0 &&
         (isSuperusers(folder) || (folder.st_uid == 0 && (folder.st_mode & S_ISVTX) != 0));
}

bool isTreeSafe(const std::string& path) {
  char* const paths[] = {const_cast<char*>(path.c_str()), nullptr};
  const std::unique_ptr<FTS, CloseTree> tree(
      ::fts_open(paths, FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, nullptr));
  if (tree == nullptr) return false;
  const FTSENT* last = nullptr;
  for (const FTSENT* item = nullptr; (item = ::fts_read(tree.get())) != nullptr; last = item) {
    const bool isKnown =
        item->fts_info != FTS_ERR && item->fts_info != FTS_DNR && item->fts_info != FTS_NS;
    if (!isKnown || !isSuperusers(*item->fts_statp)) return false;
  }
  return last != nullptr;
}

}  // namespace

bool isSuperusersAlone(const std::string& path) {
  const Reached reached = reach(path);
  if (reached.owner || !reached.item) return false;
  for (std::string folder = path::deletingLastComponent(path); folder != "/";
       folder = path::deletingLastComponent(folder)) {
    if (folder.empty() || !isSafeFolder(folder)) return false;
  }
  return isTreeSafe(path);
}

}  // namespace platform
