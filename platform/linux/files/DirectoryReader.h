#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace platform {

// Reads the entries of an open directory one after the other, "." and ".." left out, in the order
// of the file system, with memory of its own that does not grow with the directory.
class DirectoryReader {
 public:
  struct Entry {
    // Valid until the next call of next(); a zero follows it.
    std::string_view name;
    // DT_REG, DT_DIR, DT_LNK ... of dirent.h; DT_UNKNOWN where the file system does not say.
    unsigned char type = 0;
  };

  // The descriptor stays the caller's and must outlive the reader.
  explicit DirectoryReader(int descriptor) noexcept : descriptor_(descriptor) {}

  // The next entry; none at the end or on an error, which error() then tells.
  std::optional<Entry> next();
  int error() const noexcept { return error_; }
  // Where to go on after the entry that next() gave last, for lseek(2) on the directory.
  std::int64_t position() const noexcept { return position_; }

 private:
  bool fill();

  static constexpr std::size_t kBufferSize = 32 * 1024;

  const int descriptor_;
  int error_ = 0;
  std::int64_t position_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  alignas(8) std::array<char, kBufferSize> buffer_;
};

}  // namespace platform
