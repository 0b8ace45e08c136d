#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/Workspace.h"
#include "tests/support/ApplicationBundle.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using platform::workspace::registerApplication;
using test::makeApplication;
using test::readFile;
using test::Sandbox;
using testing::HasSubstr;

constexpr char kIdentifier[] = "<key>CFBundleIdentifier</key><string>com.quorvale.Sample</string>";

std::string identified(const std::string& information) {
  return kIdentifier + information;
}

// Whether the desktop's own checker finds nothing wrong.
bool isValid(const std::string& entry) {
  test::ChildProgram check({"/usr/bin/desktop-file-validate", "--warn-kde", entry});
  test::waitFor([&] { return !check.isRunning(); });
  for (const std::string& line : check.lines()) ADD_FAILURE() << line;
  return check.lines().empty();
}

// As an ordinary user of the sandbox.
class RegisterApplicationTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
  }
  void becomeUser() { sandbox_.becomeUser(Sandbox::kConsoleUser); }
  std::string entries() const { return sandbox_.home() + "/.local/share/applications"; }
  std::string entry() const { return entries() + "/com.quorvale.Sample.desktop"; }

  Sandbox sandbox_;
};

TEST_F(RegisterApplicationTest, AUsersEntryStandsInTheUsersFolderAndIsValid) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
  becomeUser();
  EXPECT_TRUE(registerApplication(bundle));
  EXPECT_THAT(readFile(entry()), HasSubstr("Exec=\"" + bundle + "/Contents/Linux/Program\" %F\n"));
  EXPECT_TRUE(isValid(entry()));
}

TEST_F(RegisterApplicationTest, TheSuperusersEntryIsForEverybody) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
  ::umask(077);
  EXPECT_TRUE(registerApplication(bundle));
  const std::string local = "/usr/local/share/applications/com.quorvale.Sample.desktop";
  EXPECT_TRUE(isValid(local));
  struct stat status = {};
  ASSERT_EQ(::stat(local.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644U);
  EXPECT_TRUE(fs::exists(sandbox_.path("usr-local-share/applications")));
}

TEST_F(RegisterApplicationTest, WhatAPersonCanChangeTheSuperuserRegistersForThePersonAlone) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string local = "/usr/local/share/applications/com.quorvale.Sample.desktop";
  const std::string persons = sandbox_.homeOf(Sandbox::kConsoleUser) +
                              "/.local/share/applications/com.quorvale.Sample.desktop";
  for (const char* changeable : {"", "/Contents", "/Contents/Linux/Program"}) {
    const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
    ASSERT_EQ(::chown((bundle + changeable).c_str(), Sandbox::kOtherUserId, 0), 0);
    EXPECT_TRUE(registerApplication(bundle)) << changeable;
    EXPECT_FALSE(fs::exists(local)) << changeable;
    struct stat status = {};
    ASSERT_EQ(::stat(persons.c_str(), &status), 0) << changeable;
    EXPECT_EQ(status.st_uid, Sandbox::kConsoleUserId);
    fs::remove(persons);
    fs::remove_all(bundle);
  }
}

TEST_F(RegisterApplicationTest, WithNobodyAtTheConsoleWhatOthersCanChangeIsNotRegistered) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
  fs::permissions(bundle, fs::perms(0777));
  EXPECT_FALSE(registerApplication(bundle));
  EXPECT_FALSE(fs::exists("/usr/local/share/applications/com.quorvale.Sample.desktop"));
}

TEST_F(RegisterApplicationTest, ANameThatAnotherProgramHasElsewhereIsRefused) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
  const std::string taken =
      sandbox_.makeDirectory("usr-local-share/applications") + "/com.quorvale.Sample.desktop";
  std::ofstream(taken) << "[Desktop Entry]\nName=Another\n";
  becomeUser();
  EXPECT_FALSE(registerApplication(bundle));
  EXPECT_FALSE(fs::exists(entry()));
}

TEST_F(RegisterApplicationTest, ADataHomeThatIsNoAbsolutePathIsNotUsed) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
  becomeUser();
  ::setenv("XDG_DATA_HOME", "somewhere", 1);
  EXPECT_TRUE(registerApplication(bundle));
  EXPECT_TRUE(fs::exists(entry()));
}

TEST_F(RegisterApplicationTest, AwkwardNamesMakeValidEntries) {
  const std::vector<std::string> names = {"With Blank",  "Quote\"s and 'such", "50% off",
                                          "Back\\slash", "Dollar $HOME `id`",  "Eq=ual",
                                          "Ünï ☃",       "semi;colon"};
  std::vector<std::string> bundles;
  for (const std::string& name : names) {
    bundles.push_back(makeApplication(sandbox_, "Apps/" + name + ".app"));
  }
  becomeUser();
  for (const std::string& bundle : bundles) EXPECT_TRUE(registerApplication(bundle)) << bundle;
  std::size_t count = 0;
  for (const auto& file : fs::directory_iterator(entries())) {
    if (file.path().extension() != ".desktop") continue;
    EXPECT_TRUE(isValid(file.path())) << readFile(file.path());
    ++count;
  }
  EXPECT_EQ(count, names.size());
}

TEST_F(RegisterApplicationTest, ANameThatNoEntryCanHoldIsRefused) {
  const std::string broken = makeApplication(sandbox_, "Apps/Line\nbreak.app", kIdentifier);
  const std::string bytes = makeApplication(sandbox_, "Apps/\xFF.app", kIdentifier);
  becomeUser();
  EXPECT_FALSE(registerApplication(broken));
  EXPECT_FALSE(registerApplication(bytes));
  EXPECT_FALSE(fs::exists(entry()));
}

TEST_F(RegisterApplicationTest, WithoutAnInfoPlistTheBundlesNameServes) {
  sandbox_.makeDirectory("Apps/Bare.app/Contents/Linux");
  const std::string program = sandbox_.makeFile("Apps/Bare.app/Contents/Linux/Bare", "#!/bin/sh\n");
  fs::permissions(program, fs::perms(0755));
  becomeUser();
  EXPECT_TRUE(registerApplication(sandbox_.path("Apps/Bare.app")));
  EXPECT_THAT(readFile(entries() + "/Bare.desktop"), HasSubstr("Name=Bare\n"));
}

TEST_F(RegisterApplicationTest, WithoutAProgramNothingIsRegistered) {
  sandbox_.makeFile("Apps/Empty.app/Contents/Info.plist", test::infoPlist(kIdentifier));
  const std::string locked = makeApplication(sandbox_, "Apps/Locked.app", kIdentifier);
  fs::permissions(locked + "/Contents/Linux/Program", fs::perms(0644));
  becomeUser();
  EXPECT_FALSE(registerApplication(sandbox_.path("Apps/Empty.app")));
  EXPECT_FALSE(registerApplication(locked));
  EXPECT_FALSE(registerApplication(sandbox_.path("Apps/Missing.app")));
  EXPECT_FALSE(registerApplication(""));
  EXPECT_FALSE(fs::exists(entries()));
}

TEST_F(RegisterApplicationTest, RegisteringAgainReplacesTheEntry) {
  const std::string first = makeApplication(sandbox_, "Old/Sample.app", kIdentifier);
  const std::string second = makeApplication(sandbox_, "New/Sample.app", kIdentifier);
  becomeUser();
  EXPECT_TRUE(registerApplication(first));
  EXPECT_TRUE(registerApplication(second));
  EXPECT_THAT(readFile(entry()), HasSubstr("X-Quorvale-Bundle=" + second + "\n"));
}

TEST_F(RegisterApplicationTest, AnEntryThatSomebodyElseWroteStays) {
  const std::string bundle = makeApplication(sandbox_, "Apps/Sample.app", kIdentifier);
  becomeUser();
  fs::create_directories(entries());
  std::ofstream(entry()) << "[Desktop Entry]\nName=Mine\n";
  EXPECT_FALSE(registerApplication(bundle));
  EXPECT_EQ(readFile(entry()), "[Desktop Entry]\nName=Mine\n");
}

TEST_F(RegisterApplicationTest, WhatTheBundleOpensIsInTheDatabase) {
  const std::string bundle = makeApplication(
      sandbox_, "Apps/Sample.app",
      identified("<key>CFBundleDocumentTypes</key><array><dict><key>CFBundleTypeMIMETypes</key>"
                 "<array><string>application/x-sample</string></array></dict></array>"
                 "<key>CFBundleURLTypes</key><array><dict><key>CFBundleURLSchemes</key>"
                 "<array><string>Sample</string></array></dict></array>"));
  becomeUser();
  EXPECT_TRUE(registerApplication(bundle));
  EXPECT_TRUE(test::waitFor([&] {
    const std::string cache = readFile(entries() + "/mimeinfo.cache");
    return cache.find("application/x-sample=com.quorvale.Sample.desktop;") != std::string::npos &&
           cache.find("x-scheme-handler/sample=com.quorvale.Sample.desktop;") != std::string::npos;
  }));
}

TEST_F(RegisterApplicationTest, ThePictureIsTheOneOfTheResources) {
  const std::string bundle =
      makeApplication(sandbox_, "Apps/Sample.app",
                      identified("<key>CFBundleIconFile</key><string>Sample.icns</string>"));
  const std::string icon = sandbox_.makeFile("Apps/Sample.app/Contents/Resources/Sample.png");
  becomeUser();
  EXPECT_TRUE(registerApplication(bundle));
  EXPECT_THAT(readFile(entry()), HasSubstr("Icon=" + icon + "\n"));
}

TEST_F(RegisterApplicationTest, AnInformationOfWrongTypesDoesNoHarm) {
  const std::string bundle = makeApplication(
      sandbox_, "Apps/Sample.app",
      "<key>CFBundleIdentifier</key><integer>3</integer><key>CFBundleName</key><array/>"
      "<key>CFBundleDocumentTypes</key><dict/><key>CFBundleURLTypes</key><array><string/></array>"
      "<key>CFBundleIconFile</key><true/>");
  becomeUser();
  EXPECT_TRUE(registerApplication(bundle));
  EXPECT_TRUE(isValid(entries() + "/Sample.desktop"));
}

}  // namespace
