#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

// The administrator's rights of this process: how they are obtained, and how a tool is run with
// them. The superuser has them, and comes here for the order in which tools run.
namespace platform::privilege {

// What became of a request for the administrator's rights.
enum class Outcome {
  granted,
  // The person dismissed the dialog.
  cancelled,
  // Wrong name or password, not an administrator, or nobody to ask.
  refused,
  // This system cannot grant them now: the service or one of our programs is missing or silent.
  unavailable,
  // There was no answer within the bound.
  timedOut,
};

struct Credentials {
  std::string userName;  // UTF-8; a short name of the user database
  std::string password;  // UTF-8; may be empty
};

// What a tool writes to its standard output, and its end. One thread at a time.
class ToolOutput {
 public:
  virtual ~ToolOutput() = default;

  // Reads into `buffer`, blocking until there is something; answers the number of bytes, 0 at the
  // end of the output, normally when the tool ends.
  virtual std::size_t read(std::span<std::byte> buffer) = 0;
  // Blocks until the tool has ended; answers its exit status, the number of the signal that ended
  // it, or -1 when it could not be started after all or when the session was lost first.
  virtual int terminationStatus() = 0;
};

// What becomes of a tool's standard output. Its standard error leads nowhere.
enum class Output {
  discarded,
  // To the caller, who must read it: a tool whose output is not read blocks in time.
  piped,
};

struct Execution {
  // 0 when the tool was accepted, else a positive error number of the system, or kSessionLost.
  int status = 0;
  // Set when the status is 0 and the output is piped.
  std::shared_ptr<ToolOutput> output;
};

// Execution::status when the session broke: it runs nothing any more and only a new one can.
inline constexpr int kSessionLost = 100001;

// Execution::status when the tool was not started because others may change where a path that it
// was given leads, and this system offers nothing that would make that harmless.
inline constexpr int kUnsafe = 100002;

// Whether nobody but the superuser can change where the paths that a tool is given lead, so that it
// may run without a session's care, see execute. Looks at each folder on the way.
bool isSafeAlone(const std::string& tool, const std::vector<std::string>& arguments);

// A reference to the administrator's rights, empty until they are obtained. All functions may be
// called from any thread and are serialised within one session. Dropping the last pointer ends it.
class Session {
 public:
  struct Creation {
    int status = 0;  // 0, or an error number of the system
    std::shared_ptr<Session> session;
  };
  // Makes a session without rights.
  static Creation create();

  // The session that a privileged parent handed to this process at its start; null when there is
  // none. Answered once: the second call answers null. Blocks for at most ten seconds.
  static std::shared_ptr<Session> inherited();

  virtual ~Session() = default;

  // Obtains the rights through the desktop's authentication dialog. Blocks while the person thinks,
  // for at most five minutes. As superuser nobody is asked.
  virtual Outcome askForRights() = 0;
  // Obtains the rights with a name and a password; no dialog is ever shown. Blocks for at most
  // thirty seconds.
  virtual Outcome obtainRights(const Credentials& credentials) = 0;

  // Runs `tool`, an absolute path, as the superuser, with `arguments` after its own name, a clean
  // environment and "/" as its directory. Only a regular file that nobody except the superuser can
  // have changed is run (else EACCES). Returns as soon as the tool is accepted. A tool that names a
  // path inside, above or equal to one of an earlier tool that has not ended starts when that has
  // ended; its piped output then ends at once, so that nobody who reads it stands as long as that
  // one runs. A started tool runs to its end, whatever becomes of this process. A tool that copies,
  // moves, makes, removes, touches or gives away files follows no link on the way to them through a
  // folder that others may change, but for one to a folder of the link's owner; where the system
  // cannot give it such a view it is refused with kUnsafe.
  virtual Execution execute(const std::string& tool, const std::vector<std::string>& arguments,
                            Output output) = 0;

  // Runs a program of one's own choosing, not as the superuser, that inherits this session: it
  // finds it with inherited(), on a channel of its own that ends with it. It has this process's
  // environment, and the channel as its standard input until it takes it. Blocks until the program
  // has ended; answers its exit status or the number of the signal that ended it, or -1 when it
  // could not be started. The session may be used meanwhile.
  virtual int runInheriting(const std::string& program,
                            const std::vector<std::string>& arguments) = 0;

  // Gives the rights back. Tools that run go on, and opening what they write no longer waits for
  // them. Idempotent.
  virtual void end() = 0;
};

// Keeps other processes of the same user away from this one: its memory and its descriptors can no
// longer be read by them. What it makes from now on others may not write to, whoever started it.
// Also takes the handed-down session, if any, out of the environment and
// out of what child programs inherit. Call first thing in `main`, before any thread.
void protectProcess();

}  // namespace platform::privilege
