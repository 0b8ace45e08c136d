#include "platform/linux/personal/PersonsChild.h"

#include <fcntl.h>
#include <linux/stat.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <system_error>
#include <utility>

#include "platform/NoDestructor.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/bus/RemoteWire.h"
#include "platform/linux/personal/PassedDescriptor.h"

namespace platform::personal {
namespace {

using Clock = std::chrono::steady_clock;

// The largest file that anybody reads, and what goes with it.
constexpr std::size_t kLargestAnswer = (64U << 20) + 4096;

// The child sends it right after its answer.
constexpr std::chrono::milliseconds kPassing(500);

struct Children {
  std::mutex mutex;  // guards the map
  std::map<std::uint32_t, PersonsChild> byUser;
};

Children& children() {
  static NoDestructor<Children> instance;
  return *instance;
}

// Not by way of the main bundle, whose own information may be read through a child.
std::string program() {
  return path::appending(path::deletingLastComponent(process_info::executablePath()),
                         "session-helper");
}

ChildProgram programFor(std::uint32_t user, int socket) {
  ChildProgram child;
  child.path = program();
  child.arguments = helper_verb::words(helper_verb::Files{std::to_string(user)});
  child.arguments.insert(child.arguments.begin(), child.path);
  child.environment.emplace();
  // Not our standard error: whoever reads that must not wait for a child that cannot end.
  child.ends = {socket, ChildProgram::kNullDevice, ChildProgram::kNullDevice};
  return child;
}

// Without asking the file system, which may be one that does not answer.
bool belongsTo(const posix::FileDescriptor& folder, std::uint32_t user) {
  struct statx status {};
  return folder &&
         ::statx(folder.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_UID, &status) == 0 &&
         status.stx_uid == user;
}

}  // namespace

// static
PersonsChild& PersonsChild::of(std::uint32_t user) {
  Children& all = children();
  const std::lock_guard lock(all.mutex);
  return all.byUser.try_emplace(user, user).first->second;
}

Texts PersonsChild::ask(const Texts& request) {
  const std::lock_guard lock(mutex_);
  if (auto answer = exchange(request)) return std::move(*answer);
  const Status absent = statusFromErrno(ENOENT, request.size() > 1 ? request[1] : std::string());
  return {std::to_string(absent.code()), absent.description()};
}

posix::FileDescriptor PersonsChild::openFolder(const std::string& folder) {
  const std::lock_guard lock(mutex_);
  const auto answer = exchange({operation::kOpen, folder});
  if (!answer || answer->front() != kYes) return {};
  posix::FileDescriptor opened = receiveDescriptor(socket_.get(), kPassing);
  if (!belongsTo(opened, user_)) return {};
  return opened;
}

std::optional<Texts> PersonsChild::exchange(const Texts& request) {
  const auto begin = Clock::now();
  const auto deadline = begin + std::chrono::duration_cast<Clock::duration>(patience_);
  if (patience_.count() <= 0 || (!socket_ && !start())) return std::nullopt;
  std::optional<std::string> bytes;
  if (remote_wire::send(socket_.get(), encoded(request), deadline)) {
    bytes = remote_wire::receive(socket_.get(), kLargestAnswer, deadline);
  }
  auto answer = bytes ? decoded(*bytes) : std::nullopt;
  patience_ -= Clock::now() - begin;
  if (answer && !answer->empty()) return answer;
  giveUp();
  return std::nullopt;
}

bool PersonsChild::start() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
  posix::FileDescriptor ours(::fcntl(ends[0], F_DUPFD_CLOEXEC, 3));
  ::close(ends[0]);
  const posix::FileDescriptor theirs(::fcntl(ends[1], F_DUPFD_CLOEXEC, 3));
  ::close(ends[1]);
  try {
    child_ = std::make_unique<ChildProcess>(programFor(user_, theirs.get()));
  } catch (const std::system_error&) {
    return false;
  }
  socket_ = std::move(ours);
  return true;
}

// It is killed but not waited for: it may be waiting for the file system itself.
void PersonsChild::giveUp() {
  patience_ = {};
  child_->kill();
  child_.reset();
  socket_.reset();
}

}  // namespace platform::personal
