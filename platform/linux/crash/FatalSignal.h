#pragma once

#include <array>
#include <csignal>

#include "platform/linux/crash/FixedText.h"

namespace platform::crash {

// The signals that tell of a mistake in this process, and that end it.
inline constexpr std::array kFatalSignals = {SIGSEGV, SIGBUS,  SIGILL, SIGFPE,
                                             SIGABRT, SIGTRAP, SIGSYS};

// Whether somebody sent it, in contrast to a fault of the running thread. So is abort(3)'s.
bool wasSent(const siginfo_t& information) noexcept;

// Adds the lines that say what came, for example
//     Signal:          SIGSEGV (11), SEGV_MAPERR (1)
//     Fault address:   0x0
void addCause(FixedText& text, int number, const siginfo_t& information) noexcept;

// Lets this process die of `number` as if nobody had handled it: with its exit status, its core
// dump where one is made, and what is known of its cause. Safe in a signal handler.
[[noreturn]] void dieOf(int number, siginfo_t& information) noexcept;

// Takes signals into this thread that it may have shut out.
void letThrough(int number) noexcept;

}  // namespace platform::crash
