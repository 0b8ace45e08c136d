#include "platform/UserDefaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/support/Sandbox.h"

namespace {

using platform::PropertyList;
using test::Sandbox;
using testing::Eq;
using testing::Optional;
namespace defaults = platform::user_defaults;
namespace property_list = platform::property_list;

void setArguments(std::vector<const char*> words) {
  words.insert(words.begin(), "program");
  defaults::setArguments(static_cast<int>(words.size()), words.data());
}

TEST(UserDefaultsTest, PairsOfADashedKeyAndAValueAreTaken) {
  setArguments({"-source", "/a.app", "-silent", "YES"});
  EXPECT_EQ(defaults::string("source"), "/a.app");
  EXPECT_TRUE(defaults::boolean("silent"));
}

TEST(UserDefaultsTest, TheWordAfterAKeyIsItsValueWhateverItIs) {
  setArguments({"-source", "-destination", "/b.app", "-mountpath", ""});
  EXPECT_EQ(defaults::string("source"), "-destination");
  EXPECT_EQ(defaults::string("mountpath"), "");
  EXPECT_EQ(defaults::string("destination"), std::nullopt);
}

TEST(UserDefaultsTest, OtherWordsAreSkipped) {
  setArguments({"stray", "-", "-a", "1", "/b", "--long", "2", "-end"});
  EXPECT_EQ(defaults::string("a"), "1");
  EXPECT_EQ(defaults::string("-long"), "2");
  EXPECT_EQ(defaults::string("end"), std::nullopt);
  EXPECT_EQ(defaults::string(""), std::nullopt);
  EXPECT_EQ(defaults::string("program"), std::nullopt);
}

TEST(UserDefaultsTest, TheLastPairOfAKeyCounts) {
  setArguments({"-a", "1", "-a", "2"});
  EXPECT_EQ(defaults::string("a"), "2");
}

TEST(UserDefaultsTest, NoArgumentsAtAllAreSurvived) {
  defaults::setArguments(0, nullptr);
  const char* const only[] = {"program", nullptr};
  defaults::setArguments(5, only);
  EXPECT_EQ(defaults::string("a"), std::nullopt);
}

TEST(UserDefaultsTest, AMissingKeyIsFalse) {
  EXPECT_FALSE(defaults::boolean("nobody has this"));
}

// With a file of one's own: as an ordinary user in the sandbox.
class UserDefaultsFileTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    sandbox.becomeUser(Sandbox::kConsoleUser);
    file = sandbox.home() + "/Library/Preferences/UserDefaultsTest.plist";
  }
  void makeFile(const std::string& contents) const {
    sandbox.makeFile(file.substr(sandbox.root().size() + 1), contents);
  }

  Sandbox sandbox;
  std::string file;
};

TEST_F(UserDefaultsFileTest, WhatIsStoredIsSeenAtOnceAndOnDiskAfterSynchronizing) {
  defaults::setObject("launch", PropertyList(std::string("now")));
  EXPECT_EQ(defaults::string("launch"), "now");
  EXPECT_FALSE(property_list::read(file));
  EXPECT_TRUE(defaults::synchronize());
  EXPECT_THAT(property_list::read(file),
              Optional(Eq(PropertyList::Dictionary{{"launch", std::string("now")}})));
  EXPECT_EQ(defaults::string("launch"), "now");
}

TEST_F(UserDefaultsFileTest, ArgumentsTakePrecedenceOverTheFile) {
  defaults::setObject("a", PropertyList(std::string("file")));
  ASSERT_TRUE(defaults::synchronize());
  setArguments({"-a", "argument"});
  EXPECT_EQ(defaults::string("a"), "argument");
  setArguments({});
  EXPECT_EQ(defaults::string("a"), "file");
}

TEST_F(UserDefaultsFileTest, ArgumentsAreNotWritten) {
  setArguments({"-a", "argument"});
  defaults::setObject("b", PropertyList(true));
  ASSERT_TRUE(defaults::synchronize());
  EXPECT_THAT(property_list::read(file), Optional(Eq(PropertyList::Dictionary{{"b", true}})));
}

TEST_F(UserDefaultsFileTest, OtherProcessesKeysAreKept) {
  defaults::setObject("mine", PropertyList(true));
  ASSERT_TRUE(defaults::synchronize());
  auto theirs = *property_list::read(file);
  theirs.emplace("theirs", true);
  ASSERT_TRUE(property_list::write(file, theirs, property_list::Format::xml).ok());
  defaults::setObject("mine", PropertyList(false));
  ASSERT_TRUE(defaults::synchronize());
  EXPECT_THAT(property_list::read(file),
              Optional(Eq(PropertyList::Dictionary{{"mine", false}, {"theirs", true}})));
  EXPECT_TRUE(defaults::boolean("theirs"));
}

TEST_F(UserDefaultsFileTest, ManyProcessesWritingAtOnceLoseNothing) {
  constexpr int kProcesses = 8;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      bool ok = true;
      for (int j = 0; j < 5; ++j) {
        defaults::setObject("key" + std::to_string(i * 100 + j), PropertyList(true));
        ok = defaults::synchronize() && ok;
      }
      ::_exit(ok ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(property_list::read(file)->size(), kProcesses * 5U);
}

TEST_F(UserDefaultsFileTest, ADamagedFileReadsAsEmptyAndIsKeptBesideItsSuccessor) {
  makeFile("not a property list");
  EXPECT_FALSE(defaults::object("a"));
  EXPECT_EQ(test::readFile(file), "not a property list");
  defaults::setObject("a", PropertyList(true));
  EXPECT_TRUE(defaults::synchronize());
  EXPECT_THAT(property_list::read(file), Optional(Eq(PropertyList::Dictionary{{"a", true}})));
  EXPECT_EQ(test::readFile(file + ".damaged"), "not a property list");
}

TEST_F(UserDefaultsFileTest, WhatCannotBeWrittenStaysStored) {
  const std::string library = sandbox.home() + "/Library";
  sandbox.makeFile("home/anna/Library", "in the way");
  defaults::setObject("a", PropertyList(true));
  EXPECT_FALSE(defaults::synchronize());
  EXPECT_TRUE(defaults::boolean("a"));
  ASSERT_EQ(::unlink(library.c_str()), 0);
  EXPECT_TRUE(defaults::synchronize());
  EXPECT_TRUE(property_list::read(file));
}

TEST_F(UserDefaultsFileTest, WithoutAHomeInTheEnvironmentTheUserDatabasesIsTaken) {
  ::unsetenv("HOME");
  defaults::setObject("a", PropertyList(true));
  EXPECT_TRUE(defaults::synchronize());
  EXPECT_TRUE(property_list::read(file));
}

TEST_F(UserDefaultsFileTest, NothingToWriteWritesNothing) {
  EXPECT_TRUE(defaults::synchronize());
  EXPECT_FALSE(property_list::read(file));
}

TEST_F(UserDefaultsFileTest, ThreadsMayReadAndWriteAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int j = 0; j < 20; ++j) {
        defaults::setObject("key" + std::to_string(i), PropertyList(std::int64_t{j}));
        EXPECT_TRUE(defaults::object("key" + std::to_string(i)));
        setArguments({"-x", "y"});
      }
      EXPECT_TRUE(defaults::synchronize());
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(property_list::read(file)->size(), 4U);
}

TEST(UserDefaultsSuperuserTest, TheSuperusersFileIsInItsOwnHomeWhateverTheEnvironmentSays) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  Sandbox sandbox;
  sandbox.simulateMachine();
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
  ::setenv("HOME", sandbox.homeOf(Sandbox::kConsoleUser).c_str(), 1);
  defaults::setObject("a", PropertyList(true));
  EXPECT_TRUE(defaults::synchronize());
  EXPECT_TRUE(property_list::read("/root/Library/Preferences/UserDefaultsTest.plist"));
  EXPECT_NE(::access((sandbox.homeOf(Sandbox::kConsoleUser) + "/Library").c_str(), F_OK), 0);
}

}  // namespace
