#pragma once

#include <ucontext.h>

#include "platform/linux/crash/CrashFile.h"

namespace platform::crash {

// Has the unwinder load what it needs, so that a signal handler may use it afterwards: from then on
// it takes no lock and no memory, as the loader's search for a module's tables takes none.
void prepareBacktrace() noexcept;

// Writes where the thread was that the signal came to, and who called that: module, address, and
// offset in the module. The first hundred frames. `program` is what the program itself is called.
// Call in the signal's handler. What the crash has damaged may make a further fault.
void writeBacktrace(CrashFile& file, const ucontext_t& interrupted,
                    std::string_view program) noexcept;

}  // namespace platform::crash
