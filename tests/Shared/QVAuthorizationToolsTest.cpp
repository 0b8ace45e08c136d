#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Shared/QVAuthorization.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/Notes.h"
#include "tests/support/NotingSession.h"
#include "tests/support/Sandbox.h"
#include "tests/support/ToolRecorder.h"

// The command lines of the operations, to the letter.
namespace {

using test::consoleOf;
using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVAuthorizationToolsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(Sandbox::kConsoleUser);
    trash_ = sandbox_.makeDirectory("home/anna/.Trash");
    item_ = sandbox_.makeFile("folder/item");
    folder_ = sandbox_.path("folder");
  }

  // The superuser's tools are there to be recorded.
  void recordTools() {
    recorder_.emplace(sandbox_);
    for (const char* tool : {"/bin/rm", "/bin/mv", "/bin/cp", "/bin/mkdir"}) {
      recorder_->standInFor(tool);
    }
  }
  // The next command of the superuser.
  std::string next() {
    const auto commands = recorder_->waitForCommands(++count_);
    return commands.size() == count_ ? commands.back() : "not run";
  }

  QVAuthorization& sessionOfUser() {
    sandbox_.becomeUser(Sandbox::kConsoleUser);
    QVAuthorization& session = QVAuthorization::sharedController(false);
    session.setAuthRef(std::make_shared<test::NotingSession>());
    return session;
  }

  Sandbox sandbox_;
  std::optional<test::ToolRecorder> recorder_;
  std::size_t count_ = 0;
  std::string trash_;
  std::string item_;
  std::string folder_;
};

TEST_F(QVAuthorizationToolsTest, TheSuperusersCommandLinesAreThese) {
  recordTools();
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_TRUE(session.authRemoveFile(item_));
  EXPECT_EQ(next(), "/bin/rm [-Rdf] [" + item_ + "]");
  EXPECT_TRUE(session.authMoveFile(item_, "/opt/x"));
  EXPECT_EQ(next(), "/bin/mv [-f] [" + item_ + "] [/opt/x]");
  EXPECT_TRUE(session.authCopyFile(item_, "/opt/x"));
  EXPECT_EQ(next(), "/bin/cp [-f] [-p] [-R] [" + item_ + "] [/opt/x]");
  EXPECT_TRUE(session.authCreateDir("/opt/x/y"));
  EXPECT_EQ(next(), "/bin/mkdir [-p] [/opt/x/y]");
  EXPECT_TRUE(session.authTrashFile(item_));
  EXPECT_EQ(next(), "/bin/mv [-f] [" + item_ + "] [" + trash_ + "/item]");
  EXPECT_TRUE(session.authTrashFile(item_, true));
  EXPECT_EQ(next(), "/bin/rm [-Rdf] [" + trash_ + "/item]");
  EXPECT_TRUE(session.authTrashFolderContents(folder_));
  EXPECT_EQ(next(), "/bin/mv [-f] [" + item_ + "] [" + trash_ + "/item]");
  EXPECT_TRUE(session.authTrashFolderContents(folder_, true));
  EXPECT_EQ(next(), "/bin/rm [-R] [-f] [" + item_ + "]");
  EXPECT_TRUE(session.authMoveFolderContents(folder_, "/opt/x"));
  EXPECT_EQ(next(), "/bin/mv [-f] [" + item_ + "] [/opt/x/item]");
}

TEST_F(QVAuthorizationToolsTest, TheUsersCommandLinesAreTheSame) {
  QVAuthorization& session = sessionOfUser();
  EXPECT_TRUE(session.authRemoveFile(item_));
  EXPECT_TRUE(session.authMoveFile(item_, "/opt/x"));
  EXPECT_TRUE(session.authCopyFile(item_, "/opt/x"));
  EXPECT_TRUE(session.authCreateDir("/opt/x/y"));
  EXPECT_TRUE(session.authTrashFile(item_, true));
  EXPECT_TRUE(session.authTrashFolderContents(folder_, true));
  EXPECT_TRUE(session.authMoveFolderContents(folder_, "/opt/x"));
  const std::string trashed = "/bin/mv [-f] [" + item_ + "] [" + trash_ + "/item]";
  EXPECT_THAT(
      test::notes(),
      ElementsAre("/bin/rm [-Rdf] [" + item_ + "]", "/bin/mv [-f] [" + item_ + "] [/opt/x]",
                  "/bin/cp [-f] [-p] [-R] [" + item_ + "] [/opt/x]", "/bin/mkdir [-p] [/opt/x/y]",
                  trashed, trashed, "/bin/mv [-f] [" + item_ + "] [/opt/x/item]"));
}

TEST_F(QVAuthorizationToolsTest, TheSuperusersToolsOnOnePathRunOneAfterTheOther) {
  test::ToolRecorder recorder(sandbox_);
  recorder.standInFor("/bin/mv", "sleep 0.3");
  recorder.standInFor("/bin/cp");
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_TRUE(session.authMoveFile(item_, folder_ + "/other"));
  EXPECT_TRUE(session.authCopyFile(item_, folder_ + "/another"));
  ASSERT_EQ(recorder.waitForCommands(2).size(), 2U);
  EXPECT_THAT(recorder.commands().back(), testing::StartsWith("/bin/cp "));
  constexpr double kHundredth = 0.01;
  EXPECT_GE(recorder.runs()[1].begin - recorder.runs()[0].begin, 0.3 - kHundredth);
}

TEST_F(QVAuthorizationToolsTest, WhatTheSuperuserCannotRemoveForWantOfTheToolIsAFailure) {
  test::ToolRecorder(sandbox_).takeAway("/bin/rm");
  QVAuthorization& session = QVAuthorization::sharedController();
  constexpr char kMessage[] = "Unable to execute task: path /bin/rm doesn't exist\n";
  EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authRemoveFile(item_)); }), kMessage);
  EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authTrashFolderContents(folder_, true)); }),
            kMessage);
}

TEST_F(QVAuthorizationToolsTest, TheSuperusersOtherOperationsSucceedWhateverBecameOfTheTool) {
  test::ToolRecorder recorder(sandbox_);
  for (const char* tool : {"/bin/mv", "/bin/cp", "/bin/mkdir"}) recorder.takeAway(tool);
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_EQ(consoleOf([&] {
              EXPECT_TRUE(session.authMoveFile(item_, "/opt/x"));
              EXPECT_TRUE(session.authCopyFile(item_, "/opt/x"));
              EXPECT_TRUE(session.authCreateDir("/opt/x"));
            }),
            "Error: /bin/mv is not executable\nError: /bin/cp is not executable\n"
            "Error: /bin/mkdir is not executable\n");
}

TEST_F(QVAuthorizationToolsTest, WhatTheUserCannotHaveRunForWantOfTheToolIsAFailure) {
  test::ToolRecorder recorder(sandbox_);
  for (const char* tool : {"/bin/rm", "/bin/mv", "/bin/mkdir"}) recorder.takeAway(tool);
  QVAuthorization& session = sessionOfUser();
  EXPECT_EQ(consoleOf([&] {
              EXPECT_FALSE(session.authRemoveFile(item_));
              EXPECT_FALSE(session.authMoveFile(item_, "/opt/x"));
              EXPECT_FALSE(session.authCreateDir("/opt/x"));
            }),
            "Unable to execute task: path /bin/rm doesn't exist\n"
            "Unable to execute task: path /bin/mv doesn't exist\n"
            "Unable to execute task: path /bin/mkdir doesn't exist\n");
  EXPECT_THAT(test::notes(), IsEmpty());
}

}  // namespace
