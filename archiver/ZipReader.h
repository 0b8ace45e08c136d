#pragma once

#include <sys/types.h>

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "archiver/Zip.h"
#include "posix/FileDescriptor.h"

namespace archiver {

enum class EntryKind { file, folder, link };

// What an archive says of one of its entries.
struct Entry {
  zip_uint64_t index = 0;
  // Relative to the folder that is unpacked into, see EntryPath.h; "" for that folder itself.
  std::string path;
  EntryKind kind = EntryKind::file;
  // The bits that say who may read, write and run it; none when the archive does not say.
  std::optional<mode_t> permissions;
  std::time_t modified = 0;
  // Of the contents, as they are claimed to be.
  zip_uint64_t size = 0;
};

// Reads a zip archive, of which nothing is believed: whoever made it may want harm.
class ZipReader {
 public:
  // Look at status() before anything else. The bytes must outlive the reader.
  explicit ZipReader(posix::FileDescriptor archive);
  explicit ZipReader(std::string_view bytes);

  const platform::Status& status() const noexcept { return status_; }
  zip_uint64_t count() const;

  // What is known of an entry. Fails for one that must not be unpacked: its name leads out of the
  // folder, it is encrypted, or it is a device, a pipe or a socket.
  platform::Status describe(zip_uint64_t index, Entry& entry) const;

  // Hands the contents over piece by piece. Fails when they are not of the claimed size or
  // checksum, or when `take` does.
  platform::Status read(const Entry& entry,
                        const std::function<platform::Status(std::string_view)>& take) const;

 private:
  std::string nameOf(zip_uint64_t index, bool madeOnUnix) const;
  std::optional<std::time_t> exactTime(zip_uint64_t index) const;

  ZipHandle zip_;
  platform::Status status_;
};

}  // namespace archiver
