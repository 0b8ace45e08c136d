#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

using Data = std::vector<std::byte>;
using Environment = std::map<std::string, std::string>;

// The pipe between this process and one end of a child program.
class Pipe {
 public:
  virtual ~Pipe() = default;

  // The bytes that have arrived and were not yet read, at least one; blocks until there are some.
  // Empty at the end of the stream. Raises platform::Exception (kFileHandleOperation) when the
  // reading end was closed. What the child writes is taken as it comes, without limit, so that a
  // child never blocks because another of its pipes is being read first.
  virtual Data availableData() = 0;

  // Closes this process's reading end; a blocked availableData answers empty. Idempotent.
  virtual void closeReadingEnd() = 0;
};

// One run of one external program. Configure, launch once, wait.
//
// launch, waitUntilExit and the setters belong to one thread at a time; isRunning, terminate and
// terminationStatus may be called from any thread at any moment after launch. A Task that is
// dropped while its program runs leaves the program running; it never becomes a zombie.
class Task {
 public:
  // Where one standard end of the program leads.
  enum class End { inherit, nullDevice, pipe };

  static std::shared_ptr<Task> create();
  virtual ~Task() = default;

  // The absolute path of the program. A tool that this system lacks at the named path is replaced
  // by its equivalent at launch (see the platform's table of tools); the path answered by
  // launchPath stays as named.
  virtual void setLaunchPath(std::string path) = 0;
  virtual const std::string& launchPath() const = 0;
  // The arguments after the program's own name. Default: none.
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  // The whole environment of the program. Default: this process's own.
  virtual void setEnvironment(Environment environment) = 0;
  // Defaults: inherit.
  virtual void setStandardInput(End end) = 0;
  virtual void setStandardOutput(End end) = 0;
  virtual void setStandardError(End end) = 0;

  // Starts the program, with default signal dispositions, no blocked signals and no descriptors but
  // its three standard ends. Raises platform::Exception (kInvalidArgument) with the system's
  // reason when it cannot be started, or when it was launched before.
  virtual void launch() = 0;

  // The pipes of standard output and error; none unless the end is a pipe. Valid after launch.
  virtual std::shared_ptr<Pipe> standardOutputPipe() const = 0;
  virtual std::shared_ptr<Pipe> standardErrorPipe() const = 0;

  // Whether the program was launched and has not ended.
  virtual bool isRunning() = 0;
  // Blocks until the program has ended; returns at once when it was never launched.
  virtual void waitUntilExit() = 0;
  // Asks the program to end (SIGTERM). Nothing happens when it is not running.
  virtual void terminate() = 0;
  // The exit status, or the number of the signal that ended the program. Raises
  // platform::Exception (kInvalidArgument) while the program runs or was never launched.
  virtual int terminationStatus() = 0;
};

}  // namespace platform
