#include "platform/linux/tasks/ChildPipes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/Exception.h"

namespace platform {
namespace {

// What a pipe is asked to hold: the more fits, the fewer times reader and writer take turns.
constexpr int kPipeCapacity = 1 << 20;
// Room for the beginning; nearly every program says less. A longer stream is taken by whole pipes.
constexpr std::size_t kFirstRoom = 1 << 16;

std::system_error systemError(const char* what) {
  return std::system_error(errno, std::generic_category(), what);
}

class ReadingEnd : public Pipe {
 public:
  ReadingEnd(std::shared_ptr<ChildPipes> pipes, ChildPipes::Stream stream)
      : pipes_(std::move(pipes)), stream_(stream) {}
  ~ReadingEnd() override { pipes_->close(stream_); }
  ReadingEnd(const ReadingEnd&) = delete;
  ReadingEnd& operator=(const ReadingEnd&) = delete;

  std::size_t appendAvailableData(Data& data) override {
    return pipes_->appendAvailableData(stream_, data);
  }
  void closeReadingEnd() override { pipes_->close(stream_); }

 private:
  const std::shared_ptr<ChildPipes> pipes_;
  const ChildPipes::Stream stream_;
};

}  // namespace

std::shared_ptr<Pipe> ChildPipes::adopt(Stream stream, posix::FileDescriptor readingEnd) {
  ::fcntl(readingEnd.get(), F_SETFL, O_NONBLOCK);
  // Refused where the user's share of pipe memory is used up; the pipe then stays as it is.
  ::fcntl(readingEnd.get(), F_SETPIPE_SZ, kPipeCapacity);
  posix::FileDescriptor closing(::eventfd(0, EFD_CLOEXEC));
  if (!closing) throw systemError("eventfd");
  ends_[stream].descriptor = std::make_shared<posix::FileDescriptor>(std::move(readingEnd));
  ends_[stream].closing = std::make_shared<posix::FileDescriptor>(std::move(closing));
  return std::make_shared<ReadingEnd>(shared_from_this(), stream);
}

std::size_t ChildPipes::appendAvailableData(Stream stream, Data& data) {
  std::unique_lock lock(mutex_);
  End& own = ends_[stream];
  End& other = ends_[stream == kOutput ? kError : kOutput];
  const std::size_t before = data.size();
  while (!own.closed && !take(own, data)) wait(lock, own, other);
  return data.size() - before;
}

// The program that was asked to end has ended, so that nobody waits for what its own children,
// who may have the pipe still, have to say.
bool ChildPipes::wasCutShort() const {
  if (!child_->terminationAsked) return false;
  pollfd process = {child_->pidfd.get(), POLLIN, 0};
  return ::poll(&process, 1, 0) > 0;
}

bool ChildPipes::take(End& end, Data& data) {
  if (end.pending.empty()) return end.atEnd || readOnce(end, data);
  data.append(end.pending);
  end.pending = {};
  return true;
}

bool ChildPipes::readOnce(End& end, Data& data) {
  const bool last = wasCutShort();
  const bool beginning = data.size() < kFirstRoom && !last;
  const std::span<std::byte> room = data.room(beginning ? kFirstRoom : kPipeCapacity);
  ssize_t count = 0;
  do {
    count = ::read(end.descriptor->get(), room.data(), room.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0 && errno != EAGAIN) {
    throw Exception(exception_name::kFileHandleOperation, std::strerror(errno));
  }
  if (count > 0) data.extend(static_cast<std::size_t>(count));
  end.atEnd = count == 0 || last;
  return count > 0 || end.atEnd;
}

void ChildPipes::wait(std::unique_lock<std::mutex>& lock, End& own, End& other) {
  const bool watchesOther = other.descriptor != nullptr && !other.atEnd && !other.awaited;
  const std::array held = {own.descriptor, own.closing, watchesOther ? other.descriptor : nullptr};
  std::array<pollfd, 4> watched = {};
  for (std::size_t i = 0; i < held.size(); ++i) {
    watched[i] = {held[i] != nullptr ? held[i]->get() : -1, POLLIN, 0};
  }
  watched[3] = {childEnded_ ? -1 : child_->pidfd.get(), POLLIN, 0};

  own.awaited = true;
  lock.unlock();
  ::poll(watched.data(), watched.size(), -1);
  lock.lock();
  own.awaited = false;
  childEnded_ = childEnded_ || watched[3].revents != 0;
  const bool otherIsOurs = !other.awaited && !other.closed && !other.atEnd;
  if (watched[2].revents != 0 && otherIsOurs) readOnce(other, other.pending);
}

void ChildPipes::close(Stream stream) {
  const std::lock_guard lock(mutex_);
  End& end = ends_[stream];
  end.closed = true;
  end.descriptor.reset();
  end.pending = {};
  ::eventfd_write(end.closing->get(), 1);
}

}  // namespace platform
