#pragma once

#include <memory>

#include "platform/Privilege.h"
#include "platform/linux/ChildProcess.h"
#include "platform/linux/Descriptor.h"

namespace platform {

// A small program that stands in for the person: for as long as this object lives, it answers the
// authority's questions about this process with a name and a password, so that no dialog is shown.
// It is a program of its own because the libraries for that are many.
class Authenticator {
 public:
  // Blocks until the authority knows the program, for at most some seconds.
  explicit Authenticator(const privilege::Credentials& credentials);

  // Whether the authority will ask it. If not, nothing must be asked: a dialog would be shown.
  bool isReady() const { return ready_; }
  // Becomes readable when the program has ended, so that it will not be asked.
  const Descriptor& gone() const { return socket_; }

 private:
  bool start(const Descriptor& socket);

  // Its end closes first and is how the program learns that it is no longer needed.
  std::unique_ptr<ChildProcess> program_;
  Descriptor socket_;
  bool ready_ = false;
};

}  // namespace platform
