#include "tests/support/PrivateMachine.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using test::Sandbox;

// A name that nothing has.
std::string unusedName() {
  return "qv-private-machine-test-" + std::to_string(::getpid());
}

// The same path for who started this program, whose machine is the real one.
std::string outside(const std::string& path) {
  return "/proc/" + std::to_string(::getppid()) + "/root" + path;
}

class PrivateMachineTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  }
};

TEST_F(PrivateMachineTest, NothingOfTheMachineCanBeMadeMovedOrRemoved) {
  for (const std::string folder :
       {"", "/etc", "/usr", "/opt", "/dev", "/sys", QV_TEST_SOURCES, QV_TEST_BUILD}) {
    if (!fs::exists(folder + "/")) continue;
    EXPECT_EQ(::mkdir((folder + "/" + unusedName()).c_str(), 0700), -1) << folder;
    EXPECT_EQ(errno, EROFS) << folder;
  }
  // Of names that would also be refused if they were there: no harm when this fails.
  EXPECT_EQ(std::rename(("/" + unusedName()).c_str(), ("/usr/" + unusedName()).c_str()), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(::chmod(QV_TEST_SOURCES "/support/lsan.supp", 0644), -1);
  EXPECT_EQ(errno, EROFS);
}

TEST_F(PrivateMachineTest, WhatIsMadeInItsOwnFoldersStaysInThem) {
  for (const std::string folder : {"/tmp", "/var/tmp", "/run", "/dev/shm", "/home", "/root",
                                   "/var/lib", "/usr/local/bin", "/run/user"}) {
    const std::string file = folder + "/" + unusedName();
    std::ofstream(file) << "x";
    EXPECT_EQ(test::readFile(file), "x") << file;
    EXPECT_FALSE(fs::exists(outside(file))) << file;
    fs::remove(file);
  }
}

TEST_F(PrivateMachineTest, ThePeopleOfTheMachineHaveNoFilesInIt) {
  for (const char* folder : {"/home", "/root"}) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      EXPECT_FALSE(
          entry.is_regular_file() && !entry.path().string().starts_with(QV_TEST_BUILD) &&
          !entry.path().string().starts_with(fs::path(QV_TEST_SOURCES).parent_path().string()))
          << entry.path();
    }
  }
}

TEST_F(PrivateMachineTest, TheScratchFolderIsTheMachinesAndIsWritten) {
  const std::string file = std::string(std::getenv("TMPDIR")) + "/" + unusedName();
  std::ofstream(file) << "x";
  EXPECT_EQ(test::readFile(file), "x");
}

TEST_F(PrivateMachineTest, WhatIsStartedInOneEntersNoOther) {
  const std::string scratch = std::getenv("TMPDIR");
  const auto tests = [&] { return std::getenv("TMPDIR") == scratch ? 7 : 1; };
  EXPECT_EQ(test::PrivateMachine::run(tests), 7);
}

}  // namespace
