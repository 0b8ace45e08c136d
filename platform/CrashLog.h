#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

// What is left behind when this process crashes: a text for the makers with the program, its
// version, the date, what happened, and the backtrace of the thread that it happened to.
namespace platform::crash_log {

// From now on a crash of this process writes a crash log into `folder`, which is made if it is
// missing, before the process dies as it would have died without: by the same signal, with a core
// dump where one is made. A mistake that somebody handles already, such as a sanitizer, is left to
// them. Answers false, and changes nothing, when there is no such folder and none can be made.
//
// The log is named <CFBundleName>_<local date>_<host>.crash, is readable by the folder's owner
// alone and belongs to that owner, also when the superuser crashes; it appears when it is whole.
// Where that is impossible (full disk, no rights) or takes longer than five seconds, there is none.
//
// Call once, early, on the main thread, before there are others. Blocks for the disk.
bool installWriter(const std::string& folder);

// Lets the calling thread leave a crash log even when it has used up its stack, as long as this
// lives. The main thread needs none. Does nothing, and takes nothing, without a writer.
class ThreadReserve {
 public:
  ThreadReserve();
  ~ThreadReserve();
  ThreadReserve(const ThreadReserve&) = delete;
  ThreadReserve& operator=(const ThreadReserve&) = delete;

 private:
  struct Stack;
  std::unique_ptr<Stack> stack_;
};

// Runs `work` on a new thread that has such a reserve. An exception that it lets through ends the
// process. Raises std::system_error when no thread can be made.
std::thread startThread(std::function<void()> work);

}  // namespace platform::crash_log
