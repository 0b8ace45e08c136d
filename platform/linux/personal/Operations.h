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

// Carries out a request with the rights that this process has. An unknown one fails.
Texts perform(const Texts& request);

// The operation that reads a file, up to so many bytes.
Texts readRequest(const std::string& path, std::uint64_t limit);

std::string encoded(const Texts& texts);
// None when the bytes are not what `encoded` makes.
std::optional<Texts> decoded(std::string_view bytes);

}  // namespace platform::personal
