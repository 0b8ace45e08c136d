#include <fcntl.h>
#include <link.h>
#include <linux/userfaultfd.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/linux/crash/AlternateStack.h"
#include "platform/linux/crash/CrashWriter.h"
#include "tests/support/ExhaustStack.h"

// Crashes in the way that its second argument names; the crash log is written into the folder that
// is its first. Without a sanitizer in every build.
namespace {

namespace crash = platform::crash;

volatile int* const volatile nowhere = nullptr;

[[gnu::noinline]] void crashHere() {
  *nowhere = 1;
}

void inThread(const std::function<void()>& work) {
  std::thread([&work] {
    const crash::AlternateStack stack;
    ::prctl(PR_SET_NAME, "probe-worker");
    work();
  }).join();
}

void crashTwice() {
  std::barrier both(2);
  const auto crashTogether = [&both] {
    both.arrive_and_wait();
    crashHere();
  };
  std::thread other(crashTogether);
  crashTogether();
  other.join();
}

// The allocator finds its own list damaged while it holds its lock: it ends the process there. It
// takes the lock only when there are other threads. All is volatile, or the optimiser would see
// that nobody uses the memory.
void crashInAllocator() {
  std::thread([] { ::pause(); }).detach();
  constexpr std::size_t kTooLargeForCaches = 4096;
  void* volatile damaged = std::malloc(kTooLargeForCaches);
  void* volatile between = std::malloc(kTooLargeForCaches);
  void* volatile* const links = static_cast<void* volatile*>(damaged);
  std::free(damaged);
  links[1] = between;
  void* volatile found = std::malloc(2 * kTooLargeForCaches);
  std::free(found);
  std::free(between);
}

int crashInVisit(dl_phdr_info*, std::size_t, void*) {
  crashHere();
  return 1;
}

// The loader calls back under its lock.
void crashInLoader() {
  ::dl_iterate_phdr(crashInVisit, nullptr);
}

int stayInVisit(dl_phdr_info*, std::size_t, void* reached) {
  static_cast<std::barrier<>*>(reached)->arrive_and_wait();
  for (;;) ::pause();
}

void crashWhileLoaderIsLocked() {
  std::barrier reached(2);
  std::thread([&reached] { ::dl_iterate_phdr(stayInVisit, &reached); }).detach();
  reached.arrive_and_wait();
  crashHere();
}

// Crashes with the stack at `address`.
void crashWithStackAt(const void* address) {
#if defined(__x86_64__)
  asm volatile("mov %0, %%rsp; mov %0, %%rbp; movl $1, 0" : : "r"(address) : "memory");
#elif defined(__aarch64__)
  asm volatile("mov sp, %0; mov x29, %0; mov x9, xzr; str wzr, [x9]"
               :
               : "r"(address)
               : "x9", "memory");
#endif
}

// Whoever reads this memory waits until somebody provides it, which nobody does.
const void* memoryThatNeverComes() {
  constexpr std::size_t kSize = 1 << 20;
  void* memory = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  const int handler = static_cast<int>(::syscall(SYS_userfaultfd, O_CLOEXEC | UFFD_USER_MODE_ONLY));
  uffdio_api api{.api = UFFD_API, .features = 0, .ioctls = 0};
  uffdio_register range{};
  range.range = {reinterpret_cast<std::uintptr_t>(memory), kSize};
  range.mode = UFFDIO_REGISTER_MODE_MISSING;
  if (::ioctl(handler, UFFDIO_API, &api) != 0 || ::ioctl(handler, UFFDIO_REGISTER, &range) != 0) {
    std::puts("(impossible)");
    std::exit(EXIT_FAILURE);
  }
  return static_cast<const char*>(memory) + kSize / 2;
}

void callNothing() {
  void (*volatile function)() = nullptr;
  function();
}

void throwUncaught() {
  throw std::runtime_error("nobody catches this");
}

// The process lives on when a child that it has forked crashes; that one ends with 1.
void crashInChild() {
  const pid_t child = ::fork();
  if (child == 0) crashHere();
  int status = 0;
  ::waitpid(child, &status, 0);
  std::exit(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV ? 1 : 2);
}

void waitForSignal() {
  std::puts("(ready)");
  std::fflush(stdout);
  for (;;) ::pause();
}

const std::map<std::string, std::function<void()>> kWays = {
    {"null", crashHere},
    {"stack", [] { test::exhaustStack(); }},
    {"thread", [] { inThread(crashHere); }},
    {"thread-stack", [] { inThread([] { test::exhaustStack(); }); }},
    {"two", crashTwice},
    {"allocator", crashInAllocator},
    {"loader", crashInLoader},
    {"loader-locked", crashWhileLoaderIsLocked},
    {"lost-stack", [] { crashWithStackAt(nullptr); }},
    {"slow-stack", [] { crashWithStackAt(memoryThatNeverComes()); }},
    {"call-nothing", callNothing},
    {"terminate", throwUncaught},
    {"abort", [] { std::abort(); }},
    {"trap", [] { ::raise(SIGTRAP); }},
    {"child", crashInChild},
    {"wait", waitForSignal},
};

// Somebody else's, as a sanitizer's.
void takeAbort() {
  std::signal(SIGABRT, [](int) { std::_Exit(3); });
}

}  // namespace

int main(int argc, char** argv) {
  const auto way = argc == 3 ? kWays.find(argv[2]) : kWays.end();
  if (way == kWays.end()) return 64;
  if (std::getenv("TAKE_ABORT") != nullptr) takeAbort();
  if (std::getenv("UNDUMPABLE") != nullptr) ::prctl(PR_SET_DUMPABLE, 0);
  crash::install({.folder = posix::FileDescriptor(::open(argv[1], O_PATH | O_DIRECTORY)),
                  .nameStart = "Crash Probe_",
                  .nameEnd = "_host.crash",
                  .header = "Process:         CrashProbe\n",
                  .program = argv[0],
                  .zone = std::chrono::hours(1) + std::chrono::minutes(30)});
  way->second();
  return 0;
}
