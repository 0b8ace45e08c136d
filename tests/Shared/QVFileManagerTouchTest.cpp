#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "platform/FileSystem.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/Polkit.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using std::chrono::hours;
using std::chrono::system_clock;
using test::Sandbox;

class QVFileManagerTouchTest : public testing::Test {
 protected:
  static void makeOld(const std::string& path) {
    using std::filesystem::file_time_type;
    std::filesystem::last_write_time(path, file_time_type::clock::now() - hours(24));
  }
  static bool isNew(const std::string& path) {
    const auto attributes = fs::attributes(path);
    return attributes && attributes->modificationDate > system_clock::now() - hours(1);
  }

  Sandbox sandbox_;
};

TEST_F(QVFileManagerTouchTest, AFileAndAFolderGetTheTimesOfNow) {
  for (const std::string& path :
       {sandbox_.makeFile("file", "x"), sandbox_.makeDirectory("A.app")}) {
    makeOld(path);
    EXPECT_TRUE(QVFileManager::touchFile(path));
    EXPECT_TRUE(isNew(path)) << path;
  }
}

TEST_F(QVFileManagerTouchTest, WithTheDateOfCreationItSucceedsAllTheSame) {
  const std::string file = sandbox_.makeFile("file", "x");
  makeOld(file);
  EXPECT_TRUE(QVFileManager::touchFile(file, true));
  EXPECT_TRUE(isNew(file));
}

TEST_F(QVFileManagerTouchTest, AMissingFileIsNotMadeAndNoRightsAreAskedFor) {
  if (Sandbox::canSimulateMachine()) {
    sandbox_.simulateMachine();
    sandbox_.becomeUser(Sandbox::kConsoleUser);
  }
  const std::string missing = sandbox_.home() + "/missing";
  EXPECT_TRUE(QVFileManager::touchFile(missing));
  EXPECT_FALSE(fs::exists(missing));
  EXPECT_FALSE(QVAuthorization::sharedController().isAuthorized());
}

// The tool fails: no file can have such a name.
TEST_F(QVFileManagerTouchTest, WhatTheToolSaysOfItselfIsNotAnswered) {
  EXPECT_TRUE(QVFileManager::touchFile(sandbox_.path(std::string(256, 'x'))));
}

TEST_F(QVFileManagerTouchTest, AToolThatHangsIsWaitedForFiveSeconds) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string tool = sandbox_.makeFile("tool", "#!/bin/sh\nexec sleep 60\n");
  ASSERT_EQ(::chmod(tool.c_str(), 0755), 0);
  ASSERT_EQ(::mount(tool.c_str(), "/usr/bin/touch", nullptr, MS_BIND, nullptr), 0);
  const std::string file = sandbox_.makeFile("file");
  test::besideMainLoop([&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(QVFileManager::touchFile(file));
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_GE(time, std::chrono::milliseconds(4900));
    EXPECT_LT(time, std::chrono::milliseconds(9000));
  });
}

TEST_F(QVFileManagerTouchTest, NoPathIsRefused) {
  EXPECT_FALSE(QVFileManager::touchFile(std::nullopt));
  EXPECT_FALSE(QVFileManager::touchFile(std::nullopt, true));
}

// Each of them at once, for the tool is waited for.
TEST_F(QVFileManagerTouchTest, WhatTheUserMayNotWriteIsTouchedWithAdministratorRights) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const test::Polkit polkit(sandbox_);
  std::vector<std::string> files;
  for (int i = 0; i < 20; ++i) files.push_back(sandbox_.makeFile("roots " + std::to_string(i)));
  for (const std::string& file : files) makeOld(file);
  EXPECT_TRUE(test::passesAs(sandbox_, Sandbox::kConsoleUser, [&] {
    EXPECT_TRUE(QVAuthorization::sharedController().authStartWithUser(test::Polkit::kAdministrator,
                                                                      test::Polkit::kPassword));
    for (const std::string& file : files) {
      EXPECT_TRUE(QVFileManager::touchFile(file));
      EXPECT_TRUE(isNew(file)) << file;
    }
  }));
}

TEST_F(QVFileManagerTouchTest, WithoutAdministratorRightsItFails) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const test::Polkit polkit(sandbox_, test::Polkit::Without::bus);
  const std::string file = sandbox_.makeFile("roots", "x");
  makeOld(file);
  EXPECT_TRUE(test::passesAs(sandbox_, Sandbox::kConsoleUser, [&] {
    EXPECT_FALSE(QVFileManager::touchFile(file));
    EXPECT_FALSE(isNew(file));
  }));
}

}  // namespace
