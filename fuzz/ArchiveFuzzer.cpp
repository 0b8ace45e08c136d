#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "archiver/Unpack.h"
#include "platform/linux/files/DirectoryReader.h"
#include "platform/linux/files/RemoveTree.h"

// The bytes of an archive, which is really unpacked: into a folder of the target's own, beside
// which there must be nothing afterwards, and in which nothing runs as somebody else and nothing is
// a device.
namespace {

constexpr archiver::Bounds kBounds = {.bytes = 1U << 20U, .items = 200};

void require(bool holds) {
  if (!holds) std::abort();
}

// A folder in memory for the time that the target runs; what is in it goes away after each run.
class Place {
 public:
  Place() { require(::mkdtemp(path_.data()) != nullptr); }
  ~Place() { ::rmdir(path_.c_str()); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/dev/shm/archive-fuzzer-XXXXXX";
};

int countIn(int folder) {
  platform::DirectoryReader reader(folder);
  int count = 0;
  while (reader.next()) ++count;
  return count;
}

void checkItems(int folder) {
  platform::DirectoryReader reader(folder);
  while (const auto entry = reader.next()) {
    const std::string name(entry->name);
    struct stat status {};
    require(::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0);
    require((status.st_mode & (S_ISUID | S_ISGID)) == 0);
    require(S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode));
    if (!S_ISDIR(status.st_mode)) continue;
    const posix::FileDescriptor below(
        ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    if (below) checkItems(below.get());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const archiver::ZipReader reader(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!reader.status().ok()) return 0;
  static const Place place;
  const platform::Location folder = platform::locate(place.path() + "/folder");
  require(::mkdirat(folder.descriptor(), folder.name.c_str(), S_IRWXU) == 0);
  {
    const posix::FileDescriptor root(
        ::openat(folder.descriptor(), folder.name.c_str(), O_RDONLY | O_DIRECTORY));
    require(static_cast<bool>(root));
    static_cast<void>(archiver::unpackInto(reader, root.get(), kBounds).ok());
    checkItems(root.get());
  }
  const posix::FileDescriptor around(::open(place.path().c_str(), O_RDONLY | O_DIRECTORY));
  require(countIn(around.get()) == 1);
  require(removeTree(folder, platform::LockedFolders::open).ok());
  return 0;
}
