#include "platform/linux/users/UserDatabase.h"

#include <pwd.h>

#include <cerrno>
#include <vector>

namespace platform::user_database {
namespace {

// An entry larger than this is nobody's.
constexpr std::size_t kLargestEntry = 1 << 20;

std::string textOf(const char* text) {
  return text != nullptr ? text : "";
}

// `find` is getpwuid_r or getpwnam_r with its key bound; its buffer grows until the entry fits.
template <class Find>
std::optional<User> lookUp(const Find& find) {
  for (std::size_t size = 1024; size <= kLargestEntry; size *= 4) {
    std::vector<char> buffer(size);
    passwd entry{};
    passwd* found = nullptr;
    const int error = find(&entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) continue;
    if (error != 0 || found == nullptr) return std::nullopt;
    return User{textOf(entry.pw_name), entry.pw_uid, entry.pw_gid, textOf(entry.pw_dir),
                textOf(entry.pw_shell)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<User> byId(std::uint32_t id) {
  return lookUp([id](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwuid_r(id, entry, buffer, size, found);
  });
}

std::optional<User> byName(const std::string& name) {
  return lookUp([&name](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwnam_r(name.c_str(), entry, buffer, size, found);
  });
}

}  // namespace platform::user_database
