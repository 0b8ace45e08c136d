#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What is done with small files in a person's places, as texts: this program and its child of the
// same build speak like this. A request is the operation's name and its arguments; an answer's
// first text is kYes or a failure's number, the rest is the result or the failure's description.
namespace platform::personal {

using Texts = std::vector<std::string>;

inline constexpr std::string_view kYes = "yes";

// The operations and their arguments; a path is absolute.
namespace operation {
// PATH: its date of modification, in units of the system's clock.
inline constexpr char kDate[] = "date";
// PATH
inline constexpr char kExists[] = "exists";
// FOLDER: the names in it.
inline constexpr char kList[] = "list";
// FOLDER: makes it with those around it.
inline constexpr char kMake[] = "make";
// PATH CHANGES MILLISECONDS: into a property list, waiting so long for who writes it.
inline constexpr char kMerge[] = "merge";
// SOURCE DESTINATION
inline constexpr char kMove[] = "move";
// FOLDER: makes it like kMake and passes it as a descriptor behind the answer. Of the child alone.
inline constexpr char kOpen[] = "open";
// PATH BYTES: a file's contents, up to so many.
inline constexpr char kRead[] = "read";
// BUNDLE
inline constexpr char kRegister[] = "register";
// PATH
inline constexpr char kRemove[] = "remove";
}  // namespace operation

// Carries out a request with the rights that this process has. An unknown one fails.
Texts perform(const Texts& request);

std::string encoded(const Texts& texts);
// None when the bytes are not what `encoded` makes.
std::optional<Texts> decoded(std::string_view bytes);

}  // namespace platform::personal
