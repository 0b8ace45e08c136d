#include "tests/support/ApplicationBundle.h"

#include <filesystem>

namespace test {
namespace fs = std::filesystem;

std::string infoPlist(std::string_view information) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
         std::string(information) + "</dict></plist>\n";
}

std::string makeApplication(const Sandbox& sandbox, std::string_view relative,
                            std::string_view information, std::string_view program) {
  const std::string bundle(relative);
  sandbox.makeFile(bundle + "/Contents/Info.plist",
                   infoPlist("<key>CFBundleExecutable</key><string>Program</string>" +
                             std::string(information)));
  fs::create_directories(sandbox.path(bundle + "/Contents/Linux"));
  fs::copy_file(std::string(QV_TEST_PROGRAMS "/") + std::string(program),
                sandbox.path(bundle + "/Contents/Linux/Program"));
  return sandbox.path(bundle);
}

}  // namespace test
