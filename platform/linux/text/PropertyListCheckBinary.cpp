#include <cstdint>
#include <optional>
#include <vector>

#include "platform/linux/text/PropertyListCheck.h"

namespace platform::property_list_check {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

// The kinds of objects by the upper half of their marker byte.
enum Kind : unsigned {
  data = 4,
  ascii = 5,
  utf16 = 6,
  array = 10,
  orderedSet = 11,
  set = 12,
  dictionary = 13
};

// What an object comes to when every reference in it is followed.
struct Extent {
  std::size_t values = 1;
  std::size_t bytes = 16;
  std::size_t height = 1;
};

class BinaryCheck {
 public:
  explicit BinaryCheck(std::string_view bytes) : bytes_(bytes) {}

  bool passes() {
    if (!readTrailer()) return false;
    extents_.resize(objectCount_);
    underWay_.resize(objectCount_);
    return measure(root_, 1).has_value();
  }

 private:
  // A big-endian number of `size` bytes at `offset`; none when it is not all there.
  std::optional<std::uint64_t> number(std::size_t offset, std::size_t size) const {
    if (size > 8 || offset > bytes_.size() || size > bytes_.size() - offset) return std::nullopt;
    std::uint64_t value = 0;
    for (const char byte : bytes_.substr(offset, size)) {
      value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
  }

  bool readTrailer() {
    if (bytes_.size() < kHeaderSize + kTrailerSize) return false;
    const std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = *number(trailer + 6, 1);
    referenceSize_ = *number(trailer + 7, 1);
    objectCount_ = *number(trailer + 8, 8);
    root_ = *number(trailer + 16, 8);
    table_ = *number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8)
      return false;
    return table_ < trailer && objectCount_ <= (trailer - table_) / offsetSize_ &&
           root_ < objectCount_;
  }

  // Reads the length behind the marker at `at` and moves `at` to the contents.
  std::optional<std::size_t> length(std::size_t& at) const {
    const unsigned low = static_cast<unsigned char>(bytes_[at++]) & 0x0FU;
    if (low != 0x0F) return low;
    const auto marker = number(at, 1);
    if (!marker || *marker >> 4 != 1 || (*marker & 0x0FU) > 3) return std::nullopt;
    const std::size_t size = std::size_t{1} << (*marker & 0x0FU);
    const auto value = number(at + 1, size);
    at += 1 + size;
    return value;
  }

  // The extent of an object at `level` below nothing; none when the list is refused.
  std::optional<Extent> measure(std::uint64_t index, std::size_t level) {
    if (index >= objectCount_ || level > kDeepestNesting || underWay_[index]) return std::nullopt;
    if (!extents_[index]) {
      underWay_[index] = true;
      extents_[index] = measureObject(index, level);
      underWay_[index] = false;
    }
    const auto& extent = extents_[index];
    if (!extent || extent->height + level - 1 > kDeepestNesting) return std::nullopt;
    return extent;
  }

  std::optional<Extent> measureObject(std::uint64_t index, std::size_t level) {
    const auto offset = number(table_ + index * offsetSize_, offsetSize_);
    if (!offset || *offset < kHeaderSize || *offset >= table_) return std::nullopt;
    std::size_t at = *offset;
    const unsigned kind = static_cast<unsigned char>(bytes_[at]) >> 4;
    if (kind < data || (kind > utf16 && kind < array) || kind > dictionary) return Extent{};
    const auto count = length(at);
    if (!count || *count > bytes_.size()) return std::nullopt;
    if (kind < array) return measureText(kind, at, *count);
    return measureContainer(at, kind == dictionary ? *count * 2 : *count, level);
  }

  // Data and texts. A zero character in a key makes the library abort the process.
  std::optional<Extent> measureText(unsigned kind, std::size_t at, std::size_t count) const {
    const std::size_t unit = kind == utf16 ? 2 : 1;
    if (at > bytes_.size() || count * unit > bytes_.size() - at) return std::nullopt;
    for (std::size_t i = 0; kind != data && i < count; ++i) {
      if (*number(at + i * unit, unit) == 0) return std::nullopt;
    }
    return Extent{.values = 1, .bytes = 16 + count * 3, .height = 1};
  }

  std::optional<Extent> measureContainer(std::size_t at, std::size_t references,
                                         std::size_t level) {
    Extent extent;
    for (std::size_t i = 0; i < references; ++i) {
      const auto reference = number(at + i * referenceSize_, referenceSize_);
      if (!reference) return std::nullopt;
      const auto member = measure(*reference, level + 1);
      if (!member) return std::nullopt;
      extent.values += member->values;
      extent.bytes += member->bytes;
      if (extent.values > kMostValues || extent.bytes > kMostBytes) return std::nullopt;
      if (member->height >= extent.height) extent.height = member->height + 1;
    }
    return extent;
  }

  std::string_view bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t root_ = 0;
  std::uint64_t table_ = 0;
  // By object: measured already, and on the way from the root to what is being measured.
  std::vector<std::optional<Extent>> extents_;
  std::vector<bool> underWay_;
};

}  // namespace

bool isReasonableBinary(std::string_view bytes) {
  return BinaryCheck(bytes).passes();
}

}  // namespace platform::property_list_check
