#pragma once

#include <memory>

#include "platform/Privilege.h"
#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform {

// A small program that stands in for the person: for as long as this object lives, it answers the
// authority's questions about this process with a name and a password, so that no dialog is shown.
// It is a program of its own because the libraries for that are many.
class AuthenticationAgent {
 public:
  // Starts the program; it gets ready while the caller does something else.
  explicit AuthenticationAgent(const privilege::Credentials& credentials);
  // Blocks until the authority has forgotten the program, which it does at once: it takes no other
  // for the same process before.
  ~AuthenticationAgent();
  AuthenticationAgent(const AuthenticationAgent&) = delete;
  AuthenticationAgent& operator=(const AuthenticationAgent&) = delete;

  // Blocks until the authority knows the program, for at most some seconds; answers whether it
  // does. If not, nothing must be asked: a dialog would be shown.
  bool waitUntilReady();
  // Becomes readable when the program has ended, so that it will not be asked.
  const posix::FileDescriptor& gone() const { return socket_; }

 private:
  // Takes over the program's end, so that the end of the program is the end of the stream.
  bool start(posix::FileDescriptor socket);

  std::unique_ptr<ChildProcess> program_;
  // Closing it tells the program that it is no longer needed.
  posix::FileDescriptor socket_;
  bool told_ = false;
  bool ready_ = false;
};

}  // namespace platform
