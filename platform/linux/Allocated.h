#pragma once

#include <cstdlib>
#include <memory>

namespace platform {

struct FreeAllocated {
  void operator()(void* memory) const noexcept { std::free(memory); }
};

// What a C library has made with malloc and leaves to whoever asked for it.
template <class T>
using Allocated = std::unique_ptr<T, FreeAllocated>;

}  // namespace platform
