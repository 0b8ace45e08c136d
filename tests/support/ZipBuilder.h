#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace test {

// One entry of an archive as somebody may have written it who means harm.
struct ZipEntry {
  std::string name;
  std::string contents = {};
  unsigned mode = 0100644;
  // 3 is Unix, 0 a system without modes.
  unsigned system = 3;
  // 1 says that it is encrypted.
  unsigned flags = 0;
  // What is said of the contents when it is not true.
  std::optional<std::uint32_t> claimedSize = std::nullopt;
  std::optional<std::uint32_t> claimedChecksum = std::nullopt;
  // It has the contents of the entry before it, not a copy of them.
  bool overlaps = false;
};

// The bytes of a zip archive with these entries, stored without compression.
std::string zipOf(const std::vector<ZipEntry>& entries);

}  // namespace test
