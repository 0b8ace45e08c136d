#include "posix/PipeEnds.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace posix {
namespace {

FileDescriptor aboveStandardEnds(FileDescriptor descriptor) {
  if (!descriptor || descriptor.get() > STDERR_FILENO) return descriptor;
  return FileDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace

PipeEnds makePipe() {
  std::array<int, 2> numbers{};
  if (::pipe2(numbers.data(), O_CLOEXEC) != 0) return {};
  PipeEnds pipe = {FileDescriptor(numbers[0]), FileDescriptor(numbers[1])};
  pipe.reading = aboveStandardEnds(std::move(pipe.reading));
  pipe.writing = aboveStandardEnds(std::move(pipe.writing));
  if (!pipe.reading || !pipe.writing) return {};
  return pipe;
}

}  // namespace posix
