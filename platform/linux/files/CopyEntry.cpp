#include "platform/linux/files/CopyEntry.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "platform/linux/files/CopyContents.h"
#include "platform/linux/files/MountRights.h"
#include "platform/linux/files/OpenSource.h"
#include "posix/FileDescriptor.h"

namespace platform {
namespace {

constexpr mode_t kAccessBits = 0777;
constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;
constexpr mode_t kUnknownMode = std::numeric_limits<mode_t>::max();

class EntryCopy {
 public:
  EntryCopy(const EntryPlaces& places, CopyContext& context, LinkGroups* groups,
            const Ownership* made)
      : places_(places), context_(context), groups_(groups), made_(made) {}

  // 0 or an error number.
  int run();

 private:
  int copyFile(const posix::FileDescriptor& in, const struct stat& status);
  int copyNewFile(const posix::FileDescriptor& in, const struct stat& status);
  void countLinked(const struct stat& status) const;
  int copySpecial();
  int makeSpecial(const posix::FileDescriptor& in, const struct stat& status);
  template <class Copy>
  int copyOncePerGroup(const struct stat& status, Copy copy);
  mode_t creationMode(const struct stat& status) const;
  Ownership ownershipOf(int item) const;

  const EntryPlaces& places_;
  CopyContext& context_;
  LinkGroups* const groups_;
  const Ownership* const made_;
};

int EntryCopy::run() {
  if (!places_.file) return copySpecial();
  const posix::FileDescriptor in = openSource(places_.sourceFolder, places_.sourceName, context_);
  if (!in) return errno == ELOOP || errno == ENXIO ? copySpecial() : errno;
  struct stat status {};
  if (::fstat(in.get(), &status) != 0) return errno;
  return S_ISREG(status.st_mode) ? copyFile(in, status) : copySpecial();
}

template <class Copy>
int EntryCopy::copyOncePerGroup(const struct stat& status, Copy copy) {
  const bool grouped = groups_ != nullptr && status.st_nlink > 1;
  if (grouped) {
    const int error = groups_->linkToCopy(status, places_.targetFolder, places_.targetName);
    if (error == 0) countLinked(status);
    if (error != ENOENT) return error;
  }
  const int error = copy();
  if (error != 0 || !grouped) return error;
  return groups_->enter(status, places_.targetFolder, places_.targetName);
}

// A further name of a file that is complete: all of its bytes are there at once.
void EntryCopy::countLinked(const struct stat& status) const {
  if (!S_ISREG(status.st_mode)) return;
  context_.countBytes(static_cast<std::uint64_t>(status.st_size), places_.sourceFolder,
                      places_.sourceName);
}

int EntryCopy::copyFile(const posix::FileDescriptor& in, const struct stat& status) {
  return copyOncePerGroup(status, [&] { return copyNewFile(in, status); });
}

// The final permissions at once where nothing speaks against it, which saves a call a file: the
// tree is closed to others until it is complete. But always writable while it is being written.
mode_t EntryCopy::creationMode(const struct stat& status) const {
  const bool stays =
      made_ != nullptr && status.st_uid == made_->user && status.st_gid == made_->group;
  return stays ? (status.st_mode & kAccessBits) | kPrivate : kPrivate;
}

Ownership EntryCopy::ownershipOf(int item) const {
  struct stat status {};
  if (made_ != nullptr || ::fstat(item, &status) != 0)
    return made_ != nullptr ? *made_ : Ownership{};
  return {status.st_uid, status.st_gid};
}

int EntryCopy::copyNewFile(const posix::FileDescriptor& in, const struct stat& status) {
  const mode_t mode = creationMode(status);
  const posix::FileDescriptor out(::openat(places_.targetFolder, places_.targetName.c_str(),
                                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                           mode));
  if (!out) return errno;
  if (made_ == nullptr) dropInheritedAccessLists(out.get());
  if (const int error = copyContents({in.get(), out.get(), status, places_}, context_);
      error != 0) {
    return error;
  }
  const mode_t present = made_ != nullptr ? mode & ~context_.creationMask() : kUnknownMode;
  return copyAttributes(in.get(), out.get(), status, ownershipOf(out.get()), present, context_);
}

// A node that is no device where it is must not become one.
bool isBarredDevice(const posix::FileDescriptor& in, const struct stat& status) {
  return (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) && !rightsOfMount(in.get()).devices;
}

int EntryCopy::copySpecial() {
  const posix::FileDescriptor in(
      ::openat(places_.sourceFolder, places_.sourceName.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!in || ::fstat(in.get(), &status) != 0) return errno;
  // It has become a file or a folder since it was listed.
  if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) return ESTALE;
  if (isBarredDevice(in, status)) return 0;
  return copyOncePerGroup(status, [&] { return makeSpecial(in, status); });
}

int makeLink(const posix::FileDescriptor& in, const EntryPlaces& places, off_t size) {
  std::string target(static_cast<std::size_t>(size) + 1, '\0');
  ssize_t length = 0;
  while ((length = ::readlinkat(in.get(), "", target.data(), target.size())) ==
         static_cast<ssize_t>(target.size())) {
    target.resize(target.size() * 2);
  }
  if (length < 0) return errno;
  target.resize(static_cast<std::size_t>(length));
  return ::symlinkat(target.c_str(), places.targetFolder, places.targetName.c_str()) == 0 ? 0
                                                                                          : errno;
}

int EntryCopy::makeSpecial(const posix::FileDescriptor& in, const struct stat& status) {
  if (S_ISLNK(status.st_mode)) {
    if (const int error = makeLink(in, places_, status.st_size); error != 0) return error;
  } else if (::mknodat(places_.targetFolder, places_.targetName.c_str(),
                       (status.st_mode & S_IFMT) | kPrivate, status.st_rdev) != 0) {
    return errno;
  }
  const posix::FileDescriptor out(
      ::openat(places_.targetFolder, places_.targetName.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!out) return errno;
  return copyPlaceAttributes(in.get(), out.get(), status, ownershipOf(out.get()), context_);
}

}  // namespace

bool copyEntry(const EntryPlaces& places, CopyContext& context, LinkGroups* groups,
               const Ownership* made) {
  const int error = EntryCopy(places, context, groups, made).run();
  if (error != 0) return context.fail(error, places.sourceFolder, places.sourceName);
  context.countItem(places.sourceFolder, places.sourceName);
  return true;
}

}  // namespace platform
