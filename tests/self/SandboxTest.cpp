#include "tests/support/Sandbox.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <fstream>
#include <string>

namespace {

using test::Sandbox;
using testing::Not;

class SandboxTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  }

  Sandbox sandbox_;
};

TEST_F(SandboxTest, ThePeopleStandFirstAndAreFoundByNameAndNumber) {
  sandbox_.simulateMachine();
  EXPECT_THAT(test::readFile("/etc/passwd"), testing::StartsWith("anna:x:61001:61001::"));
  EXPECT_EQ(::getpwnam(Sandbox::kOtherUser)->pw_uid, Sandbox::kOtherUserId);
  EXPECT_EQ(::getpwuid(Sandbox::kOtherUserId)->pw_dir, sandbox_.homeOf(Sandbox::kOtherUser));
  EXPECT_EQ(::getgrgid(Sandbox::kConsoleUserId)->gr_name, std::string(Sandbox::kConsoleUser));
}

TEST_F(SandboxTest, TheirNamesakesAreHidden) {
  sandbox_.simulateMachine();
  std::ofstream("/etc/passwd", std::ios::app) << "anna:x:1000:1000::/home/real:/bin/sh\n"
                                                 "real:x:61002:1000::/home/real:/bin/sh\n"
                                                 "other:x:1001:1001::/home/other:/bin/sh\n";
  Sandbox next;
  next.simulateMachine();
  const std::string people = test::readFile("/etc/passwd");
  EXPECT_THAT(people, Not(testing::HasSubstr("/home/real")));
  EXPECT_THAT(people, testing::HasSubstr("other:x:1001:1001::/home/other:/bin/sh\n"));
}

}  // namespace
