#pragma once

#include <cstdint>

// The base of a class whose one instance lives as long as the process. It is made under a lock held
// on the class, by sharedController() or by the first allocWithZone(), is never destroyed, and the
// operations by which other objects are kept and let go do nothing to it.
template <class T>
class NeverReleased {
 public:
  NeverReleased(const NeverReleased&) = delete;
  NeverReleased& operator=(const NeverReleased&) = delete;

  T* copyWithZone() noexcept { return self(); }
  T* retain() noexcept { return self(); }
  T* autorelease() noexcept { return self(); }
  void release() noexcept {}
  // The largest unsigned 32-bit number, on every machine.
  static constexpr std::uint64_t retainCount() noexcept { return 4294967295U; }

 protected:
  NeverReleased() = default;
  ~NeverReleased() = default;

 private:
  T* self() noexcept { return static_cast<T*>(this); }
};
