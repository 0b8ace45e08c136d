#pragma once

#include <any>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Colour.h"
#include "platform/FileReference.h"

namespace platform {
class FileOperation;
}
struct QVFileOperationDelegate;

// The file layer: questions about items, changes of them, names, locks, permissions, sizes and
// waits. A class without instances and state; any thread may call anything. Paths are absolute, in
// the bytes that the file system has. Nothing raises: a question about a missing or unreadable item
// is answered with no, nothing or zero. Folders are listed in the order of their names' bytes.
class QVFileManager {
 public:
  using Path = std::optional<std::string>;

  QVFileManager() = delete;

  // Questions.

  // Whether something exists at the path; a link counts by its target.
  static bool fileExistsAtPath(const std::string& path);
  // Whether a folder is there; a link counts by its target.
  static bool isDirectoryAtPath(const std::string& path);
  // Whether the item is a folder that is shown as one file, such as an application.
  static bool isPackageAtPath(const std::string& path);
  // Whether the item itself is a symbolic link, wherever it leads.
  static bool isSymbolicLinkAtPath(const std::string& path);
  // Whether the item itself has the immutable flag.
  static bool isFileLocked(const std::string& path);

  // Whether the volume that the path is on is there: no only when the path begins with "/Volumes"
  // (as text: "/VolumesX" does too), has at least three components, and nothing exists at the first
  // three of them.
  static bool isVolumeMountedForPath(const std::string& path);
  // The same for paths that begin with "/Volumes/"; writes the mount point that it looked for, with
  // a doubled slash in front, to the platform's console.
  static bool isDriveMountedForPath(const std::string& path);

  // A reference to the item; one that refers to nothing when there is none.
  static platform::FileReference stringToFSRef(const std::string& path);
  // The path that a reference leads to; "" when it refers to nothing.
  static std::string stringWithFSRef(const platform::FileReference& reference);
  // Tells file managers to look at the item again; a failure is not reported. See
  // SendFinderSyncEvent.
  static void notifyFileSystemChanged(const std::string& path);

  // Changes.
  //
  // Most have three forms. The one with `shouldAuth` does the work; what fails is then tried once
  // more with administrator rights if `shouldAuth` is set (QVAuthorization, which is for one thread
  // at a time), and a yes means only that the tool for it was started. The plain form is that with
  // `shouldAuth` set. The form with a time-out is the plain form and then waits, without
  // cancelling anything, until the disk shows the result: that is its answer, see ExistenceWait.h.
  // All block for the disk and while the person is asked. Failures are logged.
  //
  // Refused are none, an empty and a relative path and, but for a folder to be made, one whose last
  // component is no name (platform::path::namesItem). An item is unlocked before it is looked for,
  // which logs a missing one as an "Unable to unlock file"; a link that leads nowhere counts as
  // missing and stays.

  // Moves an item into the user's Trash, under another name where its own is taken; a missing item
  // is a success.
  static bool trashFile(const Path& path);
  static bool trashFile(const Path& path, bool shouldAuth);
  static bool trashFile(const Path& path, std::chrono::seconds timeout);
  // The same for each entry of a folder, which stays. Every entry is attempted; yes when none
  // failed, so also for an empty or unreadable folder.
  static bool trashDirectoryContents(const std::string& folder);
  static bool trashDirectoryContents(const std::string& folder, bool shouldAuth);
  // Trash the files in a folder that have the extension `type` ("log", in either letter case; "" is
  // none) or are called exactly `name`, at every depth and through links to folders, and answer
  // their paths, those that could not be trashed too. A folder is never trashed but gone through,
  // an application called "A.app" as well.
  static std::vector<std::string> trashFilesOfType(const std::string& type,
                                                   const std::string& folder);
  static std::vector<std::string> trashFilesNamed(const std::string& name,
                                                  const std::string& folder);

  // Removes an item for good, a folder with everything in it; a missing item is a success.
  static bool removeFile(const Path& path);
  static bool removeFile(const Path& path, bool shouldAuth);
  static bool removeFile(const Path& path, std::chrono::seconds timeout);
  // Removes a folder that holds nothing of value (isFolderEmpty); no when it does, and for what is
  // not a folder.
  static bool removeFolderIfEmpty(const std::string& folder);

  // Makes a folder and the missing ones above it; one that is there already is a success. On a
  // drive that is not mounted (isDriveMountedForPath) nothing is made, which the platform's console
  // is told.
  static bool createDirectory(const Path& path);
  static bool createDirectory(const Path& path, bool shouldAuth);
  static bool createDirectory(const Path& path, std::chrono::seconds timeout);
  // Makes, below `destination`, the whole path of the folder `path`, or of the folder in which that
  // is if it is anything else, a package included or nothing. Answers the path made: "/dest/a/b"
  // for the folder "/a/b", also when it could not be made; "" for an empty destination.
  static std::string createDirectoryStructure(const std::string& path,
                                              const std::string& destination);

  // Copies an item, recursively, to the full new path, whose parent must exist and is unlocked. It
  // fails when something is there; with administrator rights that is replaced or, a folder, copied
  // into. A path that is none is logged and printed.
  static bool copyFile(const Path& source, const Path& destination);
  static bool copyFile(const Path& source, const Path& destination, bool shouldAuth);
  static bool copyFile(const Path& source, const Path& destination, std::chrono::seconds timeout);
  // The same for each entry of a folder into another one that exists, each with the whole time-out
  // and logged by its name. Ends at the first failure; nothing is undone. Yes for an empty or
  // unreadable folder.
  static bool copyContentsOfDirectory(const std::string& source, const std::string& destination,
                                      std::chrono::seconds timeout);

  // Moves an item to the full new path. It fails when something else is there; with administrator
  // rights that is replaced or, a folder, moved into. A name may change in letter case only, which
  // works on every file system by way of another free name; the form with a time-out then does not
  // wait. What is at the destination is unlocked, and where that is a folder, so is everything in
  // the folder in it that has the source's name.
  static bool moveFile(const Path& source, const Path& destination);
  static bool moveFile(const Path& source, const Path& destination, bool shouldAuth);
  static bool moveFile(const Path& source, const Path& destination, std::chrono::seconds timeout);
  // Makes an empty file, with administrator rights where the user may not: it is made among the
  // temporary files and moved, so all that holds of moveFile holds of it.
  static bool createEmptyFile(const Path& path);

  // Copies with progress.

  // Starts to copy a file, folder or package to the full path `destination` in the background, and
  // answers whether it was started. The folder that it goes to is made first if it is missing,
  // waited for at most ten seconds; a missing source makes none. The delegate, if there is one, is
  // told by the main loop, which must be running for that, and is kept until the copy has ended;
  // the objects come with each message. See QVFileOperationDelegate.h.
  //
  // The copy is platform::file_system::copy: whole or not at all, and nothing that exists is
  // replaced. What fails before it begins answers no, and the platform's console is told why; what
  // fails afterwards is only told as the end. When the application ends first, so does the copy,
  // and leaves nothing.
  static bool copyFileWithProgress(const std::string& source, const std::string& destination,
                                   const std::shared_ptr<QVFileOperationDelegate>& delegate,
                                   const std::any& object);
  static bool copyFileWithProgress(const std::string& source, const std::string& destination,
                                   const std::shared_ptr<QVFileOperationDelegate>& delegate,
                                   const std::any& object, const std::any& object2);
  // Ends a copy that a message came with: nothing more is copied, what has been copied is removed,
  // and its end is told as usual. Answers at once; does nothing to a copy that has ended.
  static void cancelFileOperation(const std::shared_ptr<platform::FileOperation>& operation);

  // Names.

  // The items that a path with wildcards leads to. A component with a "*" in it stands for the
  // names that are like it (platform/Wildcard.h), hidden ones included; any other must exist. The
  // search begins at `base`, without one at "/", and each component "/" leads back there: an
  // absolute pattern is read relative to the base, and one that ends with a slash gives the base.
  // Without any "*" the answer is the base joined with the pattern, existing or not. Sorted by the
  // bytes of the names, folder by folder. Blocks for the disk.
  static std::vector<std::string> filesMatchingWildcardPath(const std::string& pattern);
  static std::vector<std::string> filesMatchingWildcardPath(const std::string& pattern,
                                                            const std::optional<std::string>& base);
  // The first of them; when there is none, the base joined with the pattern (none without a base).
  static std::optional<std::string> decodeWildcardPath(const std::string& pattern,
                                                       const std::optional<std::string>& base);

  // A name as a person has typed it, made fit for a file: without one dot at its beginning, then
  // without white space at its ends, then without slashes and colons. "" for ".", and it may be
  // empty otherwise.
  static std::string validateFilename(const std::string& name);
  // The path, or, when something exists there, the first of "<path> 2", "<path> 3", ... at which
  // nothing does; the number stands before the last extension.
  static std::string uniqueFilename(const std::string& path);

  // Locks, permissions and sizes.

  // Set and clear the immutable flag of the item itself. A failure of either is logged as "Unable
  // to unlock file". Clearing a flag that is not set succeeds where the file system has the flag.
  static void lockFile(const std::string& path);
  static void unlockFile(const std::string& path);
  // The same for everything in a folder that is not a folder, at every depth and through links to
  // folders; the folders themselves keep their flags. Each folder is gone through once, however
  // many links lead to it.
  static void lockFolder(const std::string& folder);
  static void unlockFolder(const std::string& folder);

  // Sets the permission bits (0 to 07777) of the item, of a link's target. A failure is logged.
  static void setPosixPermissions(std::uint64_t permissions, const std::string& path);

  // The bytes of a file; of a folder, and of a link to one, the sum over everything in it, links to
  // folders included, where a link that leads back up adds nothing. A link to anything else counts
  // with its own size. 0 for a missing item.
  static std::int64_t fileSize(const std::string& path);

  // Whether the folder holds nothing of value: nothing but ".DS_Store", "Icon\r" and folders, or
  // links to folders, that are empty in the same sense. Also of a missing or unreadable folder.
  static bool isFolderEmpty(const std::string& folder);

  // Sets the item's times to now with /usr/bin/touch, waiting at most 5 seconds, and answers yes;
  // a missing item is not made, which is a yes all the same where its folder is writable. Where the
  // user may not write, the tool is run with administrator rights and its success is the answer.
  // With `setCreationDate` the date of creation as well, where the file system lets it be set. No
  // path gives no.
  static bool touchFile(const std::optional<std::string>& path);
  static bool touchFile(const std::optional<std::string>& path, bool setCreationDate);

  // Waits for files that another process is making. Both block the calling thread.

  // Looks once: when the file is missing or empty, and the look has not taken longer than
  // `timeout`, logs that and pauses for 500 microseconds.
  static void waitForFileCreation(const std::string& path, std::chrono::seconds timeout);
  // Waits, without limit, until the file was last changed more than 4 seconds ago, looking every
  // 500 microseconds, and logs that it does. A file that was not changed so lately is not waited
  // for; with a file called `lockName` beside it, that is logged all the same, and a missing file
  // is then waited for.
  static void waitForFileWrites(const std::string& path);
  static void waitForFileWrites(const std::string& path,
                                const std::optional<std::string>& lockName);

  // Colour labels, as file browsers show them. They are kept with the item itself; a symbolic link
  // and what is neither file nor folder have none.

  // The item's whole flags word, 0 to 65535, of which bits 1 to 3 are the label; 0 when it cannot
  // be read.
  static int finderColorIndexForPath(const std::string& path);
  // Puts bits 1 to 3 of `index` into the item's flags word and keeps everything else. A failure is
  // not reported; no path does nothing.
  static void setFinderColorIndex(int index, const std::optional<std::string>& path);
  // The colour of an index: 2 and 3 grey, 4 and 5 green, 6 and 7 purple, 8 and 9 blue, 10 and 11
  // yellow, 12 and 13 red, 14 and 15 orange. None for any other, so for a flags word that has
  // something above bit 3 as well.
  static std::optional<platform::Colour> finderColorForColorIndex(int index);
  static std::optional<platform::Colour> finderColorForPath(const std::string& path);

  // A size in bytes for a person: "1023 B", and from 1024 of one unit on the next: "1.00 KB",
  // "1.00 MB", "1.00 GB", always with a decimal point. What is no number is shown in GB, and
  // anything negative in B.
  static std::string formatFileSize(double size);

  // Zip archives, made and unpacked by the program /usr/bin/ditto (or what the system has in its
  // place), which is waited for without limit. The answer is whether something is at the
  // destination afterwards, whatever the program said; where something could not be taken away from
  // there before, the program must also have succeeded.

  // Puts an item into a new archive; a folder's own name goes in before those of its contents
  // unless `includeParent` is false. An archive that is there is trashed first, see trashFile;
  // one that cannot be is replaced whole.
  static bool compressFile(const std::string& source, const std::string& archive);
  static bool compressFile(const std::string& source, const std::string& archive,
                           bool includeParent);
  // Unpacks an archive into a new folder. One that is there is moved to the Trash first, as the
  // desktop does it and never with administrator rights; into one that cannot be the items are
  // unpacked beside and over those that are there.
  static bool decompressFile(const std::string& archive, const std::string& folder);

  // Makes an application bundle known to the desktop; whether that succeeded.
  static bool registerApplicationWithLaunchServices(const std::string& path);
};

// Tells file managers to look at the item again, by an event of its attributes; its times and
// permissions stay. Answers 0 or the system's error number: for a reference that refers to nothing
// nothing is sent. Any thread; waits for nobody.
std::int16_t SendFinderSyncEvent(const platform::FileReference& reference);
