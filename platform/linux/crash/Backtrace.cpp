#include "platform/linux/crash/Backtrace.h"

#include <unwind.h>

#include <cstdint>

#include "platform/linux/crash/LoadedModules.h"

namespace platform::crash {
namespace {

constexpr int kMostFrames = 100;
constexpr std::size_t kAddressDigits = 12;
constexpr std::size_t kNameColumn = 5;
constexpr std::size_t kAddressColumn = 34;

struct Walk {
  CrashFile* file = nullptr;
  std::string_view program;
  int frames = 0;
  // The walk begins in the handler; what interests comes behind the frame of the signal.
  bool behindSignal = false;
};

#if defined(__x86_64__)
std::uintptr_t programCounter(const ucontext_t& context) noexcept {
  return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
}

// Where a function that has not yet begun would return to.
std::uintptr_t returnAddress(const ucontext_t& context) noexcept {
  const auto stack = static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
  return *reinterpret_cast<const std::uintptr_t*>(stack);  // NOLINT(performance-no-int-to-ptr)
}
#elif defined(__aarch64__)
std::uintptr_t programCounter(const ucontext_t& context) noexcept {
  return context.uc_mcontext.pc;
}

std::uintptr_t returnAddress(const ucontext_t& context) noexcept {
  return context.uc_mcontext.regs[30];
}
#endif

std::string_view nameOf(const std::optional<Module>& module, std::string_view program) noexcept {
  if (!module) return "(no module)";
  return module->path.empty() ? program : lastComponent(module->path);
}

void writeFrame(Walk& walk, std::uintptr_t address) noexcept {
  const auto module = moduleAt(address);
  FixedText line;
  line.addDecimal(walk.frames++).padTo(kNameColumn).add(nameOf(module, walk.program));
  line.padTo(kAddressColumn).addHexadecimal(address, kAddressDigits);
  if (module) line.add(" + ").addHexadecimal(address - module->base);
  walk.file->write(line.add("\n"));
}

_Unwind_Reason_Code onFrame(_Unwind_Context* context, void* data) noexcept {
  auto& walk = *static_cast<Walk*>(data);
  int interrupted = 0;
  const std::uintptr_t address = _Unwind_GetIPInfo(context, &interrupted);
  walk.behindSignal = walk.behindSignal || interrupted != 0;
  if (!walk.behindSignal || address == 0) return _URC_NO_REASON;
  if (walk.frames == kMostFrames) {
    walk.file->write("(the frames that follow are left out)\n");
    return _URC_END_OF_STACK;
  }
  writeFrame(walk, address);
  return _URC_NO_REASON;
}

_Unwind_Reason_Code ignoreFrame(_Unwind_Context*, void*) noexcept {
  return _URC_NO_REASON;
}

}  // namespace

void prepareBacktrace() noexcept {
  _Unwind_Backtrace(ignoreFrame, nullptr);
}

void writeBacktrace(CrashFile& file, const ucontext_t& interrupted,
                    std::string_view program) noexcept {
  Walk walk{.file = &file, .program = program};
  const std::uintptr_t address = programCounter(interrupted);
  if (moduleAt(address)) {
    _Unwind_Backtrace(onFrame, &walk);
  } else {
    // A call that led nowhere: there are no tables to go on by, only who made it.
    writeFrame(walk, address);
    writeFrame(walk, returnAddress(interrupted));
  }
}

}  // namespace platform::crash
