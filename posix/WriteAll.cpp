#include "posix/WriteAll.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace posix {
namespace {

bool waitUntilWritable(int descriptor) {
  pollfd waited{descriptor, POLLOUT, 0};
  return ::poll(&waited, 1, -1) > 0 || errno == EINTR;
}

}  // namespace

WriteResult writeAll(int descriptor, std::string_view bytes) {
  WriteResult result;
  while (result.written < bytes.size()) {
    const std::string_view rest = bytes.substr(result.written);
    const ssize_t count = ::write(descriptor, rest.data(), rest.size());
    if (count >= 0) {
      result.written += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN && waitUntilWritable(descriptor)) {
      continue;
    } else if (errno != EINTR) {
      result.error = errno;
      break;
    }
  }
  return result;
}

}  // namespace posix
