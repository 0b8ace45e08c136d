#pragma once

#include <sys/resource.h>

namespace test {

// Keeps the process's user from getting any further thread or process while it lives; no effect on
// the superuser.
class ThreadLimit {
 public:
  ThreadLimit() {
    ::getrlimit(RLIMIT_NPROC, &before_);
    const rlimit none = {1, before_.rlim_max};
    isSet_ = ::setrlimit(RLIMIT_NPROC, &none) == 0;
  }
  ~ThreadLimit() { ::setrlimit(RLIMIT_NPROC, &before_); }
  ThreadLimit(const ThreadLimit&) = delete;
  ThreadLimit& operator=(const ThreadLimit&) = delete;

  bool isSet() const { return isSet_; }

 private:
  rlimit before_ = {};
  bool isSet_ = false;
};

}  // namespace test
