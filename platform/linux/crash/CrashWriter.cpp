#include "platform/linux/crash/CrashWriter.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <ctime>
#include <utility>

#include "platform/NoDestructor.h"
#include "platform/linux/crash/AlternateStack.h"
#include "platform/linux/crash/Backtrace.h"
#include "platform/linux/crash/CrashFile.h"
#include "platform/linux/crash/FatalSignal.h"
#include "platform/linux/crash/LoadedModules.h"

// From onFatalSignal on everything here runs in a signal handler.
namespace platform::crash {
namespace {

// How long a log may take, in seconds; then the process dies without one. In the middle of a call
// to a file system that does not answer only the second helps, as no handler runs there.
constexpr unsigned kLongest = 5;
constexpr unsigned kLongestCall = 7;
constexpr std::size_t kAddressDigits = 12;

struct Writer {
  explicit Writer(Preparation prepared) : preparation(std::move(prepared)) {}

  const Preparation preparation;
  // A process that was forked from this one is not the application.
  const pid_t process = ::getpid();
  // The thread whose crash is written; the rest is its alone.
  std::atomic<pid_t> thread = 0;
  int signal = 0;
  siginfo_t information{};
  const ucontext_t* interrupted = nullptr;
  timespec time{};
  CrashFile file;
  std::size_t nextSection = 0;
  std::size_t interruptions = 0;
};

std::atomic<Writer*> writer = nullptr;

void addDate(FixedText& text, const Writer& crash, std::string_view between,
             std::string_view betweenTimes) noexcept {
  using namespace std::chrono;
  const sys_seconds local{seconds(crash.time.tv_sec) + crash.preparation.zone};
  const auto day = floor<days>(local);
  const year_month_day date(day);
  const hh_mm_ss time(local - day);
  text.addDecimal(int(date.year()), 4).add("-").addDecimal(unsigned(date.month()), 2).add("-");
  text.addDecimal(unsigned(date.day()), 2).add(between).addDecimal(time.hours().count(), 2);
  text.add(betweenTimes).addDecimal(time.minutes().count(), 2);
  text.add(betweenTimes).addDecimal(time.seconds().count(), 2);
}

void addZone(FixedText& text, std::chrono::seconds zone) noexcept {
  const auto minutes = std::chrono::abs(std::chrono::duration_cast<std::chrono::minutes>(zone));
  text.add(zone.count() < 0 ? " -" : " +").addDecimal(minutes.count() / 60, 2);
  text.addDecimal(minutes.count() % 60, 2);
}

void writeHeader(Writer& crash) noexcept {
  crash.file.write(crash.preparation.header);
  FixedText line;
  addDate(line.add("Date/Time:       "), crash, " ", ":");
  addZone(line, crash.preparation.zone);
  crash.file.write(line.add("\n"));
}

void writeCause(Writer& crash) noexcept {
  FixedText lines;
  addCause(lines, crash.signal, crash.information);
  crash.file.write(lines);
}

void writeThread(Writer& crash) noexcept {
  std::array<char, 17> name{};
  ::prctl(PR_GET_NAME, name.data());
  FixedText line;
  line.add("Thread:          ").addDecimal(crash.thread).add(" \"").add(name.data()).add("\"");
  crash.file.write(line.add(crash.thread == crash.process ? ", the main thread\n" : "\n"));
}

void writeFrames(Writer& crash) noexcept {
  crash.file.write("\nBacktrace (module, address, offset in the module):\n");
  writeBacktrace(crash.file, *crash.interrupted, lastComponent(crash.preparation.program));
}

void writeModule(const Module& module, void* data) noexcept {
  Writer& crash = *static_cast<Writer*>(data);
  FixedText line;
  line.addHexadecimal(module.start, kAddressDigits).add(" - ");
  line.addHexadecimal(module.end, kAddressDigits).add("  ");
  line.add(module.path.empty() ? std::string_view(crash.preparation.program) : module.path);
  addBuildId(line.add("  "), module);
  crash.file.write(line.add("\n"));
}

void writeModules(Writer& crash) noexcept {
  crash.file.write("\nModules (addresses, file, build identifier):\n");
  forEachModule(writeModule, &crash);
}

constexpr std::array kSections = {writeHeader, writeCause, writeThread, writeFrames, writeModules};

// A fault in a section comes back here for the next one.
void writeRemainingSections(Writer& crash) noexcept {
  while (crash.nextSection < kSections.size()) kSections[crash.nextSection++](crash);
}

[[noreturn]] void dieWithoutLog(Writer& crash) noexcept {
  crash.file.discard();
  dieOf(crash.signal, crash.information);
}

[[noreturn]] void finish(Writer& crash) noexcept {
  writeRemainingSections(crash);
  FixedText start;
  addDate(start.add(crash.preparation.nameStart), crash, "-", "");
  crash.file.publish(start.view(), crash.preparation.nameEnd);
  dieOf(crash.signal, crash.information);
}

// On any thread.
void onDeadline(int) {
  dieWithoutLog(*writer.load());
}

void setDeadline() noexcept {
  struct sigaction deadline {};
  deadline.sa_handler = onDeadline;
  deadline.sa_flags = SA_ONSTACK;
  ::sigaction(SIGALRM, &deadline, nullptr);
  letThrough(SIGALRM);
  ::alarm(kLongest);
}

// By the system's own calls: the C library's might allocate.
void setDeadlineForCalls() noexcept {
  struct sigevent kill {};
  kill.sigev_notify = SIGEV_SIGNAL;
  kill.sigev_signo = SIGKILL;
  int timer = 0;
  itimerspec limit{};
  limit.it_value.tv_sec = kLongestCall;
  if (::syscall(SYS_timer_create, CLOCK_MONOTONIC, &kill, &timer) == 0) {
    ::syscall(SYS_timer_settime, timer, 0, &limit, nullptr);
  }
}

[[noreturn]] void writeLog(Writer& crash, int number, const siginfo_t& information,
                           const ucontext_t& interrupted) noexcept {
  crash.signal = number;
  crash.information = information;
  crash.interrupted = &interrupted;
  setDeadline();
  setDeadlineForCalls();
  ::clock_gettime(CLOCK_REALTIME, &crash.time);
  if (!crash.file.create(crash.preparation.folder.get())) dieOf(number, crash.information);
  finish(crash);
}

// The thread that writes has made a further fault.
[[noreturn]] void goOn(Writer& crash, int number) noexcept {
  if (++crash.interruptions > kSections.size()) dieWithoutLog(crash);
  FixedText line;
  line.add("(interrupted by signal ").addDecimal(number).add(")\n");
  crash.file.write(line);
  finish(crash);
}

void onFatalSignal(int number, siginfo_t* information, void* context) {
  Writer& crash = *writer.load();
  if (::getpid() != crash.process) dieOf(number, *information);
  pid_t writing = 0;
  if (crash.thread.compare_exchange_strong(writing, ::gettid())) {
    writeLog(crash, number, *information, *static_cast<const ucontext_t*>(context));
  }
  // The process dies anyway as soon as the log is whole.
  while (writing != ::gettid()) ::pause();
  if (!wasSent(*information)) goOn(crash, number);
}

// The other signals wait; a further fault and the deadline do not.
sigset_t shutOutMeanwhile() noexcept {
  sigset_t set;
  ::sigfillset(&set);
  for (const int number : kFatalSignals) ::sigdelset(&set, number);
  ::sigdelset(&set, SIGALRM);
  return set;
}

void handle(int number) noexcept {
  struct sigaction present {};
  if (::sigaction(number, nullptr, &present) != 0) return;
  if ((present.sa_flags & SA_SIGINFO) != 0 || present.sa_handler != SIG_DFL) return;
  struct sigaction ours {};
  ours.sa_sigaction = onFatalSignal;
  ours.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  ours.sa_mask = shutOutMeanwhile();
  ::sigaction(number, &ours, nullptr);
}

}  // namespace

void install(Preparation preparation) {
  static NoDestructor<Writer> instance(std::move(preparation));
  static NoDestructor<AlternateStack> stack;
  prepareBacktrace();
  writer = &*instance;
  for (const int number : kFatalSignals) handle(number);
}

bool isInstalled() noexcept {
  return writer.load() != nullptr;
}

}  // namespace platform::crash
