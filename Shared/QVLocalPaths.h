#pragma once

#include <optional>
#include <string>

#include "platform/Directories.h"

// Where the standard folders are, who the user is, names for temporary files, and the guard that
// tells which folders must never be removed or moved as a whole.
//
// Paths are absolute, without a trailing slash, in the bytes that the file system has; nothing is
// made. Where the platform has no such folder the answer is none, and so is everything built on it.
// A `user` flag takes true for the user's domain and false for the machine's local domain. Run by
// the superuser, the user's domain is that of the person at the console, asked anew at each call;
// with nobody there it has no folders. Nothing is raised. Any thread; may block on the user
// database.
class QVLocalPaths {
 public:
  using Directory = platform::directories::Kind;
  using DomainMask = platform::directories::DomainMask;

  QVLocalPaths() = delete;

  // The first folder that the platform names for `directory` in `domain`. As superuser in the
  // user's domain, what the platform answered is taken out of the superuser's home and put into the
  // console user's.
  static std::optional<std::string> pathForDirectory(Directory directory, DomainMask domain);

  static std::optional<std::string> applicationDirectory(bool user);
  static std::optional<std::string> adminApplicationDirectory(bool user);
  static std::optional<std::string> documentDirectory(bool user);
  static std::optional<std::string> libraryDirectory(bool user);
  // Library/Preferences.
  static std::optional<std::string> prefsDirectory(bool user);
  static std::optional<std::string> cacheDirectory(bool user);
  static std::optional<std::string> appSupportDirectory(bool user);
  // The user's.
  static std::optional<std::string> movieDirectory();
  static std::optional<std::string> desktopDirectory();
  // The system's own library.
  static std::optional<std::string> systemLibraryDirectory();
  // The machine's.
  static std::optional<std::string> localDocumentationDirectory();
  // Library/Logs.
  static std::optional<std::string> logDirectory(bool user);
  // .Trash in the user's home.
  static std::optional<std::string> trashDirectory();
  // The per-user folder for caches of programs; as superuser the superuser's own.
  static std::optional<std::string> darwinCacheDirectory();
  // The folder for temporary files.
  static std::optional<std::string> tempDirectory();

  // The user's home; as superuser the console user's.
  static std::optional<std::string> userDirectory();
  // The user's short name; as superuser the console user's.
  static std::optional<std::string> username();
  // The short name of the person at the console; none when nobody is logged in there.
  static std::optional<std::string> currentConsoleUser();

  // 36 characters that no other call answers.
  static std::string uuid();
  // `length` lower-case letters and digits, "" for a negative length. The C library's generator is
  // seeded at each call with processor time and date, so two calls in the same tick and second
  // answer the same: no secret, and unique only together with uuid().
  static std::string randomString(int length);
  // A path in the temporary folder that nothing else uses; no file is made.
  static std::string tempFile();

  // Whether `path` must not be removed or moved as a whole: "/", one of the folders above,
  // /Users/Shared, /Volumes and, unless `exactMatch`, everything whose path begins with the
  // characters /usr, /var, /private/var or /System. Compares the text as it is given, in exact
  // letter case: no link, "." or ".." is resolved. Of a path that ends in a slash the last two
  // characters (UTF-16 units) are left out before it is compared.
  static bool isPathSystemDirectory(const std::string& path);
  static bool isPathSystemDirectory(const std::string& path, bool exactMatch);

  // Whether `path` is inside a Time Machine backup on a mounted volume: it begins with /Volumes/
  // and one of its components is Backups.backupdb.
  static bool isPathOnTimeMachineVolume(const std::string& path);
};
