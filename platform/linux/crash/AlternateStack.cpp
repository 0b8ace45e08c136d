#include "platform/linux/crash/AlternateStack.h"

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>

namespace platform::crash {
namespace {

// What the writer takes, also when a fault interrupts it; the registers' room, which depends on the
// processor, comes on top. Memory that is never touched costs none.
constexpr std::size_t kForTheWriter = 256 << 10;

bool hasOne() noexcept {
  stack_t present{};
  return ::sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE) == 0;
}

std::size_t pageSize() noexcept {
  return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t wantedSize() noexcept {
  const long registers = ::sysconf(_SC_SIGSTKSZ);
  return kForTheWriter + (registers > 0 ? static_cast<std::size_t>(registers) : 0);
}

}  // namespace

// The lowest page stays closed: whoever runs over faults instead of writing elsewhere.
AlternateStack::AlternateStack() noexcept {
  if (hasOne()) return;
  const std::size_t guard = pageSize();
  const std::size_t size = guard + wantedSize();
  void* memory = ::mmap(nullptr, size, PROT_NONE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return;
  memory_ = memory;
  size_ = size;
  stack_t stack{};
  stack.ss_sp = static_cast<std::byte*>(memory) + guard;
  stack.ss_size = size - guard;
  if (::mprotect(stack.ss_sp, stack.ss_size, PROT_READ | PROT_WRITE) == 0) {
    ::sigaltstack(&stack, nullptr);
  }
}

AlternateStack::~AlternateStack() {
  if (memory_ == nullptr) return;
  stack_t none{};
  none.ss_flags = SS_DISABLE;
  ::sigaltstack(&none, nullptr);
  ::munmap(memory_, size_);
}

}  // namespace platform::crash
