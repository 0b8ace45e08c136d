#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "Shared/QVAuthorization.h"
#include "tests/support/Notes.h"
#include "tests/support/NotingSession.h"
#include "tests/support/QuickClock.h"
#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVAuthorizationPausesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    test::observePauses(test::notePause);
  }
  QVAuthorization& sessionOfUserAnswering(int status) {
    sandbox_.becomeUser(Sandbox::kConsoleUser);
    QVAuthorization& session = QVAuthorization::sharedController(false);
    session.setAuthRef(std::make_shared<test::NotingSession>(status));
    return session;
  }

  Sandbox sandbox_;
};

TEST_F(QVAuthorizationPausesTest, HalfAMillisecondFollowsTheFolderThatAUserMakes) {
  EXPECT_TRUE(sessionOfUserAnswering(0).authCreateDir("/opt/x"));
  EXPECT_THAT(test::notes(), ElementsAre("/bin/mkdir [-p] [/opt/x]", "sleeps 0.0005 s"));
}

TEST_F(QVAuthorizationPausesTest, NothingFollowsAFolderThatCannotBeMade) {
  EXPECT_FALSE(sessionOfUserAnswering(EACCES).authCreateDir("/opt/x"));
  EXPECT_THAT(test::notes(), ElementsAre("/bin/mkdir [-p] [/opt/x]"));
}

TEST_F(QVAuthorizationPausesTest, NothingFollowsTheFolderThatTheSuperuserMakes) {
  EXPECT_TRUE(QVAuthorization::sharedController().authCreateDir(sandbox_.path("x")));
  EXPECT_THAT(test::notes(), IsEmpty());
}

TEST_F(QVAuthorizationPausesTest, NothingFollowsTheOtherOperations) {
  const std::string item = sandbox_.makeFile("item");
  QVAuthorization& session = sessionOfUserAnswering(0);
  EXPECT_TRUE(session.authRemoveFile(item));
  EXPECT_TRUE(session.authMoveFile(item, "/opt/x"));
  EXPECT_TRUE(session.authCopyFile(item, "/opt/x"));
  EXPECT_EQ(test::notes().size(), 3U);
}

}  // namespace
