#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Shared/QVFileManager.h"
#include "tests/support/ApplicationBundle.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using test::makeApplication;
using test::Sandbox;
using testing::Contains;
using testing::EndsWith;
using testing::IsEmpty;

// What a desktop's own tool has to say.
std::vector<std::string> linesOf(const std::vector<std::string>& command) {
  test::ChildProgram tool(command);
  test::waitFor([&] { return !tool.isRunning(); });
  return tool.lines();
}

class QVFileManagerRegistrationTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
  }
  // The bundle's name and identifier, and that it opens a type of file.
  static std::string information(const std::string& name) {
    return "<key>CFBundleIdentifier</key><string>com.quorvale.Sample</string>"
           "<key>CFBundleDisplayName</key><string>" +
           name +
           "</string><key>CFBundleDocumentTypes</key><array><dict>"
           "<key>CFBundleTypeMIMETypes</key><array><string>application/x-sample</string></array>"
           "</dict></array>";
  }
  std::string entry() const {
    return sandbox_.home() + "/.local/share/applications/com.quorvale.Sample.desktop";
  }
  static bool isOfferedByTheDesktop() {
    return test::waitFor([] {
      const auto lines = linesOf({"/usr/bin/gio", "mime", "application/x-sample"});
      return testing::Value(lines, Contains(EndsWith("com.quorvale.Sample.desktop")));
    });
  }

  Sandbox sandbox_;
};

TEST_F(QVFileManagerRegistrationTest, ARegisteredApplicationIsOfferedByTheDesktop) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", information("Sample"));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(QVFileManager::registerApplicationWithLaunchServices(bundle));
  EXPECT_TRUE(isOfferedByTheDesktop());
}

TEST_F(QVFileManagerRegistrationTest, WhatTheSuperuserRegistersIsOfferedToThePerson) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", information("Sample"));
  EXPECT_TRUE(QVFileManager::registerApplicationWithLaunchServices(bundle));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(isOfferedByTheDesktop());
}

TEST_F(QVFileManagerRegistrationTest, HostileNamesMakeEntriesThatTheDesktopAccepts) {
  const std::vector<std::string> names = {"[Desktop Entry]",
                                          "Two\nExec=/bin/sh\n[Desktop Action x]",
                                          "%f %U %%",
                                          "; \\s \\n \\",
                                          "\"quoted\" 'name' `id` $HOME",
                                          "   ",
                                          "\xE2\x80\xAE"
                                          "desrever",
                                          std::string(5000, 'x')};
  std::vector<std::string> bundles;
  for (const std::string& name : names) {
    const std::string folder = std::to_string(bundles.size());
    bundles.push_back(makeApplication(sandbox_, folder + "/Sample.app", information(name)));
  }
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  for (const std::string& bundle : bundles) {
    EXPECT_TRUE(QVFileManager::registerApplicationWithLaunchServices(bundle)) << bundle;
    EXPECT_THAT(linesOf({"/usr/bin/desktop-file-validate", "--warn-kde", entry()}), IsEmpty())
        << test::readFile(entry());
    std::filesystem::remove(entry());
  }
}

TEST_F(QVFileManagerRegistrationTest, WhatIsNoApplicationIsNotRegistered) {
  const std::string folder = sandbox_.makeDirectory("Folder.app");
  const std::string file = sandbox_.makeFile("File.app");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  for (const std::string& path : {folder, file, sandbox_.path("Missing.app"), std::string()}) {
    EXPECT_FALSE(QVFileManager::registerApplicationWithLaunchServices(path)) << path;
  }
}

}  // namespace
