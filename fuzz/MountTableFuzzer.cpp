#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "sessionhelper/MountTable.h"

namespace {

// As the kernel writes a path into its table.
std::string escaped(std::string_view path) {
  std::string text;
  for (const char character : path) {
    switch (character) {
      case ' ':
        text += "\\040";
        break;
      case '\t':
        text += "\\011";
        break;
      case '\n':
        text += "\\012";
        break;
      case '\\':
        text += "\\134";
        break;
      default:
        text += character;
    }
  }
  return text;
}

}  // namespace

// The input as a table must do no harm; as the name of a mount point it must be found again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::istringstream any(input);
  session_helper::isMountPoint("/Volumes/Image", any);

  const std::string path = "/" + input;
  std::istringstream table("36 22 7:0 / " + escaped(path) + " rw - ext4 /dev/loop0 rw\n");
  if (!session_helper::isMountPoint(path, table)) std::abort();
  return 0;
}
