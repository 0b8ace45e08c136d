#pragma once

#include <sys/types.h>

#include <string>

namespace session_helper {

// Gives this process the ids and groups of a user, and of nobody else, for good. A `name` that is
// empty has no groups beside `group`. False, with what happened in errno, when that could not be
// done, or for the superuser: then nothing may be done for that user.
bool takeIds(uid_t user, gid_t group, const std::string& name);

}  // namespace session_helper
