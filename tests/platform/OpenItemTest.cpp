#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/Workspace.h"
#include "tests/support/ApplicationBundle.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
namespace workspace = platform::workspace;
using test::makeApplication;
using test::readFile;
using test::Sandbox;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kIdentifier[] = "<key>CFBundleIdentifier</key><string>com.quorvale.Opener</string>";

// Opens things as an ordinary user, or as superuser with a person at the console.
class OpenItemTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    bundle_ = makeApplication(sandbox_, "Apps/An \"Opened\" 50% App.app", kIdentifier);
  }

  std::string record() const { return sandbox_.homeOf(Sandbox::kConsoleUser) + "/opened"; }
  // What the application wrote about its start.
  std::vector<std::string> waitForRecord() const {
    EXPECT_TRUE(test::waitFor([&] { return fs::exists(record()); }));
    std::vector<std::string> lines;
    std::istringstream text(readFile(record()));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }
  static std::vector<std::string> beginningWith(const std::string& word,
                                                const std::vector<std::string>& lines) {
    std::vector<std::string> found;
    std::ranges::copy_if(lines, std::back_inserter(found),
                         [&](const std::string& line) { return line.starts_with(word + " "); });
    return found;
  }
  // /run/user of the sandbox's own, with the folder of a login in it.
  std::string makeRuntimeFolder(unsigned owner) {
    EXPECT_EQ(
        ::mount(sandbox_.makeDirectory("run-user").c_str(), "/run/user", nullptr, MS_BIND, nullptr),
        0);
    const std::string folder = "/run/user/" + std::to_string(Sandbox::kConsoleUserId);
    fs::create_directory(folder);
    EXPECT_EQ(::chown(folder.c_str(), owner, owner), 0);
    return folder;
  }

  Sandbox sandbox_;
  std::string bundle_;
};

TEST_F(OpenItemTest, AUsersApplicationRunsInASessionOfItsOwn) {
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(workspace::open(bundle_));
  EXPECT_THAT(waitForRecord(),
              AllOf(Contains("users 61001 61001 61001"), Contains("groups 61001 61001 61001"),
                    Contains("session leader 1"), Contains("folder " + sandbox_.home()),
                    Contains("umask 22"), Not(Contains(StartsWith("argument")))));
}

TEST_F(OpenItemTest, TheSuperusersApplicationRunsAsTheConsoleUser) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(workspace::open(bundle_));
  const std::vector<std::string> lines = waitForRecord();
  EXPECT_THAT(lines, AllOf(Contains("users 61001 61001 61001"),
                           Contains("groups 61001 61001 61001"), Contains("session leader 1"),
                           Contains("folder " + sandbox_.homeOf(Sandbox::kConsoleUser)),
                           Contains("variable HOME=" + sandbox_.homeOf(Sandbox::kConsoleUser)),
                           Contains("variable USER=anna"), Contains("variable LOGNAME=anna"),
                           Contains("variable SHELL=/bin/sh")));
  EXPECT_THAT(beginningWith("supplementary", lines), ElementsAre("supplementary group 61001"));
}

TEST_F(OpenItemTest, WithNobodyAtTheConsoleTheSuperuserOpensNothing) {
  sandbox_.setNobodyAtConsole();
  EXPECT_FALSE(workspace::open(bundle_));
  EXPECT_FALSE(fs::exists(record()));
  EXPECT_FALSE(fs::exists("/root/opened"));
}

TEST_F(OpenItemTest, WithTheSuperuserAtTheConsoleNothingIsOpened) {
  sandbox_.makeFile("run/systemd/seats/seat0", "IS_VTCONSOLE=1\nACTIVE=c1\nACTIVE_UID=0\n");
  EXPECT_FALSE(workspace::open(bundle_));
  EXPECT_FALSE(fs::exists("/root/opened"));
}

TEST_F(OpenItemTest, TheApplicationInheritsNoDescriptorsAndNoSignals) {
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const int leaked = ::open("/dev/zero", O_RDONLY);
  ASSERT_GE(leaked, 0);
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t blocked;
  ::sigfillset(&blocked);
  ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  EXPECT_TRUE(workspace::open(bundle_));
  const std::vector<std::string> lines = waitForRecord();
  EXPECT_THAT(
      beginningWith("descriptor", lines),
      ElementsAre("descriptor 0 /dev/null", "descriptor 1 /dev/null", "descriptor 2 /dev/null"));
  EXPECT_THAT(beginningWith("ignored", lines), IsEmpty());
  EXPECT_THAT(beginningWith("blocked", lines), IsEmpty());
  ::close(leaked);
}

TEST_F(OpenItemTest, TheEnvironmentHoldsTheSessionAndNothingElse) {
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  ::clearenv();
  for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>>{
           {"HOME", sandbox_.home().c_str()},
           {"PATH", "/custom/bin:/usr/bin"},
           {"DISPLAY", ":7"},
           {"LC_TIME", "de_DE.UTF-8"},
           {"XDG_ACTIVATION_TOKEN", "token"},
           {"DESKTOP_STARTUP_ID", "id"},
           {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere"},
           {"LD_PRELOAD", ""},
           {"SECRET", "value"}}) {
    ::setenv(name, value, 1);
  }
  EXPECT_TRUE(workspace::open(bundle_));
  std::vector<std::string> variables = beginningWith("variable", waitForRecord());
  std::ranges::sort(variables);
  EXPECT_THAT(variables, ElementsAre("variable DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere",
                                     "variable DESKTOP_STARTUP_ID=id", "variable DISPLAY=:7",
                                     "variable HOME=" + sandbox_.home(),
                                     "variable LC_TIME=de_DE.UTF-8", "variable LOGNAME=anna",
                                     "variable PATH=/custom/bin:/usr/bin", "variable SHELL=/bin/sh",
                                     "variable USER=anna", "variable XDG_ACTIVATION_TOKEN=token"));
}

TEST_F(OpenItemTest, TheSuperusersFoldersAndPathAreNotHandedOn) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  ::setenv("XDG_CONFIG_HOME", "/root/.config", 1);
  ::setenv("XDG_RUNTIME_DIR", "/run/user/0", 1);
  ::setenv("XDG_DATA_DIRS", "/usr/share", 1);
  ::setenv("PATH", "/root/bin", 1);
  ::setenv("DISPLAY", ":8", 1);
  EXPECT_TRUE(workspace::open(bundle_));
  const std::vector<std::string> lines = waitForRecord();
  EXPECT_THAT(lines,
              AllOf(Contains("variable DISPLAY=:8"), Contains("variable XDG_DATA_DIRS=/usr/share"),
                    Not(Contains(testing::HasSubstr("/root")))));
  EXPECT_THAT(lines, Not(Contains(StartsWith("variable XDG_RUNTIME_DIR"))));
}

TEST_F(OpenItemTest, TheBusOfThePersonsLoginIsFound) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string folder = makeRuntimeFolder(Sandbox::kConsoleUserId);
  std::ofstream(folder + "/bus").flush();
  ::unsetenv("XDG_RUNTIME_DIR");
  EXPECT_TRUE(workspace::open(bundle_));
  EXPECT_THAT(waitForRecord(),
              AllOf(Contains("variable XDG_RUNTIME_DIR=" + folder),
                    Contains("variable DBUS_SESSION_BUS_ADDRESS=unix:path=" + folder + "/bus")));
}

TEST_F(OpenItemTest, ARuntimeFolderOfSomebodyElseIsNotUsed) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string folder = makeRuntimeFolder(Sandbox::kOtherUserId);
  std::ofstream(folder + "/bus").flush();
  EXPECT_TRUE(workspace::open(bundle_));
  EXPECT_THAT(waitForRecord(), AllOf(Not(Contains(StartsWith("variable XDG_RUNTIME_DIR"))),
                                     Not(Contains(StartsWith("variable DBUS_SESSION")))));
}

TEST_F(OpenItemTest, TheBusOfTheSuperusersOwnLoginIsNotThePersons) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string folder = makeRuntimeFolder(Sandbox::kConsoleUserId);
  std::ofstream(folder + "/bus").flush();
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/user/0/bus", 1);
  EXPECT_TRUE(workspace::open(bundle_));
  EXPECT_THAT(waitForRecord(),
              Contains("variable DBUS_SESSION_BUS_ADDRESS=unix:path=" + folder + "/bus"));
}

TEST_F(OpenItemTest, TheScreenOfTheSessionIsFoundWhenTheSuperuserNamesNone) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  sandbox_.makeFile("run/systemd/sessions/c1", "UID=61001\nACTIVE=1\nTYPE=x11\nDISPLAY=:42\n");
  const std::string folder = makeRuntimeFolder(Sandbox::kConsoleUserId);
  std::ofstream(folder + "/wayland-0").flush();
  EXPECT_TRUE(workspace::open(bundle_));
  EXPECT_THAT(waitForRecord(), AllOf(Contains("variable DISPLAY=:42"),
                                     Contains("variable WAYLAND_DISPLAY=wayland-0")));
}

TEST_F(OpenItemTest, ANamedScreenIsTheOne) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  sandbox_.makeFile("run/systemd/sessions/c1", "UID=61001\nACTIVE=1\nTYPE=x11\nDISPLAY=:42\n");
  ::setenv("WAYLAND_DISPLAY", "wayland-1", 1);
  EXPECT_TRUE(workspace::open(bundle_));
  EXPECT_THAT(waitForRecord(), AllOf(Contains("variable WAYLAND_DISPLAY=wayland-1"),
                                     Not(Contains(StartsWith("variable DISPLAY")))));
}

TEST_F(OpenItemTest, ABundleWithoutAProgramThatRunsIsNotOpened) {
  sandbox_.makeFile("Apps/Empty.app/Contents/Info.plist", test::infoPlist(kIdentifier));
  fs::permissions(bundle_ + "/Contents/Linux/Program", fs::perms(0644));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_FALSE(workspace::open(sandbox_.path("Apps/Empty.app")));
  EXPECT_FALSE(workspace::open(bundle_));
  EXPECT_FALSE(workspace::open(sandbox_.path("Apps/Missing.app")));
  EXPECT_FALSE(workspace::open("Apps/Relative.app"));
  EXPECT_FALSE(workspace::open(""));
}

TEST_F(OpenItemTest, AProgramThatTheSystemCannotRunIsAFailure) {
  std::ofstream(bundle_ + "/Contents/Linux/Program", std::ios::trunc)
      << "neither one nor the other";
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_FALSE(workspace::open(bundle_));
}

TEST_F(OpenItemTest, AProgramThatOnlyTheSuperuserMayRunIsNotRunForThePerson) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  fs::permissions(bundle_ + "/Contents/Linux/Program", fs::perms(0700));
  EXPECT_FALSE(workspace::open(bundle_));
  EXPECT_FALSE(fs::exists(record()));
}

TEST_F(OpenItemTest, AFileIsGivenToTheNamedApplication) {
  const std::string file = sandbox_.makeFile("Crash log of 'today' 100%.crash");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(workspace::openWithApplication(file, bundle_));
  EXPECT_THAT(beginningWith("argument", waitForRecord()), ElementsAre("argument " + file));
}

TEST_F(OpenItemTest, NothingIsGivenToAnApplicationThatIsNotThere) {
  const std::string file = sandbox_.makeFile("file.txt");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_FALSE(workspace::openWithApplication(file, sandbox_.path("Missing.app")));
  EXPECT_FALSE(workspace::openWithApplication(sandbox_.path("missing.txt"), bundle_));
  EXPECT_FALSE(workspace::openWithApplication(file, ""));
}

TEST_F(OpenItemTest, AFileIsGivenToTheApplicationThatWasRegisteredUnderAnIdentifier) {
  const std::string file = sandbox_.makeFile("Crash log 100%.crash");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  ASSERT_TRUE(workspace::registerApplication(bundle_));
  EXPECT_TRUE(workspace::openWithBundleIdentifier(file, "com.quorvale.Opener"));
  EXPECT_THAT(beginningWith("argument", waitForRecord()), ElementsAre("argument " + file));
}

TEST_F(OpenItemTest, AwkwardlyNamedApplicationsOpenByTheirEntries) {
  const std::string file = sandbox_.makeFile("file.crash");
  std::vector<std::string> bundles;
  for (const char* name :
       {"Eq=ual", "Dollar $HOME `id`", "Back\\slash", "%f %% %U", "Ünï 'x'; y"}) {
    bundles.push_back(makeApplication(sandbox_, std::string("Odd/") + name + ".app", kIdentifier));
  }
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  for (const std::string& bundle : bundles) {
    ASSERT_TRUE(workspace::registerApplication(bundle)) << bundle;
    EXPECT_TRUE(workspace::openWithBundleIdentifier(file, "com.quorvale.Opener")) << bundle;
    EXPECT_THAT(waitForRecord(), Contains("program " + bundle + "/Contents/Linux/Program"));
    fs::remove(record());
  }
}

TEST_F(OpenItemTest, WithoutTheDesktopsToolAFileIsNotOpened) {
  const std::string file = sandbox_.makeFile("file.txt", "text");
  ASSERT_EQ(::mount("/dev/null", "/usr/bin/gio", nullptr, MS_BIND, nullptr), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  ASSERT_TRUE(workspace::registerApplication(bundle_));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(workspace::open(file));
  EXPECT_FALSE(workspace::openWithBundleIdentifier(file, "com.quorvale.Opener"));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("/usr/bin/gio is missing"));
}

TEST_F(OpenItemTest, WhatTheSuperuserRegisteredOpensForThePerson) {
  const std::string file = sandbox_.makeFile("file.crash");
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  ASSERT_TRUE(workspace::registerApplication(bundle_));
  EXPECT_TRUE(workspace::openWithBundleIdentifier(file, "com.quorvale.Opener"));
  EXPECT_THAT(waitForRecord(),
              AllOf(Contains("users 61001 61001 61001"), Contains("argument " + file)));
}

TEST_F(OpenItemTest, AnIdentifierThatIsNotKnownOrNoneOpensNothing) {
  const std::string file = sandbox_.makeFile("file.txt");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_FALSE(workspace::openWithBundleIdentifier(file, "com.quorvale.Unknown"));
  for (const char* identifier : {"", "../../x", "a b", "-x"}) {
    EXPECT_FALSE(workspace::openWithBundleIdentifier(file, identifier)) << identifier;
  }
}

TEST_F(OpenItemTest, AnotherFileIsOpenedByTheDesktopsDefaultApplication) {
  const std::string file = sandbox_.makeFile("Read me.txt", "text");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  ASSERT_TRUE(workspace::registerApplication(bundle_));
  fs::create_directories(sandbox_.home() + "/.config");
  std::ofstream(sandbox_.home() + "/.config/mimeapps.list")
      << "[Default Applications]\ntext/plain=com.quorvale.Opener.desktop\n"
         "application/octet-stream=com.quorvale.Opener.desktop\n";
  EXPECT_TRUE(workspace::open(file));
  EXPECT_THAT(beginningWith("argument", waitForRecord()), ElementsAre("argument " + file));
}

TEST_F(OpenItemTest, AFileThatNothingOpensIsAFailure) {
  const std::string file = sandbox_.makeFile("data.unheard-of", std::string("\0\1\2", 3));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  ::setenv("XDG_DATA_DIRS", sandbox_.makeDirectory("home/anna/empty").c_str(), 1);
  EXPECT_FALSE(workspace::open(file));
}

TEST_F(OpenItemTest, APackageThatIsNoApplicationRunsNothing) {
  const std::string plugin = makeApplication(sandbox_, "Apps/Effect.plugin");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  ::setenv("XDG_DATA_DIRS", sandbox_.path("nothing").c_str(), 1);
  EXPECT_FALSE(workspace::open(plugin));
  EXPECT_FALSE(fs::exists(record()));
}

}  // namespace
