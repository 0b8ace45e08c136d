#pragma once

#include <cstdint>

namespace session_helper {

// Gives up the superuser's rights for good and goes on with the ids and groups of the user with
// this number and of nobody else; one that the user database does not know has no group of its own.
// Nobody of the same user can look into this process or take its descriptors. False when the rights
// could not be given up, or when it is the superuser's number.
bool becomeOwner(std::uint32_t user);

}  // namespace session_helper
