#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Status.h"

// The file system. Paths are absolute, in the bytes that the file system has. Every function may be
// called from any thread, blocks for as long as the disk takes, never throws but for lack of
// memory, and refuses an empty path.
namespace platform::file_system {

enum class Kind { regular, directory, symbolicLink, other };

struct Attributes {
  Kind kind = Kind::other;
  // Bytes of a regular file; of another item what the system reports.
  std::uint64_t size = 0;
  // Permission bits, 0 to 07777.
  std::uint32_t permissions = 0;
  std::uint32_t ownerId = 0;
  std::uint32_t groupId = 0;
  // The first or last date of the type where the file system's is beyond.
  std::chrono::system_clock::time_point modificationDate;
  // The immutable flag; false where the file system has none.
  bool immutable = false;
};

// Whether an item exists; a symbolic link counts by its target.
bool exists(const std::string& path);
// Whether a directory is there; a symbolic link counts by its target.
bool isDirectory(const std::string& path);
// Whether the calling user may execute (of a directory: enter) or write the item. Asks the system
// for the real user, as access(2) does.
bool isExecutable(const std::string& path);
bool isWritable(const std::string& path);

// The item's own attributes, a link's not its target's; none when there is no such item.
std::optional<Attributes> attributes(const std::string& path);
// Where a symbolic link leads, as it is written; none when the item is no link.
std::optional<std::string> symbolicLinkTarget(const std::string& path);

// The names in a directory without "." and "..", hidden ones included, sorted by their bytes: that
// is the order of every listing, here and in whatever is built on it. None when the directory
// cannot be read.
std::optional<std::vector<std::string>> list(const std::string& path);

// Which item a path leads to: two paths with one identity lead to the same.
struct Identity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  auto operator<=>(const Identity&) const = default;  // NOLINT(modernize-use-nullptr): it has none
};

// The identity of the item, of a link's target; none when there is no such item.
std::optional<Identity> identity(const std::string& path);

// The bytes of a file; of a directory the sum of the sizes of all items below it that are not
// directories, where links to directories are followed and any other link counts with its own size.
// A link that leads back to a directory on the way to it adds nothing, a directory that several
// links lead to counts for each. What cannot be read counts as nothing.
std::uint64_t sizeOfFiles(const std::string& path);

// Calls `visit` for each entry of a directory whose name is like `pattern` (platform/Wildcard.h),
// in the order of a listing; the name is valid during the call. A link is a link, whatever it leads
// to. For none when the directory cannot be read.
void visitEntriesLike(const std::string& path, std::string_view pattern,
                      const std::function<void(std::string_view name, Kind kind)>& visit);

// Makes a directory and the missing ones above it, with default permissions. One that is already
// there is a success. What the superuser makes inside the console user's home belongs to the owner
// of the folder that it is made in.
Status createDirectory(const std::string& path);

// Follows one copy. The functions are called from several threads at once and must not block for
// long.
class CopyObserver {
 public:
  // An item of the source. Its path is looked for when it is asked for, which takes system calls.
  class Item {
   public:
    virtual ~Item() = default;
    virtual std::string path() const = 0;
  };

  virtual ~CopyObserver() = default;
  // The copy holds so many more bytes of the file `item`. In the end they come to the sizes of all
  // files: a hole counts as the zeros that it reads as, each name of a hard-linked file as a file.
  virtual void bytesCopied(std::uint64_t bytes, const Item& item) = 0;
  // `item`, a directory or anything else, is complete.
  virtual void itemCopied(const Item& item) = 0;
  // Asked before each item and, in a large file, about every fiftieth of a second: true ends the
  // copy, which fails with the code of a cancelled operation (ECANCELED) and leaves nothing behind.
  virtual bool isCancelled() = 0;
};

// Copies an item, recursively, to the full new path, whose parent must exist. Everything is kept
// that the other file system and the user's rights can keep: links as links, hard-link groups,
// permissions, owners, times to the nanosecond, extended attributes, access lists, holes in files,
// empty folders, pipes, sockets and devices; not the immutable flag. Mounted file systems below the
// source are copied with it. Rights that the source's file system does not give where it is mounted
// are not given to the copy: programs lose the bits and capabilities by which they run as somebody
// else, device nodes are left out.
//
// The copy grows under a hidden name beside the destination, closed to others, and gets its name
// when it is complete: it fails when something exists there, never merges, and a failed copy leaves
// nothing behind. (A killed process leaves the hidden ".copying-..." item.) An item that is removed
// or shortened while it is copied fails the whole copy; what is appended meanwhile is left out.
// Uses all processors; at most 16 MB of memory however large the tree is, nothing for each
// hard-linked file, and a bounded number of open files. `observer` may be null.
Status copy(const std::string& source, const std::string& destination,
            CopyObserver* observer = nullptr);

// Moves an item to the full new path. Fails when something else exists there; a move onto itself
// succeeds. Within a file system it is one step. Across file systems the item is copied whole under
// a hidden name, written to the disk, taken out of its folder and put in its new place before what
// it was is removed: whenever it ends, one of the two places holds all of it.
Status move(const std::string& source, const std::string& destination);

// Removes an item, recursively; follows no link. Stops at the first item that cannot be removed,
// and never goes into a file system that is mounted below it.
Status remove(const std::string& path);

// Writes `contents` beside `path` and renames it into place, so that a reader sees the old file or
// the new one whole. Permissions: those of the replaced file, else default. What the superuser
// writes inside the console user's home belongs to the owner of the folder.
Status writeAtomically(const std::string& path, std::string_view contents);

// A whole regular file; none when it cannot be read or is larger than `limit` bytes. Nothing else
// is ever opened. For the superuser a file in a place of a person's is read as that person, within
// the limits of platform/PersonalFiles.h, and elsewhere no link is followed that is not the
// superuser's.
std::optional<std::string> read(const std::string& path, std::uint64_t limit = 64ULL << 20);

// Sets or clears the immutable flag; changes nothing when it stands already. Fails where the file
// system has no such flag or the user may not set it.
Status setImmutable(const std::string& path, bool immutable);

// Sets the permission bits (0 to 07777) of the item, a link's target's.
Status setPermissions(const std::string& path, std::uint32_t permissions);

// Sets the date of creation where the file system lets it be set; fails elsewhere.
Status setCreationDate(const std::string& path, std::chrono::system_clock::time_point date);

}  // namespace platform::file_system
