#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Entries of the system's user database (getpwnam(3), getpwuid(3)). Any thread.
namespace platform::user_database {

struct User {
  std::string name;
  std::uint32_t id = 0;
  std::uint32_t groupId = 0;
  // As it is written there.
  std::string home;
  std::string shell;
};

std::optional<User> byId(std::uint32_t id);
std::optional<User> byName(const std::string& name);

}  // namespace platform::user_database
