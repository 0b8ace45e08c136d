#pragma once

#include <new>
#include <utility>

namespace platform {

// Holds a function-local static that is made once and never destroyed, so that threads which still
// run while the process exits find it whole:
//     static NoDestructor<Registry> registry;
template <class T>
class NoDestructor {
 public:
  template <class... Arguments>
  explicit NoDestructor(Arguments&&... arguments) {
    new (storage_) T(std::forward<Arguments>(arguments)...);
  }

  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;

  T& get() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }
  T& operator*() noexcept { return get(); }
  T* operator->() noexcept { return &get(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace platform
