#pragma once

#include <ostream>
#include <string>
#include <vector>

// Every way an update ends, for every kind of user: a row is one whole update, and says what is
// then in the log, on the screen and on the disk.
namespace outcome {

enum class Who {
  user,
  superuser,
  superuserAlone,  // with nobody at the console
};

// What becomes of a wish for an administrator's rights.
enum class Rights { granted, refused, cancelled, unasked, handedDown };

// Where the installed bundle is, or is to be.
enum class Place {
  own,         // in a folder of the person's
  foreign,     // in a folder of the superuser's
  free,        // nowhere, in a folder of the person's
  folderless,  // nowhere, and there is no folder either
};

enum class Trash { usable, taken, broken };

enum class Mount { none, image, empty, folder };

// What has become of the old bundle, and of the new one.
enum class Old { none, inTrash, inPlace, mergedInto };
enum class New { inPlace, asFolder, absent };

inline constexpr char kTrashing[] = "Trashing old application...";
inline constexpr char kTrashingWithRights[] = "Auth trashing old application...";
inline constexpr char kCopying[] = "Preparing to copy files...";
inline constexpr char kCopied[] = "File copy successful.";
inline constexpr char kLaunching[] = "Launching app...";
inline constexpr char kCleaning[] = "Cleaning up...";
inline constexpr char kNoSource[] = "Source file does not exist";
inline constexpr char kNotCopied[] = "The installer was unable to copy the file to its destination";

inline constexpr char kNoSourceAlert[] = "Alert: Unable to install - Source file does not exist.\n";
inline constexpr char kNotCopiedAlert[] =
    "Alert: Unable to install - The installer was unable to copy the file to its destination.\n";

struct Row {
  std::string name;
  // The machine.
  Who who = Who::user;
  Rights rights = Rights::granted;
  Place place = Place::own;
  bool source = true;
  Trash trash = Trash::usable;
  // The other arguments.
  bool silent = false;
  Mount mount = Mount::none;
  // The outcome: the log between the killing and the end, and the text of the alert if there is
  // one.
  std::vector<std::string> log = {};
  std::string alert = {};
  Old oldBundle = Old::inTrash;
  New newBundle = New::inPlace;
  bool opened = true;
};

inline void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

inline const std::vector<Row> kRows = {
    // A person's own folder. The copy needs rights even there.
    {.name = "OwnFolder", .log = {kTrashing, kCopying, kCopied, kLaunching}},
    {.name = "OwnFolderSilent",
     .silent = true,
     .log = {kTrashing, kCopying, kCopied},
     .opened = false},
    {.name = "OwnFolderRightsHandedDown",
     .rights = Rights::handedDown,
     .log = {kTrashing, kCopying, kCopied, kLaunching}},
    {.name = "OwnFolderRightsRefused",
     .rights = Rights::refused,
     .log = {kTrashing, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .newBundle = New::absent,
     .opened = false},
    {.name = "OwnFolderRightsRefusedSilent",
     .rights = Rights::refused,
     .silent = true,
     .log = {kTrashing, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .newBundle = New::absent,
     .opened = false},
    {.name = "OwnFolderRightsCancelled",
     .rights = Rights::cancelled,
     .log = {kTrashing, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .newBundle = New::absent,
     .opened = false},
    {.name = "OwnFolderNobodyToAsk",
     .rights = Rights::unasked,
     .log = {kTrashing, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .newBundle = New::absent,
     .opened = false},
    // After a failed copy the image stays mounted.
    {.name = "OwnFolderNobodyToAskWithImage",
     .rights = Rights::unasked,
     .mount = Mount::image,
     .log = {kTrashing, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .newBundle = New::absent,
     .opened = false},
    {.name = "OwnFolderTrashNameTaken",
     .trash = Trash::taken,
     .log = {kTrashing, kCopying, kCopied, kLaunching}},
    // What cannot be trashed either way is overwritten where it is.
    {.name = "OwnFolderTrashBroken",
     .trash = Trash::broken,
     .log = {kTrashing, kTrashingWithRights, kCopying, kCopied, kLaunching},
     .oldBundle = Old::mergedInto},

    // A folder in which the person may change nothing.
    {.name = "ForeignFolder",
     .place = Place::foreign,
     .log = {kTrashing, kTrashingWithRights, kCopying, kCopied, kLaunching}},
    {.name = "ForeignFolderSilent",
     .place = Place::foreign,
     .silent = true,
     .log = {kTrashing, kTrashingWithRights, kCopying, kCopied},
     .opened = false},
    {.name = "ForeignFolderRightsHandedDown",
     .rights = Rights::handedDown,
     .place = Place::foreign,
     .log = {kTrashing, kTrashingWithRights, kCopying, kCopied, kLaunching}},
    {.name = "ForeignFolderRightsRefused",
     .rights = Rights::refused,
     .place = Place::foreign,
     .log = {kTrashing, kTrashingWithRights, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .oldBundle = Old::inPlace,
     .newBundle = New::absent,
     .opened = false},
    {.name = "ForeignFolderRightsCancelled",
     .rights = Rights::cancelled,
     .place = Place::foreign,
     .log = {kTrashing, kTrashingWithRights, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .oldBundle = Old::inPlace,
     .newBundle = New::absent,
     .opened = false},
    {.name = "ForeignFolderNobodyToAsk",
     .rights = Rights::unasked,
     .place = Place::foreign,
     .log = {kTrashing, kTrashingWithRights, kCopying, kNotCopied},
     .alert = kNotCopiedAlert,
     .oldBundle = Old::inPlace,
     .newBundle = New::absent,
     .opened = false},

    // Nothing installed yet.
    {.name = "NothingInstalled",
     .place = Place::free,
     .log = {kCopying, kCopied, kLaunching},
     .oldBundle = Old::none},
    // The one case in which the ordinary copy succeeds: the folder itself becomes the bundle.
    {.name = "NoFolder",
     .rights = Rights::unasked,
     .place = Place::folderless,
     .log = {kCopying, kCopied, kLaunching},
     .oldBundle = Old::none,
     .newBundle = New::asFolder,
     .opened = false},

    // No source.
    {.name = "NoSource",
     .source = false,
     .log = {kNoSource},
     .alert = kNoSourceAlert,
     .oldBundle = Old::inPlace,
     .newBundle = New::absent,
     .opened = false},
    {.name = "NoSourceSilent",
     .source = false,
     .silent = true,
     .log = {kNoSource},
     .oldBundle = Old::inPlace,
     .newBundle = New::absent,
     .opened = false},

    // Mount paths that are none.
    {.name = "EmptyMountPath",
     .mount = Mount::empty,
     .log = {kTrashing, kCopying, kCopied, kLaunching, kCleaning}},
    {.name = "MountPathIsAFolder",
     .mount = Mount::folder,
     .log = {kTrashing, kCopying, kCopied, kLaunching, kCleaning}},

    // The superuser, for the person at the console.
    {.name = "Superuser",
     .who = Who::superuser,
     .place = Place::foreign,
     .mount = Mount::image,
     .log = {kTrashing, kCopying, kCopied, kLaunching, kCleaning}},
    {.name = "SuperuserSilent",
     .who = Who::superuser,
     .place = Place::foreign,
     .silent = true,
     .mount = Mount::image,
     .log = {kTrashing, kCopying, kCopied, kCleaning},
     .opened = false},
    {.name = "SuperuserWithoutMountPath",
     .who = Who::superuser,
     .place = Place::own,
     .log = {kTrashing, kCopying, kCopied, kLaunching}},
    {.name = "SuperuserNothingInstalled",
     .who = Who::superuser,
     .place = Place::free,
     .mount = Mount::image,
     .log = {kCopying, kCopied, kLaunching, kCleaning},
     .oldBundle = Old::none},
    {.name = "SuperuserNoFolder",
     .who = Who::superuser,
     .place = Place::folderless,
     .mount = Mount::image,
     .log = {kCopying, kCopied, kLaunching, kCleaning},
     .oldBundle = Old::none,
     .newBundle = New::asFolder,
     .opened = false},
    {.name = "SuperuserNoSource",
     .who = Who::superuser,
     .source = false,
     .log = {kNoSource},
     .alert = kNoSourceAlert,
     .oldBundle = Old::inPlace,
     .newBundle = New::absent,
     .opened = false},
    {.name = "SuperuserTrashNameTaken",
     .who = Who::superuser,
     .trash = Trash::taken,
     .silent = true,
     .log = {kTrashing, kCopying, kCopied},
     .opened = false},
    {.name = "SuperuserTrashBroken",
     .who = Who::superuser,
     .trash = Trash::broken,
     .silent = true,
     .log = {kTrashing, kTrashingWithRights, kCopying, kCopied},
     .oldBundle = Old::mergedInto,
     .opened = false},
    // Nobody's Trash: the old bundle is overwritten where it is, and nobody sees it opened.
    {.name = "SuperuserAlone",
     .who = Who::superuserAlone,
     .place = Place::foreign,
     .mount = Mount::image,
     .log = {kTrashing, kTrashingWithRights, kCopying, kCopied, kLaunching, kCleaning},
     .oldBundle = Old::mergedInto,
     .opened = false},
};

}  // namespace outcome
