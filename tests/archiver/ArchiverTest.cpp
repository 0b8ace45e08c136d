#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/Sandbox.h"
#include "tests/support/ZipBuilder.h"

namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::Sandbox;
using testing::HasSubstr;

constexpr int kFailure = 1;
constexpr int kUsageError = 64;

// The program as others start it.
class ArchiverTest : public testing::Test {
 protected:
  // Its exit status; what it says is in message().
  int run(const std::string& arguments) const {
    const std::string command = "'" QV_TEST_BUNDLE "/Contents/Linux/archiver' " + arguments +
                                " 2> '" + sandbox_.path("message") + "'";
    return WEXITSTATUS(std::system(command.c_str()));
  }
  std::string message() const { return readFile(sandbox_.path("message")); }

  Sandbox sandbox_;
};

TEST_F(ArchiverTest, ItPacksAndUnpacksAndSaysNothing) {
  sandbox_.makeFile("folder/file", "x");
  const std::string archive = sandbox_.path("archive.zip");
  EXPECT_EQ(run("-ck --keepParent " + sandbox_.path("folder") + " " + archive), 0);
  EXPECT_EQ(message(), "");
  EXPECT_EQ(run("-xk " + archive + " " + sandbox_.path("unpacked")), 0);
  EXPECT_EQ(message(), "");
  EXPECT_EQ(readFile(sandbox_.path("unpacked/folder/file")), "x");
}

TEST_F(ArchiverTest, AFailureIsSaidInOneLine) {
  const std::string archive = sandbox_.makeFile("archive.zip", test::zipOf({{"../x", "bad"}}));
  EXPECT_EQ(run("-xk " + archive + " " + sandbox_.path("unpacked")), kFailure);
  EXPECT_EQ(message(), "archiver: refused \"../x\": the name leads out of the folder\n");
  EXPECT_EQ(run("-ck " + sandbox_.path("missing") + " " + sandbox_.path("new.zip")), kFailure);
  EXPECT_EQ(message(), "archiver: " + sandbox_.path("missing") + ": No such file or directory\n");
}

TEST_F(ArchiverTest, AnythingElseThanTheTwoCommandsIsAWrongUse) {
  const std::string file = sandbox_.makeFile("file");
  for (const std::string arguments : {"", "-ck", "-xk", "-ck --keepParent", "-x a b",
                                      "--keepParent -ck /a /b", "-xk --keepParent /a /b"}) {
    EXPECT_EQ(run(arguments), kUsageError) << arguments;
    EXPECT_THAT(message(), HasSubstr("usage: archiver"));
  }
  EXPECT_EQ(run("-ck " + file + " relative.zip"), kUsageError);
  EXPECT_EQ(run("-ck '' " + sandbox_.path("new.zip")), kUsageError);
  EXPECT_EQ(run("-ck " + file + " " + sandbox_.path("new.zip") + " more"), kUsageError);
  EXPECT_FALSE(fs::exists(sandbox_.path("new.zip")));
}

}  // namespace
