#include "sessionhelper/BecomeOwner.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/users/UserDatabase.h"
#include "sessionhelper/UserIds.h"

namespace session_helper {
namespace {

constexpr gid_t kNoGroup = 65534;

}  // namespace

bool becomeOwner(std::uint32_t user) {
  const auto known = platform::user_database::byId(user);
  if (!takeIds(user, known ? known->groupId : kNoGroup, known ? known->name : "")) return false;
  ::prctl(PR_SET_DUMPABLE, 0);
  ::umask(022);
  return ::chdir("/") == 0;
}

}  // namespace session_helper
