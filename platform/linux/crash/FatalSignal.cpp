#include "platform/linux/crash/FatalSignal.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace platform::crash {
namespace {

struct Code {
  int signal;
  int code;
  std::string_view name;
};

// sigaction(2).
constexpr std::array kCodes = {
    Code{SIGSEGV, SEGV_MAPERR, "SEGV_MAPERR"}, Code{SIGSEGV, SEGV_ACCERR, "SEGV_ACCERR"},
    Code{SIGBUS, BUS_ADRALN, "BUS_ADRALN"},    Code{SIGBUS, BUS_ADRERR, "BUS_ADRERR"},
    Code{SIGBUS, BUS_OBJERR, "BUS_OBJERR"},    Code{SIGILL, ILL_ILLOPC, "ILL_ILLOPC"},
    Code{SIGILL, ILL_ILLOPN, "ILL_ILLOPN"},    Code{SIGILL, ILL_PRVOPC, "ILL_PRVOPC"},
    Code{SIGFPE, FPE_INTDIV, "FPE_INTDIV"},    Code{SIGFPE, FPE_FLTDIV, "FPE_FLTDIV"},
    Code{SIGTRAP, TRAP_BRKPT, "TRAP_BRKPT"},   Code{SIGTRAP, TRAP_TRACE, "TRAP_TRACE"}};

std::string_view nameOf(int number, int code) noexcept {
  if (code == SI_USER) return "SI_USER";
  if (code == SI_QUEUE) return "SI_QUEUE";
  if (code == SI_TKILL) return "SI_TKILL";
  if (code == SI_KERNEL) return "SI_KERNEL";
  const auto* found = std::ranges::find_if(
      kCodes, [=](const Code& known) { return known.signal == number && known.code == code; });
  return found != kCodes.end() ? found->name : "code";
}

void addSignal(FixedText& text, int number, int code) noexcept {
  const char* name = ::sigabbrev_np(number);
  text.add("Signal:          SIG").add(name != nullptr ? name : "?");
  text.add(" (").addDecimal(number).add("), ").add(nameOf(number, code));
  text.add(" (").addDecimal(code).add(")\n");
}

}  // namespace

bool wasSent(const siginfo_t& information) noexcept {
  return information.si_code <= 0;
}

void addCause(FixedText& text, int number, const siginfo_t& information) noexcept {
  addSignal(text, number, information.si_code);
  if (wasSent(information)) {
    text.add("Sent by:         process ").addDecimal(information.si_pid);
    text.add(", user ").addDecimal(information.si_uid).add("\n");
  } else if (number == SIGSYS) {
    text.add("System call:     ").addDecimal(information.si_syscall).add("\n");
  } else {
    const auto address = reinterpret_cast<std::uintptr_t>(information.si_addr);
    text.add("Fault address:   ").addHexadecimal(address).add("\n");
  }
}

void letThrough(int number) noexcept {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, number);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void dieOf(int number, siginfo_t& information) noexcept {
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  ::sigaction(number, &usual, nullptr);
  letThrough(number);
  ::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), ::gettid(), number, &information);
  ::raise(number);
  ::_exit(128 + number);
}

}  // namespace platform::crash
