#include "elevator/Inheritance.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "channel/Packet.h"

namespace elevator {
namespace {

// Enough for the descriptors of every command that may wait.
constexpr rlim_t kOpenFiles = 16384;
constexpr rlim_t kStack = 8U << 20;
// As the kernel gives them to the first process.
constexpr rlim_t kLockedMemory = 8U << 20;
constexpr rlim_t kMessageQueues = 819200;

// The user for whom pkexec started this program; the number that is nobody's (chown(2)) when it did
// not.
uid_t invokingUser() {
  constexpr auto kNobodys = static_cast<uid_t>(-1);
  const char* text = std::getenv("PKEXEC_UID");
  if (text == nullptr) return kNobodys;
  uid_t user = kNobodys;
  const char* end = text + std::strlen(text);
  const auto [stopped, error] = std::from_chars(text, end, user);
  return error == std::errc() && stopped == end ? user : kNobodys;
}

bool isFromParent(int channel) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(channel, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.pid == ::getppid() && (peer.uid == 0 || peer.uid == invokingUser());
}

bool silenceStandardEnds() {
  const int nowhere = ::open("/dev/null", O_RDWR);
  if (nowhere < 0) return false;
  for (const int end : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::dup2(nowhere, end) < 0) return false;
  }
  if (nowhere > STDERR_FILENO) ::close(nowhere);
  return true;
}

void closeAllBut(int kept) {
  const auto first = static_cast<unsigned>(STDERR_FILENO + 1);
  const auto number = static_cast<unsigned>(kept);
  if (number > first) ::close_range(first, number - 1, 0);
  ::close_range(number + 1, ~0U, 0);
}

void resetSignals() {
  for (int number = 1; number < NSIG; ++number) {
    // What is pending is forgotten when it is ignored.
    ::signal(number, SIG_IGN);
    ::signal(number, SIG_DFL);
  }
  // A report whose reader has gone; what a session's end sends to everybody, since tools still run;
  // and what a terminal sends, which asks for no rights: who leads a process group cannot leave the
  // terminal's session.
  for (const int number : {SIGPIPE, SIGHUP, SIGTERM, SIGINT, SIGQUIT, SIGTSTP})
    ::signal(number, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::prctl(PR_SET_PDEATHSIG, 0);
  ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

void resetTimers() {
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::setitimer(ITIMER_VIRTUAL, &never, nullptr);
  ::setitimer(ITIMER_PROF, &never, nullptr);
}

void setLimit(__rlimit_resource resource, rlim_t soft, rlim_t hard) {
  rlimit limit{soft, hard};
  if (::setrlimit(resource, &limit) == 0) return;
  // Where even root may not raise it (capabilities(7), CAP_SYS_RESOURCE), as far as it goes.
  if (::getrlimit(resource, &limit) != 0) return;
  limit.rlim_cur = std::min(soft, limit.rlim_max);
  ::setrlimit(resource, &limit);
}

void resetLimits() {
  for (const auto resource : {RLIMIT_CPU, RLIMIT_FSIZE, RLIMIT_DATA, RLIMIT_AS, RLIMIT_RSS,
                              RLIMIT_NPROC, RLIMIT_LOCKS, RLIMIT_RTTIME, RLIMIT_SIGPENDING}) {
    setLimit(resource, RLIM_INFINITY, RLIM_INFINITY);
  }
  setLimit(RLIMIT_STACK, kStack, RLIM_INFINITY);
  setLimit(RLIMIT_NOFILE, kOpenFiles, kOpenFiles);
  setLimit(RLIMIT_MEMLOCK, kLockedMemory, kLockedMemory);
  setLimit(RLIMIT_MSGQUEUE, kMessageQueues, kMessageQueues);
  for (const auto resource : {RLIMIT_CORE, RLIMIT_NICE, RLIMIT_RTPRIO}) setLimit(resource, 0, 0);
}

void resetPriorities() {
  const sched_param ordinary{};
  ::sched_setscheduler(0, SCHED_OTHER, &ordinary);
  ::setpriority(PRIO_PROCESS, 0, 0);
  // By ioprio_set(2); some versions of its header are no C++.
  constexpr int kThisProcess = 1;
  constexpr int kNoClass = 0;
  ::syscall(SYS_ioprio_set, kThisProcess, 0, kNoClass);
  cpu_set_t all;
  std::memset(&all, 0xff, sizeof all);
  ::sched_setaffinity(0, sizeof all, &all);
  ::personality(PER_LINUX);
  if (const posix::FileDescriptor score(::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
      score) {
    [[maybe_unused]] const ssize_t written = ::write(score.get(), "0", 1);
  }
}

}  // namespace

posix::FileDescriptor takeChannel(const char*& why) {
  why = nullptr;
  if (::getuid() != 0 || ::geteuid() != 0) {
    why = "does not run as root";
  } else if (!channel::isChannel(STDIN_FILENO)) {
    why = "its standard input is no channel";
  } else if (!isFromParent(STDIN_FILENO)) {
    why = "its channel is not its parent's";
  }
  if (why != nullptr) return {};
  posix::FileDescriptor channel(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  const int on = 1;
  if (!channel || !silenceStandardEnds() ||
      ::setsockopt(channel.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) {
    why = "the system has no more descriptors";
    return {};
  }
  return channel;
}

void shedInheritance(const posix::FileDescriptor& kept) {
  closeAllBut(kept.get());
  ::clearenv();
  ::setsid();
  [[maybe_unused]] const int moved = ::chdir("/");
  ::umask(S_IWGRP | S_IWOTH);
  resetTimers();
  resetSignals();
  resetLimits();
  resetPriorities();
}

}  // namespace elevator
