#pragma once

#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <span>

namespace platform {

// A growing block of bytes. Unlike a vector it can be written to behind its end before it grows,
// and growing a large one moves no bytes, so a stream is collected without being copied. A value;
// one thread at a time. Throws std::bad_alloc for lack of memory and nothing else.
class Data {
 public:
  Data() = default;
  explicit Data(std::span<const std::byte> bytes) { append(bytes); }
  Data(std::initializer_list<std::byte> bytes) { append({bytes.begin(), bytes.size()}); }
  Data(const Data& other) { append(other); }
  Data(Data&& other) noexcept;
  Data& operator=(Data other) noexcept;
  ~Data() = default;

  const std::byte* data() const noexcept { return bytes_.get(); }
  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  const std::byte* begin() const noexcept { return data(); }
  const std::byte* end() const noexcept { return data() + size_; }

  // `bytes` may be part of this block.
  void append(std::span<const std::byte> bytes);
  // The room behind the end, at least `minimum` bytes of unspecified content. What was written
  // there becomes part of the block by `extend`; the next call of any other function ends the
  // room's life.
  std::span<std::byte> room(std::size_t minimum);
  // Adds the first `count` bytes of the room, at most its size.
  void extend(std::size_t count) noexcept { size_ += count; }

  friend bool operator==(const Data& left, const Data& right) noexcept;

 private:
  struct Free {
    void operator()(std::byte* bytes) const noexcept { std::free(bytes); }
  };

  std::unique_ptr<std::byte, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace platform
