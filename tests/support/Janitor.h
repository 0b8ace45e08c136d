#pragma once

#include <sys/types.h>

#include <string>

namespace test {

// Removes a directory with everything in it, immutable files too, as far as the rights allow.
void removeTree(const std::string& root);

// Removes a directory with everything in it when the test is over, however it ends. The work is
// done by a child process that keeps the rights and the mounts of the moment when it was made, so a
// test that has since given up root, entered a mount namespace or crashed leaves nothing behind.
class Janitor {
 public:
  explicit Janitor(const std::string& directory);
  // Returns when the directory is gone.
  ~Janitor();
  Janitor(const Janitor&) = delete;
  Janitor& operator=(const Janitor&) = delete;

 private:
  int pipe_ = -1;
  pid_t child_ = -1;
  pid_t owner_ = -1;
};

}  // namespace test
