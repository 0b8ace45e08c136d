#include "sessionhelper/BecomeOwner.h"

#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/users/UserDatabase.h"

namespace session_helper {
namespace {

constexpr gid_t kNoGroup = 65534;

bool takeGroups(std::uint32_t user) {
  const auto known = platform::user_database::byId(user);
  if (!known) return ::setgroups(0, nullptr) == 0 && ::setresgid(kNoGroup, kNoGroup, kNoGroup) == 0;
  const gid_t group = known->groupId;
  return ::initgroups(known->name.c_str(), group) == 0 && ::setresgid(group, group, group) == 0;
}

bool isOnly(std::uint32_t user) {
  uid_t ids[3];
  return ::getresuid(&ids[0], &ids[1], &ids[2]) == 0 && ids[0] == user && ids[1] == user &&
         ids[2] == user;
}

}  // namespace

bool becomeOwner(std::uint32_t user) {
  if (user == 0 || !takeGroups(user) || ::setresuid(user, user, user) != 0) return false;
  ::prctl(PR_SET_DUMPABLE, 0);
  ::umask(022);
  // Believed only when seen, and when there is no way back.
  return isOnly(user) && ::setresuid(0, 0, 0) != 0 && ::chdir("/") == 0;
}

}  // namespace session_helper
