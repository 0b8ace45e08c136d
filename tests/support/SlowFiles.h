#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace test {

// Makes a file system slow while it lives: everything that is opened in it is kept waiting, one
// opening after the other, so that what works on many files takes as long as a test needs it to.
class SlowFiles {
 public:
  enum class Folders { quick, slow };
  // Root's tools see a mount through a copy of it, which is slow only with the whole file system.
  enum class Extent { mount, fileSystem };

  // A test that needs it says
  //     if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  static bool canBeMade();
  static constexpr char kNeeds[] = "needs root, and a kernel that lets somebody allow each opening";

  // `mountPoint` is a mount of the sandbox's own; the file system, if all of it is to be slow, too.
  SlowFiles(const std::string& mountPoint, std::chrono::milliseconds delay,
            Folders folders = Folders::quick, Extent extent = Extent::mount);
  ~SlowFiles();
  SlowFiles(const SlowFiles&) = delete;
  SlowFiles& operator=(const SlowFiles&) = delete;

 private:
  void answer(std::chrono::milliseconds delay);

  const int events_;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace test
