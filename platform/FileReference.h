#pragma once

#include <string>
#include <utility>

namespace platform {

// Which item of the file system is meant. Here the item's absolute path is all that its uses need;
// an item that is moved afterwards is no longer meant. A plain value.
class FileReference {
 public:
  // Refers to nothing.
  FileReference() = default;

  // The item at `path`, a link itself and not its target; refers to nothing when there is no such
  // item. Any thread; looks at the disk.
  static FileReference to(const std::string& path);

  // Empty when it refers to nothing.
  const std::string& path() const noexcept { return path_; }

  bool operator==(const FileReference&) const = default;

 private:
  explicit FileReference(std::string path) : path_(std::move(path)) {}

  std::string path_;
};

}  // namespace platform
