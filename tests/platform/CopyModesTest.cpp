#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using test::Sandbox;

// A tree whose folders are their owner's alone, copied to where something changes the mode of what
// is made.
class CopyModesTest : public testing::Test {
 protected:
  void SetUp() override {
    sandbox_.makeFile("tree/folder/inner/file", "x");
    for (const char* folder : kFolders) {
      ASSERT_EQ(::chmod(sandbox_.path(std::string("tree") + folder).c_str(), 0700), 0);
    }
    ASSERT_EQ(::chmod(to_.c_str(), 0777), 0);
  }
  void expectTheSameModes() const {
    const auto status = fs::copy(sandbox_.path("tree"), to_ + "/copy");
    ASSERT_TRUE(status.ok()) << status.description();
    for (const char* folder : kFolders) {
      EXPECT_EQ(fs::attributes(to_ + "/copy" + folder)->permissions, 0700U) << folder;
    }
  }

  static constexpr const char* kFolders[] = {"", "/folder", "/folder/inner"};
  Sandbox sandbox_;
  const std::string to_ = sandbox_.makeDirectory("to");
};

TEST_F(CopyModesTest, AFolderThatHandsItsGroupDownHandsDownNothingElse) {
  ASSERT_EQ(::chmod(to_.c_str(), 02777), 0);
  expectTheSameModes();
}

TEST_F(CopyModesTest, ADefaultAccessListIsNotTakenOn) {
  if (std::system(("setfacl -d -m u::rwx,g::---,o::--- -m u:1:rwx " + to_).c_str()) != 0) {
    GTEST_SKIP() << "needs setfacl and a file system with access lists";
  }
  expectTheSameModes();
}

TEST_F(CopyModesTest, AnyMaskIsOvercome) {
  if (Sandbox::canSimulateMachine()) {
    sandbox_.simulateMachine();
    ASSERT_EQ(std::system(("chown -R 61001:61001 " + sandbox_.path("tree") + " " + to_).c_str()),
              0);
    sandbox_.becomeUser(Sandbox::kConsoleUser);
  }
  ::umask(0777);
  expectTheSameModes();
}

}  // namespace
