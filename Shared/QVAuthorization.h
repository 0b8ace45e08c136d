#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Shared/NeverReleased.h"
#include "platform/Privilege.h"

// The one session with administrator's rights of this process, and the file operations that run
// through it. Each operation is a fixed command line of a standard system tool. The superuser needs
// nobody's leave; who the user is is asked anew at each call. Tools on overlapping paths run one
// after the other, in the order of the calls, the superuser's too.
//
// The operations return as soon as their tool is started and do not tell how it ended: a caller
// that needs the result waits for it on disk. Refusals are reported on the console, not in the log.
// The session takes no lock; use it from one thread at a time. Paths are absolute; none, an empty
// one and a relative one are refused, and what is removed, moved or trashed must have a name
// (platform::path::namesItem).
class QVAuthorization : public NeverReleased<QVAuthorization> {
 public:
  using Path = std::optional<std::string>;
  using Session = platform::privilege::Session;

  // Statuses of authExecTask, which otherwise answers 0 or the platform's positive number.
  static constexpr int kToolMissing = -2;
  static constexpr int kNotAuthorized = -1;

  // The shared instance, made by the first call: with init when `withGUI`, else with
  // initWithoutGUI. Later calls answer it unchanged whatever they pass. Any thread.
  static QVAuthorization& sharedController() { return sharedController(true); }
  static QVAuthorization& sharedController(bool withGUI);
  // Makes the shared instance without initialising it; null when there is one. Any thread.
  static QVAuthorization* allocWithZone();

  // Adopts a session that a privileged parent handed down, and, unless superuser, notes the home of
  // the user. With init the session may show the platform's authentication dialog.
  QVAuthorization* init() { return initialise(true); }
  QVAuthorization* initWithoutGUI() { return initialise(false); }

  // Obtains the rights, asking the person if need be; true at once when they are there. Without a
  // dialog it fails with a console line. Blocks while the person thinks, at most five minutes.
  bool authStart();
  // Obtains the rights of an administrator by name and password, without a dialog, in place of a
  // session that there was. False when either is none; an empty one is tried. A failure is reported
  // on the console and in the log. Blocks for at most thirty seconds.
  bool authStartWithUser(const std::optional<std::string>& user,
                         const std::optional<std::string>& password);
  // Gives the rights back; tools that run go on.
  void authEnd();
  bool isAuthorized() const;
  // Whether authStart has a chance: there is a dialog, or no need of one.
  bool canAuthorize() const;
  // What an end of the instance would do: authEnd.
  void dealloc() { authEnd(); }
  void finalize() { authEnd(); }

  const std::shared_ptr<Session>& authRef() const { return authRef_; }
  void setAuthRef(std::shared_ptr<Session> session) { authRef_ = std::move(session); }
  bool hasGUI() const { return hasGUI_; }
  void setHasGUI(bool hasGUI) { hasGUI_ = hasGUI; }

  // Runs a tool with administrator's rights: 0, kToolMissing, kNotAuthorized or the platform's
  // number. Without `async` it returns when the tool has closed its output, still with 0 whatever
  // the tool's exit status; a tool that must wait for an earlier one on its path is not waited for,
  // since that one may hang, and the caller with it. Starts the session if there is none yet. As
  // superuser always 0 or kToolMissing.
  int authExecTask(const std::string& tool, const std::vector<std::string>& parameters) {
    return authExecTask(tool, parameters, true);
  }
  int authExecTask(const std::string& tool, const std::vector<std::string>& parameters, bool async);

  // Removes an item, recursively; never a system directory.
  bool authRemoveFile(const Path& path);

  // Moves an item into the user's Trash, under a name with the time when its own is taken; never a
  // system directory. As superuser it is the Trash of the user whose home was noted by init, else
  // of the console user; with `deleteOnRootAccount` and no noted home, the superuser instead
  // removes what stands under that name in the Trash and leaves the item.
  bool authTrashFile(const Path& path) { return authTrashFile(path, false); }
  bool authTrashFile(const Path& path, bool deleteOnRootAccount);

  // The same for each entry of a folder; with `deleteOnRootAccount`, no noted home and as superuser
  // each entry is removed. Every entry is attempted; true when none failed, so also for an empty
  // or unreadable folder.
  bool authTrashFolderContents(const Path& folder) {
    return authTrashFolderContents(folder, false);
  }
  bool authTrashFolderContents(const Path& folder, bool deleteOnRootAccount);

  // Moves each entry of `source`, never a system directory, into `destination`, which must exist.
  // Every entry is attempted; true when none failed.
  bool authMoveFolderContents(const Path& source, const Path& destination);

  // Moves an existing item, never a system directory, over what is at the new path or, where that
  // is a folder, into it.
  bool authMoveFile(const Path& oldPath, const Path& newPath);
  // Copies an existing item likewise, with its modes, owners and times.
  bool authCopyFile(const Path& oldPath, const Path& newPath);
  // Makes a folder and those above it, then pauses for half a millisecond.
  bool authCreateDir(const Path& path);

 private:
  QVAuthorization() = default;

  QVAuthorization* initialise(bool withGUI);
  bool runTool(const std::string& tool, const std::vector<std::string>& parameters);
  int execFileTool(const std::string& tool, const std::vector<std::string>& parameters);
  // False when the tool would follow what others may change.
  bool startAsSuperuser(const std::string& tool, const std::vector<std::string>& parameters);
  // Answers as Session::execute does.
  int startInOrder(const std::string& tool, const std::vector<std::string>& parameters);
  int runThroughSession(const std::string& tool, const std::vector<std::string>& parameters,
                        bool async);
  Path trashPathFor(const std::string& path) const;
  bool trashEntry(const std::string& path, bool deleteOnRootAccount);

  void forgetSession();

  std::shared_ptr<Session> authRef_;
  // What a privileged parent has handed down, until it is ended.
  std::shared_ptr<Session> inherited_;
  // What puts the superuser's own tools in order; made when the first is run.
  std::shared_ptr<Session> ownTools_;
  bool hasGUI_ = false;
  // The home of the user who made the session; none when that was the superuser.
  std::optional<std::string> userDirectory_;
};
