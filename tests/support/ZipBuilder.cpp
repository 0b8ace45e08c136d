#include "tests/support/ZipBuilder.h"

namespace test {
namespace {

std::uint32_t checksum(const std::string& bytes) {
  std::uint32_t sum = ~0U;
  for (const char byte : bytes) {
    sum ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) sum = (sum >> 1U) ^ ((sum & 1U) != 0 ? 0xEDB88320U : 0U);
  }
  return ~sum;
}

// Numbers of so many bytes, the lowest first.
std::string number(std::uint64_t value, int bytes) {
  std::string result;
  for (int i = 0; i < bytes; ++i) result += static_cast<char>(value >> (8 * i));
  return result;
}

// Where contents are, and what is true of them.
struct Stored {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  std::uint32_t checksum = 0;
};

// What the header of an entry and its place in the directory have in common.
std::string commonFields(const ZipEntry& entry, const Stored& stored) {
  constexpr unsigned kVersion = 20;
  constexpr unsigned kStored = 0;
  constexpr unsigned kDate = 0x5021;
  return number(kVersion, 2) + number(entry.flags, 2) + number(kStored, 2) + number(0, 2) +
         number(kDate, 2) + number(entry.claimedChecksum.value_or(stored.checksum), 4) +
         number(stored.size, 4) + number(entry.claimedSize.value_or(stored.size), 4) +
         number(entry.name.size(), 2) + number(0, 2);
}

std::string directoryEntry(const ZipEntry& entry, const Stored& stored) {
  const unsigned madeBy = entry.system << 8U | 20U;
  const std::uint64_t attributes = entry.system == 3 ? std::uint64_t{entry.mode} << 16U : 0;
  return "PK\1\2" + number(madeBy, 2) + commonFields(entry, stored) + number(0, 2) + number(0, 2) +
         number(0, 2) + number(attributes, 4) + number(stored.offset, 4) + entry.name;
}

}  // namespace

std::string zipOf(const std::vector<ZipEntry>& entries) {
  std::string archive;
  std::string directory;
  Stored stored;
  for (const ZipEntry& entry : entries) {
    if (!entry.overlaps) {
      stored = {archive.size(), static_cast<std::uint32_t>(entry.contents.size()),
                checksum(entry.contents)};
      archive += "PK\3\4" + commonFields(entry, stored) + entry.name + entry.contents;
    }
    directory += directoryEntry(entry, stored);
  }
  const std::string end = std::string("PK\5\6") + number(0, 4) + number(entries.size(), 2) +
                          number(entries.size(), 2) + number(directory.size(), 4) +
                          number(archive.size(), 4) + number(0, 2);
  return archive + directory + end;
}

}  // namespace test
