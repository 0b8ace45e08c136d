#include "platform/Data.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace platform {

Data::Data(Data&& other) noexcept
    : bytes_(std::move(other.bytes_)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

Data& Data::operator=(Data other) noexcept {
  bytes_.swap(other.bytes_);
  std::swap(size_, other.size_);
  std::swap(capacity_, other.capacity_);
  return *this;
}

void Data::append(std::span<const std::byte> bytes) {
  if (bytes.empty()) return;
  const bool ownBytes = bytes.data() >= begin() && bytes.data() < end();
  const auto offset = ownBytes ? bytes.data() - begin() : 0;
  const std::span<std::byte> free = room(bytes.size());
  std::memcpy(free.data(), ownBytes ? begin() + offset : bytes.data(), bytes.size());
  extend(bytes.size());
}

std::span<std::byte> Data::room(std::size_t minimum) {
  if (capacity_ - size_ < minimum) {
    if (minimum > std::numeric_limits<std::size_t>::max() / 2 - size_) throw std::bad_alloc();
    const std::size_t capacity = std::max(size_ + minimum, 2 * size_);
    void* bytes = std::realloc(bytes_.get(), capacity);
    if (bytes == nullptr) throw std::bad_alloc();
    static_cast<void>(bytes_.release());
    bytes_.reset(static_cast<std::byte*>(bytes));
    capacity_ = capacity;
  }
  return {bytes_.get() + size_, capacity_ - size_};
}

bool operator==(const Data& left, const Data& right) noexcept {
  return std::equal(left.begin(), left.end(), right.begin(), right.end());
}

}  // namespace platform
