#pragma once

#include <chrono>
#include <optional>
#include <string>

// When the application was last started and when it last ended well, kept under two keys in its
// user defaults or, where a path is given, in a property list of its own.
namespace run_record {

using Date = std::chrono::system_clock::time_point;

inline constexpr char kLaunch[] = "launch";
inline constexpr char kExit[] = "exit";

struct Dates {
  std::optional<Date> launch;
  std::optional<Date> exit;
};

// What is recorded; a value that is no date counts as none.
Dates read(const std::optional<std::string>& plistPath);

// Sets `key` to the present date. In a file the other keys stay; one that is no property list is
// replaced and kept, see property_list::setAsideDamaged. Nobody is told of a failure.
void write(const char* key, const std::optional<std::string>& plistPath);

}  // namespace run_record
