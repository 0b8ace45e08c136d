#include "platform/linux/files/TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/files/Location.h"
#include "tests/support/Sandbox.h"

namespace {

using platform::TreeVisitor;
using platform::TreeWalk;
using test::Sandbox;

// Writes down what it meets.
class Recorder final : public TreeVisitor {
 public:
  posix::FileDescriptor enter(int parent, const std::string& name) override {
    events.push_back("enter " + name);
    return platform::openFolder(parent, name);
  }
  bool visit(const Directory& folder, const Item& item) override {
    const std::string name(item.name);
    events.push_back("visit " + name);
    types[name] = item.type;
    if (onVisit) onVisit(folder->get(), name);
    return item.type == DT_DIR;
  }
  bool leave(const Directory&, int parent, const std::string& name) override {
    struct stat status {};
    events.push_back("leave " + name);
    parentsHoldTheirFolders =
        parentsHoldTheirFolders && ::fstatat(parent, name.c_str(), &status, 0) == 0;
    if (removes) ::unlinkat(parent, name.c_str(), AT_REMOVEDIR);
    return again > 0 && again-- > 0;
  }
  void failed(int error, int, const char* name) override {
    events.push_back("failed " + std::string(name) + " " + std::to_string(error));
  }
  bool stopped() override { return events.size() >= stopAfter; }

  std::ptrdiff_t count(const std::string& event) const { return std::ranges::count(events, event); }

  std::vector<std::string> events;
  std::map<std::string, unsigned char> types;
  std::function<void(int folder, const std::string& name)> onVisit;
  bool parentsHoldTheirFolders = true;
  int again = 0;
  bool removes = false;
  std::size_t stopAfter = SIZE_MAX;
};

class TreeWalkTest : public testing::Test {
 protected:
  void walk(const std::string& path, TreeWalk::ReadOn readOn = TreeWalk::ReadOn::whereItStopped) {
    const platform::Location root = platform::locate(path);
    TreeWalk(recorder_, readOn).walk(root.descriptor(), root.name);
  }
  std::size_t openFiles() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
  }

  Sandbox sandbox_;
  Recorder recorder_;
};

TEST_F(TreeWalkTest, AFolderIsLeftWhenAllBelowItWasGoneThrough) {
  sandbox_.makeFile("tree/folder/inner");
  walk(sandbox_.path("tree"));
  const std::vector<std::string> expected = {"enter tree",  "visit folder", "enter folder",
                                             "visit inner", "leave folder", "leave tree"};
  EXPECT_EQ(recorder_.events, expected);
  EXPECT_TRUE(recorder_.parentsHoldTheirFolders);
}

TEST_F(TreeWalkTest, ALinkIsAnItemAndNotAWay) {
  sandbox_.makeFile("elsewhere/file");
  sandbox_.makeDirectory("tree");
  std::filesystem::create_symlink(sandbox_.path("elsewhere"), sandbox_.path("tree/link"));
  walk(sandbox_.path("tree"));
  EXPECT_EQ(recorder_.types.at("link"), DT_LNK);
  EXPECT_EQ(recorder_.count("visit file"), 0);
}

TEST_F(TreeWalkTest, AFolderThatIsWantedAgainIsEnteredAgain) {
  sandbox_.makeFile("tree/file");
  recorder_.again = 1;
  walk(sandbox_.path("tree"));
  EXPECT_EQ(recorder_.count("enter tree"), 2);
  EXPECT_EQ(recorder_.count("visit file"), 2);
}

TEST_F(TreeWalkTest, ItStopsWhenItIsAskedTo) {
  for (int i = 0; i < 10; ++i) sandbox_.makeFile("tree/" + std::to_string(i));
  recorder_.stopAfter = 4;
  walk(sandbox_.path("tree"));
  EXPECT_EQ(recorder_.events.size(), 4U);
}

TEST_F(TreeWalkTest, AFolderThatWasMovedAwayMeanwhileEndsTheWalk) {
  std::string deep = "tree";
  for (int i = 0; i < 40; ++i) deep += "/folder";
  sandbox_.makeFile(deep + "/last");
  recorder_.onVisit = [&](int, const std::string& name) {
    if (name != "last") return;
    std::filesystem::rename(sandbox_.path("tree/folder/folder"), sandbox_.path("moved"));
  };
  walk(sandbox_.path("tree"));
  EXPECT_EQ(recorder_.events.back(), "failed .. " + std::to_string(ESTALE));
}

TEST_F(TreeWalkTest, ADeepTreeKeepsFewFilesOpen) {
  std::string deep = "tree";
  for (int i = 0; i < 200; ++i) deep += "/folder";
  sandbox_.makeFile(deep + "/last");
  const std::size_t before = openFiles();
  std::size_t open = 0;
  recorder_.onVisit = [&](int, const std::string& name) {
    if (name == "last") open = openFiles();
  };
  walk(sandbox_.path("tree"));
  EXPECT_LE(open - before, 40U);
  EXPECT_EQ(recorder_.count("leave folder"), 200);
  EXPECT_EQ(openFiles(), before);
}

// One folder with more folders than are remembered at once, in memory.
class ManyFoldersTest : public TreeWalkTest {
 protected:
  static constexpr int kFolders = 40000;

  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    root_ = sandbox_.mountTmpfs("memory", 1UL << 30) + "/tree";
    ASSERT_EQ(::mkdir(root_.c_str(), S_IRWXU), 0);
    for (int i = 0; i < kFolders; ++i) {
      ASSERT_EQ(::mkdir((root_ + "/" + std::to_string(i)).c_str(), S_IRWXU), 0);
    }
  }

  std::string root_;
};

TEST_F(ManyFoldersTest, EachIsGoneThroughOnceAndSomeBeforeTheLastIsRead) {
  walk(root_);
  const auto& events = recorder_.events;
  EXPECT_EQ(events.size(), std::size_t{kFolders} * 3 + 2);
  const auto firstLeft = std::ranges::find_if(
      events, [](const std::string& event) { return event.starts_with("leave "); });
  EXPECT_LE(std::count_if(events.begin(), firstLeft,
                          [](const std::string& event) { return event.starts_with("visit "); }),
            16384);
  EXPECT_EQ(std::set<std::string>(events.begin(), events.end()).size(), events.size());
}

TEST_F(ManyFoldersTest, WhatIsRemovedOnTheWayHidesNothingFromReadingFromTheBeginning) {
  recorder_.removes = true;
  walk(root_, TreeWalk::ReadOn::fromTheBeginning);
  EXPECT_EQ(recorder_.events.size(), std::size_t{kFolders} * 3 + 2);
  EXPECT_NE(::access(root_.c_str(), F_OK), 0);
}

}  // namespace
