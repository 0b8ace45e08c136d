#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/FileSystem.h"

// The trees that the benchmarks of the file layer work on.
namespace benchmark_trees {

inline void check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error(what);
}

inline void check(const platform::Status& status) {
  check(status.ok(), status.description());
}

inline void writeFile(const std::string& path, const std::string& contents) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  check(file >= 0 && ::write(file, contents.data(), contents.size()) ==
                         static_cast<ssize_t>(contents.size()),
        path);
  ::close(file);
}

// Piece by piece, so that it leaves the peak memory alone.
inline void writeLargeFile(const std::string& path, int megabytes) {
  writeFile(path, "");
  const std::string piece(1000 * 1000, 'x');
  const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  for (int i = 0; i < megabytes; ++i) {
    check(::write(file, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()), path);
  }
  ::close(file);
}

// `count` files of `size` bytes, a hundred in a folder.
inline void makeFiles(const std::string& root, std::size_t count, std::size_t size) {
  const std::string contents(size, 'x');
  std::string folder;
  for (std::size_t i = 0; i < count; ++i) {
    if (i % 100 == 0) {
      folder = root + "/" + std::to_string(i / 100);
      check(platform::file_system::createDirectory(folder));
    }
    writeFile(folder + "/" + std::to_string(i), contents);
  }
}

inline void makeBundle(const std::string& root) {
  makeFiles(root, 8000, 10000);
  for (int i = 0; i < 3; ++i) writeLargeFile(root + "/large" + std::to_string(i), 120);
}

}  // namespace benchmark_trees
