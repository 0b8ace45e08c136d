#include "Shared/FolderWalk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class FolderWalkTest : public testing::Test {
 protected:
  // Relative to the sandbox.
  std::vector<std::string> visited(const std::string& folder) const {
    std::vector<std::string> paths;
    forEachFileIn(sandbox_.path(folder), [&](const std::string& path) {
      paths.push_back(fs::path(path).lexically_relative(sandbox_.root()));
    });
    return paths;
  }

  test::Sandbox sandbox_;
};

TEST_F(FolderWalkTest, FilesAreVisitedInTheOrderOfTheListings) {
  for (const char* file : {"tree/b/2", "tree/b/1", "tree/a", "tree/c", "tree/.hidden"}) {
    sandbox_.makeFile(file);
  }
  sandbox_.makeDirectory("tree/empty");
  EXPECT_THAT(visited("tree"),
              ElementsAre("tree/.hidden", "tree/a", "tree/b/1", "tree/b/2", "tree/c"));
}

TEST_F(FolderWalkTest, LinksToFoldersAreGoneThroughOnceAndOtherLinksAreFiles) {
  sandbox_.makeFile("elsewhere/file");
  sandbox_.makeDirectory("tree");
  fs::create_directory_symlink("../elsewhere", sandbox_.path("tree/one"));
  fs::create_directory_symlink("../elsewhere", sandbox_.path("tree/two"));
  fs::create_symlink("nowhere", sandbox_.path("tree/dangling"));
  fs::create_symlink("../elsewhere/file", sandbox_.path("tree/link"));
  EXPECT_THAT(visited("tree"), ElementsAre("tree/dangling", "tree/link", "tree/one/file"));
}

TEST_F(FolderWalkTest, ALoopOfLinksEnds) {
  sandbox_.makeFile("tree/file");
  fs::create_directory_symlink(".", sandbox_.path("tree/self"));
  fs::create_directory_symlink("..", sandbox_.path("tree/up"));
  fs::create_symlink("endless", sandbox_.path("tree/endless"));
  EXPECT_THAT(visited("tree"), testing::Contains("tree/file").Times(1));
}

TEST_F(FolderWalkTest, WhatIsVisitedMayBeRemoved) {
  for (const char* file : {"tree/a", "tree/b/1", "tree/c"}) sandbox_.makeFile(file);
  forEachFileIn(sandbox_.path("tree"), [](const std::string& path) { fs::remove(path); });
  EXPECT_THAT(visited("tree"), IsEmpty());
}

TEST_F(FolderWalkTest, WhatIsNoFolderHasNoFiles) {
  sandbox_.makeFile("file");
  EXPECT_THAT(visited("file"), IsEmpty());
  EXPECT_THAT(visited("missing"), IsEmpty());
}

}  // namespace
