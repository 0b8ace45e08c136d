#include <gtest/gtest.h>

#include <filesystem>

#include "platform/Workspace.h"
#include "tests/support/Sandbox.h"

namespace {

using platform::workspace::isFilePackage;
using test::Sandbox;

TEST(FilePackageTest, AFolderWithAPackagesExtensionIsOne) {
  const Sandbox sandbox;
  for (const char* name : {"A.app", "B.APP", "C.bundle", "D.framework", "E.plugin"}) {
    EXPECT_TRUE(isFilePackage(sandbox.makeDirectory(name))) << name;
  }
  EXPECT_TRUE(isFilePackage(sandbox.path("A.app/")));
  EXPECT_FALSE(isFilePackage(sandbox.makeDirectory("folder")));
  EXPECT_FALSE(isFilePackage(sandbox.makeDirectory("folder.d")));
  EXPECT_FALSE(isFilePackage(sandbox.makeDirectory(".app")));
}

TEST(FilePackageTest, AFolderWithABundlesInformationIsOneUnderAnyName) {
  const Sandbox sandbox;
  sandbox.makeFile("anything/Contents/Info.plist");
  EXPECT_TRUE(isFilePackage(sandbox.path("anything")));
}

TEST(FilePackageTest, AFileIsNoneAndALinkCountsByItsTarget) {
  const Sandbox sandbox;
  EXPECT_FALSE(isFilePackage(sandbox.makeFile("file.app")));
  EXPECT_FALSE(isFilePackage(sandbox.path("missing.app")));
  sandbox.makeDirectory("A.app");
  std::filesystem::create_symlink("A.app", sandbox.path("link.app"));
  EXPECT_TRUE(isFilePackage(sandbox.path("link.app")));
}

}  // namespace
