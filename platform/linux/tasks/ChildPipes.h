#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/Task.h"
#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform {

// Our ends of a child's standard output and error. They stand together because reading one takes
// in what arrives in the other: no thread is needed to keep the child from blocking.
class ChildPipes : public std::enable_shared_from_this<ChildPipes> {
 public:
  enum Stream : std::size_t { kOutput, kError };

  // The child must be known before anybody reads.
  void setChild(std::shared_ptr<ChildHandle> child) { child_ = std::move(child); }
  // Takes over a reading end and answers it as the Pipe that callers see. Throws
  // std::system_error.
  std::shared_ptr<Pipe> adopt(Stream stream, posix::FileDescriptor readingEnd);

  // What Pipe promises.
  std::size_t appendAvailableData(Stream stream, Data& data);
  void close(Stream stream);

 private:
  struct End {
    // Shared with a reader that waits for it, so that its number is not reused under the reader.
    std::shared_ptr<posix::FileDescriptor> descriptor;
    // An eventfd that ends the reader's wait when the end is closed.
    std::shared_ptr<posix::FileDescriptor> closing;
    // What was taken while somebody waited for the other stream.
    Data pending;
    bool atEnd = false;
    bool closed = false;
    // Whether a reader waits here; it then takes what arrives itself.
    bool awaited = false;
  };

  // Append what can be had without waiting; false when nothing can but more may come.
  bool take(End& end, Data& data);
  bool readOnce(End& end, Data& data);
  bool wasCutShort() const;
  void wait(std::unique_lock<std::mutex>& lock, End& own, End& other);

  // Guards ends_ and childEnded_; not held while a reader waits.
  std::mutex mutex_;
  std::array<End, 2> ends_;
  // The child's end, which wakes a reader once: it may be the end of a run that was cut short.
  bool childEnded_ = false;
  std::shared_ptr<ChildHandle> child_;
};

}  // namespace platform
