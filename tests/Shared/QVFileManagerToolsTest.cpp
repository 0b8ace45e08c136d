#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "tests/support/Notes.h"
#include "tests/support/NotingSession.h"
#include "tests/support/Sandbox.h"
#include "tests/support/ToolRecorder.h"

// The command lines of the tools that do a person's file work, to the letter.
namespace {

using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerToolsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    recorder_.emplace(sandbox_);
    recorder_->standInFor("/usr/bin/ditto");
    recorder_->standInFor("/usr/bin/touch");
    locked_ = sandbox_.makeFile("locked");
    sandbox_.becomeUser(Sandbox::kConsoleUser);
    home_ = sandbox_.home();
  }

  Sandbox sandbox_;
  std::optional<test::ToolRecorder> recorder_;
  std::string locked_;
  std::string home_;
};

TEST_F(QVFileManagerToolsTest, AnArchiveIsMadeByTheseCommandLines) {
  EXPECT_FALSE(QVFileManager::compressFile(home_, home_ + "/A.zip")) << "nothing was made";
  EXPECT_FALSE(QVFileManager::compressFile(home_, home_ + "/A.zip", false));
  EXPECT_THAT(
      recorder_->commands(),
      ElementsAre("/usr/bin/ditto [-ck] [--keepParent] [" + home_ + "] [" + home_ + "/A.zip]",
                  "/usr/bin/ditto [-ck] [" + home_ + "] [" + home_ + "/A.zip]"));
}

TEST_F(QVFileManagerToolsTest, AnArchiveIsUnpackedByThisCommandLine) {
  EXPECT_FALSE(QVFileManager::decompressFile("/A.zip", home_ + "/A")) << "nothing was made";
  EXPECT_THAT(recorder_->commands(),
              ElementsAre("/usr/bin/ditto [-xk] [/A.zip] [" + home_ + "/A]"));
}

TEST_F(QVFileManagerToolsTest, AFileThatThePersonMayWriteIsTouchedByThisCommandLine) {
  EXPECT_TRUE(QVFileManager::touchFile(home_ + "/file"));
  EXPECT_THAT(recorder_->commands(), ElementsAre("/usr/bin/touch [-c] [" + home_ + "/file]"));
}

TEST_F(QVFileManagerToolsTest, AFileThatThePersonMayNotWriteIsTouchedByTheSameWithRights) {
  QVAuthorization::sharedController(false).setAuthRef(std::make_shared<test::NotingSession>());
  EXPECT_TRUE(QVFileManager::touchFile(locked_));
  EXPECT_THAT(test::notes(), ElementsAre("/usr/bin/touch [-c] [" + locked_ + "]"));
  EXPECT_THAT(recorder_->commands(), IsEmpty());
}

}  // namespace
