#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Data.h"

namespace platform {

using Environment = std::map<std::string, std::string>;

// The pipe between this process and one end of a child program. Thread-safe; one thread reads.
class Pipe {
 public:
  virtual ~Pipe() = default;

  // Appends to `data` the bytes that have arrived and were not yet read and answers how many;
  // blocks until there is at least one. Answers 0 at the end of the stream: when everybody who had
  // the other end, the program or one that it started, has closed it, or when the program ended
  // after Task::terminate and what it had written by then has been read.
  //
  // While it blocks, what arrives in the task's other pipe is taken too, without limit, and kept
  // for that pipe's reader, so that a program never waits for its pipes to be read in another
  // order. Raises platform::Exception (kFileHandleOperation) when this end was closed before the
  // call, or with the system's reason when reading fails.
  virtual std::size_t appendAvailableData(Data& data) = 0;

  // The same as a block of its own, empty at the end of the stream.
  Data availableData() {
    Data data;
    appendAvailableData(data);
    return data;
  }

  // Closes this process's reading end; whoever reads, blocked already or later, sees the end of the
  // stream. Idempotent; does not block.
  virtual void closeReadingEnd() = 0;
};

// One run of one external program. Configure, launch once, wait.
//
// launch, waitUntilExit and the setters belong to one thread at a time; everything else may be
// called from any thread at any moment. A Task that is dropped while its
// program runs leaves the program running; it never becomes a zombie. No child process but the
// task's own is ever collected.
class Task {
 public:
  // Where one standard end of the program leads.
  enum class End { inherit, nullDevice, pipe };

  static std::shared_ptr<Task> create();
  virtual ~Task() = default;

  // Whether there is something to start under the name `launchPath`: the calling user may execute
  // it, or it is missing and this system has an equivalent for it.
  static bool canLaunch(const std::string& launchPath);

  // The absolute path of the program. A tool that this system lacks at the named path is replaced
  // by its equivalent at launch (see the platform's table of tools); the path answered by
  // launchPath stays as named.
  virtual void setLaunchPath(std::string path) = 0;
  virtual const std::string& launchPath() const = 0;
  // The arguments after the program's own name. Default: none.
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  // The whole environment of the program. Default: this process's own.
  virtual void setEnvironment(Environment environment) = 0;
  // Defaults: inherit. An inherited end that this process has closed leads to the null device. A
  // standard input that is a pipe stays open and empty for as long as the Task exists.
  virtual void setStandardInput(End end) = 0;
  virtual void setStandardOutput(End end) = 0;
  virtual void setStandardError(End end) = 0;

  // Starts the program, with default signal dispositions, no blocked signals and no descriptors but
  // its three standard ends. Blocks until the program has been loaded, well below a millisecond.
  // Raises platform::Exception (kInvalidArgument) with the system's reason when it cannot be
  // started, or when the task was launched before.
  virtual void launch() = 0;

  // The pipes of standard output and error; null before the launch and when the end is no
  // pipe.
  virtual std::shared_ptr<Pipe> standardOutputPipe() const = 0;
  virtual std::shared_ptr<Pipe> standardErrorPipe() const = 0;

  // Whether the program was launched and has not ended.
  virtual bool isRunning() = 0;
  // Blocks until the program has ended; returns at once when it was never launched.
  virtual void waitUntilExit() = 0;
  // Asks the program to end (SIGTERM), which it may ignore. Nothing happens when it has ended; when
  // it was not launched yet, launch asks as soon as it runs.
  virtual void terminate() = 0;
  // The exit status, or the number of the signal that ended the program; 255 when the system did
  // not keep it, because SIGCHLD is ignored. Raises platform::Exception (kInvalidArgument) while
  // the program runs or was never launched.
  virtual int terminationStatus() = 0;
};

}  // namespace platform
