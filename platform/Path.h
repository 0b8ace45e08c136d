#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The platform's path rules, which are not those of std::filesystem. Pure text: nothing is looked
// up, "." and ".." are names like any other, and a path's bytes need not be UTF-8. Thread-safe.
namespace platform::path {

// The last component, without trailing slashes: "A.app" of "/x/A.app/". "/" of "/", "" of "".
std::string lastComponent(std::string_view path);

// The path without its last component and without a trailing slash: "/x" of "/x/A.app/", "/" of
// "/x" and of "/", "" of "x".
std::string deletingLastComponent(std::string_view path);

// `base` and `component` joined by exactly one slash; a slash at the component's end goes. An empty
// base gives the component, an empty component gives the base. The answer ends in a slash only when
// it is "/".
std::string appending(std::string_view base, std::string_view component);
// Appending to none gives none.
std::optional<std::string> appending(const std::optional<std::string>& base,
                                     std::string_view component);
// Tells the two above apart for what converts to both.
std::string appending(const std::string& base, std::string_view component);
std::string appending(const char* base, std::string_view component);

// The components between slashes, runs of slashes counted as one. An absolute path begins with the
// component "/", and a trailing slash adds a last component "/": "/x/a/" gives "/", "x", "a", "/".
// The path "/" gives only "/"; "" gives nothing.
std::vector<std::string> components(std::string_view path);

// What follows the last dot of the last component; "" when there is no dot, when the dot is the
// first character ("" of ".profile") or the last.
std::string extension(std::string_view path);

// The path without its extension and the dot before it, and without trailing slashes: "/x/A" of
// "/x/A.app/". A name that has no extension stays whole.
std::string deletingExtension(std::string_view path);

// Whether the path is absolute and its last component is a name that a folder can hold: neither
// none, "" nor "/", and not one that ends in "." or "..". Only such a path may be removed or moved,
// or joined to a folder by its last component: with any other the folder itself would be meant, or
// the one above it.
bool namesItem(const std::optional<std::string>& path);

}  // namespace platform::path
