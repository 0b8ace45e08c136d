#pragma once

#include <optional>
#include <string>
#include <string_view>

// The localised folders of a person, which the file user-dirs.dirs names (user-dirs.dirs(5)).
namespace platform::xdg_user_dirs {

// Whether a value that is an absolute path counts, or only one below the home. The superuser takes
// nothing else from a file that another user has written.
enum class Accept { anyAbsolute, belowHome };

// The folder that `contents` gives for `key`, for example "XDG_DESKTOP_DIR", in the home `home`;
// none when it names none, or a value that is not accepted. The last of several lines counts.
std::optional<std::string> lookUp(std::string_view contents, std::string_view key,
                                  std::string_view home, Accept accept);

}  // namespace platform::xdg_user_dirs
