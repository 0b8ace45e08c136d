#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/LogPreamble.h"
#include "tests/support/LoginManager.h"
#include "tests/support/Polkit.h"
#include "tests/support/SlowFiles.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// Updates whose copy takes much longer than the helper's fixed pauses: an application of 300 MB on
// a disk image that is slow to read.
namespace {

namespace fs = std::filesystem;
using test::Polkit;
using test::Sandbox;
using test::SlowFiles;
using test::UpdateMachine;
using test::waitFor;
using testing::HasSubstr;
using testing::Not;

constexpr int kFiles = 60;
constexpr std::size_t kFileSize = std::size_t{5} << 20;
// The whole copy takes half a minute then, or ends soon after the slowness does.
constexpr std::chrono::milliseconds kDelay(500);
constexpr std::chrono::seconds kCopyLimit(30);

enum class As { user, superuser };

void PrintTo(As as, std::ostream* out) {
  *out << (as == As::user ? "an ordinary user" : "the superuser");
}

bool succeeds(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

void run(const std::string& command) {
  if (!succeeds(command)) throw std::runtime_error("failed: " + command);
}

class BigBundleTest : public testing::TestWithParam<As> {
 protected:
  void SetUp() override {
    if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
    machine_.emplace(pauses());
    loginManager_.emplace(sandbox(), test::LoginManager::Behaviour::grants);
    if (isUser()) {
      // No one needs to be asked: the updater has rights and hands them down.
      polkit_.emplace(sandbox(), Polkit::Without::bus);
      machine().runWithRightsHandedDownTo(Sandbox::kConsoleUser);
    }
  }

  virtual UpdateMachine::Pauses pauses() const { return UpdateMachine::Pauses::quick; }

  static bool isUser() { return GetParam() == As::user; }
  UpdateMachine& machine() { return *machine_; }
  test::LoginManager& loginManager() { return *loginManager_; }
  Sandbox& sandbox() { return machine().sandbox(); }
  std::string image() { return sandbox().path("image/Sample.app"); }

  // Where only the superuser may write.
  void install() {
    machine().makeBundle(machine().destination(), "1.0");
    run("chown -R 0:0 '" + sandbox().path("Applications") + "'");
  }

  void attachBigImage() {
    machine().makeBundle(image(), "2.0");
    std::vector<unsigned> data(kFileSize / sizeof(unsigned));
    std::mt19937 random(20261121);
    for (unsigned& word : data) word = static_cast<unsigned>(random());
    for (int i = 0; i < kFiles; ++i) {
      std::ofstream(image() + "/Contents/Resources/part" + std::to_string(i), std::ios::binary)
          .write(reinterpret_cast<const char*>(data.data()), std::streamsize{kFileSize});
    }
    const std::string file = sandbox().path("update.img");
    const std::string mountPoint = sandbox().makeDirectory("Volumes/Sample 2.0");
    run("mksquashfs '" + sandbox().path("image") + "' '" + file +
        "' -quiet -no-progress -noI -noD -noF -noX");
    if (isUser()) {
      mountAsUser(file, mountPoint);
    } else {
      run("mount -t squashfs -o loop,ro '" + file + "' '" + mountPoint + "'");
    }
  }

  // A file system of the person's own, which root may read too.
  void mountAsUser(const std::string& file, const std::string& mountPoint) {
    std::ofstream(sandbox().path("etc/fuse.conf"), std::ios::app) << "user_allow_other\n";
    fs::permissions(file, fs::perms(0644));
    run("chown 61001 '" + mountPoint + "'");
    run("setpriv --reuid=61001 --regid=61001 --clear-groups squashfuse -o allow_root '" + file +
        "' '" + mountPoint + "'");
  }

  std::vector<std::string> arguments() {
    return {"-source",    machine().source(),     "-destination", machine().destination(),
            "-mountpath", machine().mountPoint(), "-silent",      "NO"};
  }

  std::string entry() {
    return sandbox().homeOf(Sandbox::kConsoleUser) +
           "/.local/share/applications/com.quorvale.Sample.desktop";
  }
  bool isOpened() { return fs::exists(machine().launchRecord()); }
  bool isWhole() {
    return succeeds("diff -r --no-dereference '" + image() + "' '" + machine().destination() + "'");
  }

  std::vector<std::string> expectedLog() {
    std::vector<std::string> rest = {"Trashing old application..."};
    if (isUser()) rest.emplace_back("Auth trashing old application...");
    for (const char* line :
         {"Preparing to copy files...", "File copy successful.", "Launching app...",
          "Cleaning up...", "Task /usr/bin/hdiutil timed out. Terminating...",
          "Terminating self..."}) {
      rest.emplace_back(line);
    }
    return test::logOfValidRun({.source = machine().source(),
                                .destination = machine().destination(),
                                .mountPath = machine().mountPoint()},
                               rest);
  }

 private:
  std::optional<UpdateMachine> machine_;
  std::optional<test::LoginManager> loginManager_;
  std::optional<Polkit> polkit_;
};

std::string nameOf(const testing::TestParamInfo<As>& as) {
  return as.param == As::user ? "AsAUser" : "AsSuperuser";
}

INSTANTIATE_TEST_SUITE_P(, BigBundleTest, testing::Values(As::user, As::superuser), nameOf);

TEST_P(BigBundleTest, IsOpenedAndItsImageDetachedWhenItIsWholeThoughTheHelperHasEnded) {
  install();
  attachBigImage();
  std::optional<SlowFiles> slowness(std::in_place, machine().mountPoint(), kDelay,
                                    SlowFiles::Folders::quick, SlowFiles::Extent::fileSystem);
  EXPECT_EQ(machine().run(arguments()), 0);
  EXPECT_EQ(machine().messages(), expectedLog());
  EXPECT_FALSE(isOpened());
  EXPECT_FALSE(fs::exists(entry()));
  EXPECT_FALSE(isWhole());
  EXPECT_TRUE(machine().diskImageIsAttached());
  EXPECT_TRUE(loginManager().isHeld());
  slowness.reset();
  EXPECT_TRUE(waitFor([&] { return isOpened(); }, kCopyLimit)) << machine().output();
  EXPECT_TRUE(isWhole());
  EXPECT_TRUE(fs::exists(entry()));
  EXPECT_TRUE(waitFor([&] { return !machine().diskImageIsAttached(); }));
  EXPECT_EQ(UpdateMachine::versionOf(machine().trashedBundle()), "1.0");
  EXPECT_TRUE(waitFor([] { return UpdateMachine::programsThatRun().empty(); }))
      << testing::PrintToString(UpdateMachine::programsThatRun());
  EXPECT_TRUE(waitFor([&] { return !loginManager().isHeld(); }));
  EXPECT_THAT(machine().output(), Not(HasSubstr("Unable")));
}

TEST_P(BigBundleTest, WhoseCopyFailsIsNotOpenedAndThatIsSaid) {
  sandbox().mountTmpfs("Applications", 40UL << 20U);
  install();
  attachBigImage();
  std::optional<SlowFiles> slowness(std::in_place, machine().mountPoint(), kDelay,
                                    SlowFiles::Folders::quick, SlowFiles::Extent::fileSystem);
  EXPECT_EQ(machine().run(arguments()), 0);
  EXPECT_EQ(machine().messages(), expectedLog());
  slowness.reset();
  const std::string because = machine().destination() + " because it was not written completely\n";
  EXPECT_TRUE(waitFor(
      [&] { return machine().output().find("Unable to open " + because) != std::string::npos; },
      kCopyLimit));
  EXPECT_THAT(machine().output(), HasSubstr("Unable to register " + because));
  EXPECT_TRUE(waitFor([&] { return !machine().diskImageIsAttached(); }));
  EXPECT_TRUE(waitFor([] { return UpdateMachine::programsThatRun().empty(); }));
  EXPECT_FALSE(isOpened());
  EXPECT_FALSE(fs::exists(entry()));
  EXPECT_EQ(UpdateMachine::versionOf(machine().trashedBundle()), "1.0");
}

class BigBundlePausesTest : public BigBundleTest {
  UpdateMachine::Pauses pauses() const override { return UpdateMachine::Pauses::real; }
};

INSTANTIATE_TEST_SUITE_P(, BigBundlePausesTest, testing::Values(As::superuser), nameOf);

TEST_P(BigBundlePausesTest, AreAsLongAsThoseOfAnyOtherUpdate) {
  install();
  attachBigImage();
  const SlowFiles slowness(machine().mountPoint(), kDelay, SlowFiles::Folders::quick,
                           SlowFiles::Extent::fileSystem);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(machine().run(arguments()), 0);
  const auto length = std::chrono::steady_clock::now() - begin;
  // Three for the updater, two after the copy, one before the registration, five for the detach.
  EXPECT_GE(length, std::chrono::seconds(11));
  EXPECT_LT(length, std::chrono::seconds(16));
  EXPECT_EQ(machine().messages(), expectedLog());
}

}  // namespace
