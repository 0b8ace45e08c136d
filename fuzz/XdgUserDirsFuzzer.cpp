#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/linux/users/XdgUserDirs.h"

// Whatever a person's settings say, the superuser is led to nothing but a folder below the home.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using platform::xdg_user_dirs::Accept;
  using platform::xdg_user_dirs::lookUp;
  const std::string_view contents(reinterpret_cast<const char*>(data), size);
  const auto folder = lookUp(contents, "XDG_DESKTOP_DIR", "/root", Accept::belowHome);
  if (folder && *folder != "/root" && !folder->starts_with("/root/")) std::abort();
  if (folder && folder->find("/../") != std::string::npos) std::abort();
  const auto own = lookUp(contents, "XDG_DESKTOP_DIR", "/home/a", Accept::anyAbsolute);
  if (own && !own->starts_with('/')) std::abort();
  return 0;
}
