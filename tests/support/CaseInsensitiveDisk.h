#pragma once

#include <optional>
#include <string>

#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"

namespace test {

// A small disk whose names are the same in either letter case, mounted inside the sandbox's private
// mount namespace, as root. Its listings give every name in lower case.
class CaseInsensitiveDisk {
 public:
  // Whether the programs that this needs are installed. A test says
  //     if (!CaseInsensitiveDisk::isAvailable()) GTEST_SKIP() << CaseInsensitiveDisk::kNeeds;
  static bool isAvailable();
  static constexpr char kNeeds[] = "needs ntfs-3g and /dev/fuse";

  // Mounts it at `relative`, made if missing. After Sandbox::simulateMachine.
  CaseInsensitiveDisk(const Sandbox& sandbox, const std::string& relative);
  ~CaseInsensitiveDisk();
  CaseInsensitiveDisk(const CaseInsensitiveDisk&) = delete;
  CaseInsensitiveDisk& operator=(const CaseInsensitiveDisk&) = delete;

  const std::string& mountPoint() const { return mountPoint_; }

 private:
  std::string mountPoint_;
  std::optional<ChildProgram> server_;
};

}  // namespace test
