#include "app/UpdateArguments.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/UserDefaults.h"
#include "tests/support/Sandbox.h"

namespace {

UpdateArguments argumentsOf(std::vector<const char*> words) {
  words.insert(words.begin(), "QVUpdateHelper");
  platform::user_defaults::setArguments(static_cast<int>(words.size()), words.data());
  return UpdateArguments::fromUserDefaults();
}

TEST(UpdateArgumentsTest, AreReadFromTheCommandLinesPairs) {
  const test::Sandbox sandbox;
  const UpdateArguments arguments =
      argumentsOf({"-source", "/Volumes/New/A.app", "-destination", "/opt/A.app", "-mountpath",
                   "/Volumes/New", "-silent", "YES"});
  EXPECT_EQ(arguments.source, "/Volumes/New/A.app");
  EXPECT_EQ(arguments.destination, "/opt/A.app");
  EXPECT_EQ(arguments.mountPath, "/Volumes/New");
  EXPECT_TRUE(arguments.silent);
}

TEST(UpdateArgumentsTest, AreAbsentWhenNotGiven) {
  const test::Sandbox sandbox;
  const UpdateArguments arguments = argumentsOf({});
  EXPECT_FALSE(arguments.source);
  EXPECT_FALSE(arguments.destination);
  EXPECT_FALSE(arguments.mountPath);
  EXPECT_FALSE(arguments.silent);
}

TEST(UpdateArgumentsTest, AnEmptyMountPathIsGiven) {
  const test::Sandbox sandbox;
  EXPECT_EQ(argumentsOf({"-mountpath", ""}).mountPath, "");
}

bool nameTwoBundles(std::optional<std::string> source, std::optional<std::string> destination) {
  UpdateArguments arguments;
  arguments.source = std::move(source);
  arguments.destination = std::move(destination);
  return arguments.nameTwoBundles();
}

TEST(UpdateArgumentsTest, BothBundlesMustEndInTheSuffix) {
  EXPECT_TRUE(nameTwoBundles("/a.app", "/b.app"));
  EXPECT_FALSE(nameTwoBundles("/a", "/b.app"));
  EXPECT_FALSE(nameTwoBundles("/a.app", "/b"));
  EXPECT_FALSE(nameTwoBundles("/a.app", std::nullopt));
  EXPECT_FALSE(nameTwoBundles(std::nullopt, "/b.app"));
}

TEST(UpdateArgumentsTest, ASuffixInOtherLetterCaseIsNoBundle) {
  EXPECT_FALSE(nameTwoBundles("/a.app", "/b.APP"));
}

TEST(UpdateArgumentsTest, ATrailingSlashIsNoBundle) {
  EXPECT_FALSE(nameTwoBundles("/a.app", "/b.app/"));
}

}  // namespace
