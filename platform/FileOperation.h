#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/PropertyList.h"
#include "platform/Status.h"

namespace platform {

// One copy that runs in the background and reports on the main thread, as the platform's own file
// operations do: create, schedule, begin, be told, and unschedule when it is complete. While it
// runs it needs no other owner than itself.
//
// Every function may be called from any thread and blocks for nothing.
class FileOperation {
 public:
  // The platform's numbers.
  enum class Stage : long { undefined = 0, preflighting = 1, running = 2, complete = 3 };

  // The entries of a status, under the platform's names for them. All are integers, but for the
  // current item.
  //
  // Bytes are those of all files by their sizes: holes count as the zeros that they read as, each
  // name of a hard-linked file as a file. Objects are files, folders, links and all else. (The
  // platform also counts objects as a person sees them, a package as one; that is not told here.)
  static constexpr char kTotalBytes[] = "kFSOperationTotalBytesKey";
  static constexpr char kBytesComplete[] = "kFSOperationBytesCompleteKey";
  static constexpr char kBytesRemaining[] = "kFSOperationBytesRemainingKey";
  static constexpr char kTotalObjects[] = "kFSOperationTotalObjectsKey";
  static constexpr char kObjectsComplete[] = "kFSOperationObjectsCompleteKey";
  static constexpr char kObjectsRemaining[] = "kFSOperationObjectsRemainingKey";
  // Bytes a second since the last report.
  static constexpr char kThroughput[] = "kFSOperationThroughputKey";
  // The path, a text, of the item of the source that was copied last or is being copied. The
  // platform has it beside the status.
  static constexpr char kCurrentItem[] = "kFSOperationCurrentItemKey";

  // How far the operation is. It preflights as long as it is not known how much there is to do,
  // which is found out while it is already being copied: the totals are then what was found up to
  // now. They never shrink, and what is complete never passes them: a source that grows meanwhile
  // raises them. When all is copied they are what was copied.
  struct Report {
    Stage stage = Stage::undefined;
    // Why the copy failed, once it is complete; ECANCELED when it was cancelled.
    Status result;
    PropertyList::Dictionary status;
  };
  using Callback =
      std::function<void(const std::shared_ptr<FileOperation>& operation, const Report& report)>;

  static std::shared_ptr<FileOperation> create();
  virtual ~FileOperation() = default;

  // Has the reports delivered by the main loop. Fails when that has ended, or when they are
  // already.
  virtual Status schedule() = 0;

  // Has no further report delivered but one that is already on its way. Fails when none was to be.
  virtual Status unschedule() = 0;

  // Starts to copy the item at `source` to the name `name` in `folder`, as file_system::copy does:
  // whole or not at all, and only where nothing has that name. Everything that goes wrong with that
  // is for the last report to tell; what fails here, with no report to come, are a text that is no
  // path, a second start, a process that has no room for another thread, and an application that is
  // ending.
  //
  // `callback` runs on the main thread: as long as something is copied, whenever `minimumInterval`
  // has passed since the beginning or the last time; a main thread that was busy is given one
  // report that is true then. A copy that was never reported to be running is so when all is
  // copied. Last comes, once and at once, the report that the operation is complete, and `callback`
  // is let go. A platform::Exception that it lets through is written to the console.
  //
  // When the application ends first, the copy is cancelled and the application waits for its
  // remains to be removed, at most ten seconds.
  virtual Status beginCopy(const std::string& source, const std::string& folder,
                           const std::string& name, Callback callback,
                           std::chrono::duration<double> minimumInterval) = 0;

  // Ends the copy soon: unless it is complete by then, nothing stays of it, and what has been
  // copied is removed before the last report. Without a copy, nothing.
  virtual void cancel() = 0;
};

}  // namespace platform
