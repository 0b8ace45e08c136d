#pragma once

#include <string>

#include "tests/support/Sandbox.h"

namespace test {

// A small disk image that is mounted through a loop device inside the sandbox's private mount
// namespace, as root; it is unmounted with the namespace.
class LoopImage {
 public:
  // Makes the image and mounts it at `relative`, made if missing. After Sandbox::simulateMachine.
  LoopImage(const Sandbox& sandbox, const std::string& relative);

  const std::string& mountPoint() const { return mountPoint_; }
  bool isMounted() const;
  // Whether the kernel still keeps a loop device for the image.
  bool hasLoopDevice() const;

 private:
  std::string image_;
  std::string mountPoint_;
};

}  // namespace test
