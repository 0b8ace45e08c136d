#include "platform/Bundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ProcessInfo.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using platform::Bundle;
using platform::PropertyList;
using test::Sandbox;
namespace property_list = platform::property_list;

class BundleTest : public testing::Test {
 protected:
  std::string makeProgram(const std::string& relative) const {
    const std::string path = sandbox.makeFile(relative, "#!/bin/sh\n");
    fs::permissions(path, fs::perms::owner_all);
    return path;
  }
  void makeInfo(const std::string& bundle, const PropertyList::Dictionary& info) const {
    sandbox.makeFile(bundle + "/Contents/Info.plist",
                     property_list::serialized(info, property_list::Format::xml));
  }
  Sandbox sandbox;
};

TEST_F(BundleTest, ItsInformationIsRead) {
  makeInfo("A.app", {{"CFBundleIdentifier", std::string("com.example.A")},
                     {"CFBundleName", std::string("A")},
                     {"number", std::int64_t{1}}});
  const auto bundle = Bundle::at(sandbox.path("A.app"));
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->path(), sandbox.path("A.app"));
  EXPECT_EQ(bundle->identifier(), "com.example.A");
  EXPECT_EQ(bundle->infoString("CFBundleName"), "A");
  EXPECT_EQ(bundle->infoString("number"), std::nullopt);
  EXPECT_EQ(bundle->infoString("missing"), std::nullopt);
  EXPECT_EQ(bundle->info().size(), 3U);
}

TEST_F(BundleTest, WhatIsNoDirectoryIsNoBundle) {
  EXPECT_FALSE(Bundle::at(sandbox.path("missing")));
  EXPECT_FALSE(Bundle::at(sandbox.makeFile("file.app")));
  EXPECT_FALSE(Bundle::at(""));
}

TEST_F(BundleTest, ADamagedInformationFileReadsAsEmpty) {
  sandbox.makeFile("A.app/Contents/Info.plist", "<plist>");
  const auto bundle = Bundle::at(sandbox.path("A.app"));
  ASSERT_TRUE(bundle);
  EXPECT_TRUE(bundle->info().empty());
  EXPECT_EQ(bundle->identifier(), std::nullopt);
}

TEST_F(BundleTest, TheProgramIsFoundInTheSystemsFolderFirst) {
  makeInfo("A.app", {{"CFBundleExecutable", std::string("run")}});
  const std::string beside = makeProgram("A.app/run");
  EXPECT_EQ(Bundle::at(sandbox.path("A.app"))->executablePath(), beside);
  const std::string other = makeProgram("A.app/Contents/MacOS/run");
  EXPECT_EQ(Bundle::at(sandbox.path("A.app"))->executablePath(), other);
  const std::string own = makeProgram("A.app/Contents/Linux/run");
  EXPECT_EQ(Bundle::at(sandbox.path("A.app"))->executablePath(), own);
}

TEST_F(BundleTest, WithoutInformationTheProgramHasTheBundlesName) {
  const std::string program = makeProgram("A.app/A");
  EXPECT_EQ(Bundle::at(sandbox.path("A.app"))->executablePath(), program);
  EXPECT_EQ(Bundle::at(sandbox.path("A.app/"))->executablePath(), program);
}

TEST_F(BundleTest, AProgramNameThatLeadsOutOfTheBundleIsRefused) {
  makeProgram("outside");
  makeProgram("A.app/Contents/Linux/inside");
  for (const std::string name : {"../../../outside", "/bin/sh", "..", ".", "", "sub/inside"}) {
    makeInfo("A.app", {{"CFBundleExecutable", name}});
    EXPECT_EQ(Bundle::at(sandbox.path("A.app"))->executablePath(), std::nullopt) << name;
  }
}

TEST_F(BundleTest, WhatCannotBeRunIsNoProgram) {
  makeInfo("A.app", {{"CFBundleExecutable", std::string("run")}});
  sandbox.makeFile("A.app/Contents/MacOS/run");
  sandbox.makeDirectory("A.app/Contents/Linux/run");
  EXPECT_EQ(Bundle::at(sandbox.path("A.app"))->executablePath(), std::nullopt);
}

TEST_F(BundleTest, ResourcesAreFoundByNameAndType) {
  const std::string resource = sandbox.makeDirectory("A.app/Contents/Resources/Bug Reporter.app");
  const auto bundle = Bundle::at(sandbox.path("A.app"));
  EXPECT_EQ(bundle->resourcePath("Bug Reporter", "app"), resource);
  EXPECT_EQ(bundle->resourcePath("Bug Reporter", "bundle"), std::nullopt);
  EXPECT_EQ(bundle->resourcePath("", "app"), std::nullopt);
  EXPECT_EQ(bundle->resourcePath("Bug Reporter.app", ""), resource);
}

TEST_F(BundleTest, HelperProgramsStandBesideTheProgram) {
  makeProgram("A.app/Contents/Linux/A");
  const std::string helper = makeProgram("A.app/Contents/Linux/helper");
  makeProgram("A.app/Contents/secret");
  const auto bundle = Bundle::at(sandbox.path("A.app"));
  EXPECT_EQ(bundle->auxiliaryPath("helper"), helper);
  EXPECT_EQ(bundle->auxiliaryPath("missing"), std::nullopt);
  EXPECT_EQ(bundle->auxiliaryPath("../secret"), std::nullopt);
  EXPECT_EQ(bundle->auxiliaryPath(""), std::nullopt);
  EXPECT_EQ(Bundle::at(sandbox.makeDirectory("B.app"))->auxiliaryPath("helper"), std::nullopt);
}

TEST_F(BundleTest, AProgramOutsideAnyBundleHasItsOwnFolder) {
  const std::string program = fs::read_symlink("/proc/self/exe");
  const Bundle& bundle = Bundle::main();
  EXPECT_EQ(bundle.executablePath(), program);
  EXPECT_EQ(bundle.path(), fs::path(program).parent_path());
  EXPECT_TRUE(bundle.info().empty());
  EXPECT_EQ(bundle.auxiliaryPath("BundleTest"), program);
}

}  // namespace
