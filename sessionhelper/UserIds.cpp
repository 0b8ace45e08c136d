#include "sessionhelper/UserIds.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace session_helper {
namespace {

bool takeGroups(gid_t group, const std::string& name) {
  const int taken = name.empty() ? ::setgroups(0, nullptr) : ::initgroups(name.c_str(), group);
  return taken == 0 && ::setresgid(group, group, group) == 0;
}

bool hasOnlyIdsOf(uid_t user, gid_t group) {
  std::array<uid_t, 3> users{};
  std::array<gid_t, 3> groups{};
  return ::getresuid(&users[0], &users[1], &users[2]) == 0 &&
         ::getresgid(&groups[0], &groups[1], &groups[2]) == 0 &&
         std::ranges::count(users, user) == 3 && std::ranges::count(groups, group) == 3;
}

}  // namespace

bool takeIds(uid_t user, gid_t group, const std::string& name) {
  if (user == 0) {
    errno = EPERM;
    return false;
  }
  // Believed only when seen, and when there is no way back.
  return takeGroups(group, name) && ::setresuid(user, user, user) == 0 &&
         hasOnlyIdsOf(user, group) && ::setresuid(0, 0, 0) != 0;
}

}  // namespace session_helper
