#pragma once

#include <memory>
#include <string>

namespace platform {

// Asks the system neither to sleep nor to shut down for as long as one lives. The system may not
// know how to be asked, or refuse, or the person may insist: nothing then keeps it from either, and
// nobody is told. A session that merely ends is another matter, see
// application::ignoreTerminationRequests.
class InhibitorLock {
 public:
  // `reason` (UTF-8) is shown to a person who wants to shut down meanwhile. Blocks until the system
  // has answered, for at most three seconds, one of them when it is there and silent. Any thread.
  explicit InhibitorLock(const std::string& reason);
  // Ends the wish at once. A process that ends in whatever way ends its wishes.
  ~InhibitorLock();
  InhibitorLock(const InhibitorLock&) = delete;
  InhibitorLock& operator=(const InhibitorLock&) = delete;

  // Whether the system has agreed.
  bool isGranted() const;

 private:
  class Wish;
  const std::unique_ptr<Wish> wish_;
};

}  // namespace platform
