#pragma once

#include <optional>
#include <string>
#include <vector>

// Where the platform keeps things, and whose they are. Every answer is asked of the system anew.
// Any thread.
namespace platform::directories {

// Numbered as the platform numbers its search-path directories.
enum class Kind : unsigned {
  application = 1,
  adminApplication = 4,
  library = 5,
  documentation = 8,
  documents = 9,
  desktop = 12,
  caches = 13,
  applicationSupport = 14,
  movies = 17,
};

enum class DomainMask : unsigned { user = 1, local = 2, system = 8 };

// The folders of a kind in a domain, absolute, existing or not; empty when the platform knows none.
// The user domain is the calling user's home; as superuser the home of user id 0 in the user
// database, with the names of the localised folders (documents, desktop, movies) taken from the
// console user's settings, of which only folders below the home count.
std::vector<std::string> searchPaths(Kind kind, DomainMask domain);

// The folder for temporary files: $TMPDIR when it is absolute, else /tmp.
std::string temporaryDirectory();
// The calling user's folder for caches of programs; as superuser always the one in the home of user
// id 0, whatever the environment says.
std::optional<std::string> userCacheDirectory();

// The calling user's home: $HOME when it is absolute, else the user database's entry; as superuser
// always the database's. None when there is neither.
std::optional<std::string> homeDirectory();
// The home in the user database; none for an unknown user.
std::optional<std::string> homeDirectoryForUser(const std::string& userName);
// The calling user's short name in the user database.
std::optional<std::string> userName();
// The short name of the user whose session is on the screen of the machine's own seat; none when
// nobody is, when only a greeter is, or when no session service keeps a record.
std::optional<std::string> consoleUser();

// The home of user id 0 in the user database, whatever the environment says.
std::optional<std::string> superuserHome();

}  // namespace platform::directories
