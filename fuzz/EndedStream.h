#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "posix/FileDescriptor.h"

// The end of a stream on which `size` bytes have come and no more will; empty when that is more
// than a socket holds.
inline posix::FileDescriptor endedStream(const std::uint8_t* data, std::size_t size) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  posix::FileDescriptor receiving(ends[0]);
  const posix::FileDescriptor sending(ends[1]);
  const ssize_t sent = ::send(sending.get(), data, size, MSG_DONTWAIT);
  return sent == static_cast<ssize_t>(size) ? std::move(receiving) : posix::FileDescriptor();
}
