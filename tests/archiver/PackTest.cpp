#include "archiver/Pack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "archiver/Unpack.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using archiver::pack;
using archiver::unpack;
using test::describeTree;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PackTest : public testing::Test {
 protected:
  // A bundle with what is easily lost: modes, links, empty and closed folders, odd names, times.
  std::string makeBundle() const {
    sandbox_.makeFile("source/Sample.app/Contents/Linux/program", std::string(300000, 'p'));
    sandbox_.makeFile("source/Sample.app/Contents/\xC3\xA4 name", "umlaut");
    sandbox_.makeFile("source/Sample.app/line\nbreak", "odd");
    sandbox_.makeFile("source/Sample.app/empty file");
    sandbox_.makeFile("source/Sample.app/private", "private");
    sandbox_.makeDirectory("source/Sample.app/empty");
    const std::string bundle = sandbox_.path("source/Sample.app");
    fs::create_symlink("Contents/Linux/program", bundle + "/link");
    fs::create_symlink("../nowhere \xC3\xA4", bundle + "/empty/dangling");
    fs::permissions(bundle + "/Contents/Linux/program", fs::perms(0755));
    fs::permissions(bundle + "/private", fs::perms(0400));
    test::setTimesToASecond(bundle);
    fs::permissions(bundle + "/empty", fs::perms(0555));
    return bundle;
  }
  std::string archive() const { return sandbox_.path("place/archive.zip"); }
  std::string unpacked() const { return sandbox_.path("place/unpacked"); }
  std::vector<std::string> place() const {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(sandbox_.path("place"))) {
      names.push_back(item.path().filename());
    }
    std::ranges::sort(names);
    return names;
  }
  void SetUp() override { sandbox_.makeDirectory("place"); }

  Sandbox sandbox_;
};

TEST_F(PackTest, WhatIsUnpackedAgainIsTheSame) {
  const std::string bundle = makeBundle();
  ASSERT_TRUE(pack(bundle, archive(), true).ok());
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_EQ(describeTree(unpacked() + "/Sample.app"), describeTree(bundle));
  EXPECT_THAT(place(), ElementsAre("archive.zip", "unpacked"));
}

TEST_F(PackTest, NamesThatAreNotUtf8AndDecomposedOnesAreKept) {
  for (const char* name : {"\xFF\xFE", "a\xCC\x88", "\xC3\xA4", "\x01\xC3\xA4", "\\", "C:", "*"}) {
    sandbox_.makeFile(std::string("source/names/") + name, name);
  }
  test::setTimesToASecond(sandbox_.path("source/names"));
  ASSERT_TRUE(pack(sandbox_.path("source/names"), archive(), true).ok());
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_EQ(describeTree(unpacked() + "/names"), describeTree(sandbox_.path("source/names")));
}

TEST_F(PackTest, WithoutItsParentAFoldersContentsStandAlone) {
  sandbox_.makeFile("source/folder/file", "x");
  sandbox_.makeFile("source/folder/in/file", "y");
  ASSERT_TRUE(pack(sandbox_.path("source/folder"), archive(), false).ok());
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_EQ(readFile(unpacked() + "/file"), "x");
  EXPECT_EQ(readFile(unpacked() + "/in/file"), "y");
}

TEST_F(PackTest, AFileOrALinkIsAnEntryOfItsNameEitherWay) {
  const std::string file = sandbox_.makeFile("source/file", "x");
  fs::create_symlink("file", sandbox_.path("source/link"));
  for (const bool keepParent : {true, false}) {
    ASSERT_TRUE(pack(file, archive(), keepParent).ok());
    ASSERT_TRUE(unpack(archive(), unpacked()).ok());
    EXPECT_EQ(readFile(unpacked() + "/file"), "x");
    fs::remove_all(unpacked());
    fs::remove(archive());
    ASSERT_TRUE(pack(sandbox_.path("source/link"), archive(), keepParent).ok());
    ASSERT_TRUE(unpack(archive(), unpacked()).ok());
    EXPECT_EQ(fs::read_symlink(unpacked() + "/link"), "file");
    fs::remove_all(unpacked());
    fs::remove(archive());
  }
}

TEST_F(PackTest, AnEmptyFolderMakesAnArchiveToo) {
  const std::string folder = sandbox_.makeDirectory("source/folder");
  for (const bool keepParent : {true, false}) {
    ASSERT_TRUE(pack(folder, archive(), keepParent).ok());
    ASSERT_TRUE(unpack(archive(), unpacked()).ok());
    EXPECT_EQ(fs::exists(unpacked() + "/folder"), keepParent);
    fs::remove_all(unpacked());
    fs::remove(archive());
  }
}

TEST_F(PackTest, SpecialFilesAreSkippedAndSaid) {
  sandbox_.makeFile("source/folder/file", "x");
  ASSERT_EQ(::mkfifo(sandbox_.path("source/folder/pipe").c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(pack(sandbox_.path("source/folder"), archive(), true).ok());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "archiver: skipped " +
                                                        sandbox_.path("source/folder/pipe") +
                                                        ": neither a file, a folder nor a link\n");
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_FALSE(fs::exists(unpacked() + "/folder/pipe"));
}

TEST_F(PackTest, AnArchiveThatIsThereIsReplacedByAWholeOneOnly) {
  sandbox_.makeFile("place/archive.zip", "old");
  EXPECT_FALSE(pack(sandbox_.path("missing"), archive(), true).ok());
  EXPECT_EQ(readFile(archive()), "old");
  EXPECT_TRUE(pack(sandbox_.makeFile("file", "x"), archive(), true).ok());
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_EQ(readFile(unpacked() + "/file"), "x");
}

TEST_F(PackTest, ALinkInTheArchivesPlaceIsReplacedAndNotFollowed) {
  const std::string target = sandbox_.makeFile("target", "old");
  sandbox_.makeDirectory("place");
  fs::create_symlink(target, archive());
  EXPECT_TRUE(pack(sandbox_.makeFile("file", "x"), archive(), true).ok());
  EXPECT_FALSE(fs::is_symlink(archive()));
  EXPECT_EQ(readFile(target), "old");
}

TEST_F(PackTest, AFolderInTheArchivesPlaceStays) {
  sandbox_.makeDirectory("place/archive.zip");
  EXPECT_THAT(pack(sandbox_.makeFile("file"), archive(), true).description(),
              HasSubstr("File exists"));
  EXPECT_TRUE(fs::is_directory(archive()));
}

TEST_F(PackTest, ALinkThatCannotBeUnpackedIsPackedAndSaid) {
  sandbox_.makeDirectory("source/folder");
  fs::create_symlink("/etc", sandbox_.path("source/folder/out"));
  fs::create_symlink("../folder", sandbox_.path("source/folder/in"));
  testing::internal::CaptureStderr();
  EXPECT_TRUE(pack(sandbox_.path("source/folder"), archive(), true).ok());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "archiver: " + sandbox_.path("source/folder/out") +
                " leads out of the archive, which cannot be unpacked with it\n");
  EXPECT_FALSE(unpack(archive(), unpacked()).ok());
}

TEST_F(PackTest, AMissingSourceOrPlaceLeavesNothing) {
  EXPECT_FALSE(pack(sandbox_.path("missing"), archive(), true).ok());
  EXPECT_FALSE(pack("", archive(), true).ok());
  EXPECT_FALSE(pack("/", archive(), true).ok());
  const std::string file = sandbox_.makeFile("file");
  EXPECT_FALSE(pack(file, "", true).ok());
  EXPECT_FALSE(pack(file, sandbox_.path("missing/archive.zip"), true).ok());
  EXPECT_THAT(place(), IsEmpty());
}

TEST_F(PackTest, AnArchiveMayGrowInsideItsSource) {
  sandbox_.makeFile("source/file", "x");
  ASSERT_TRUE(pack(sandbox_.path("source"), sandbox_.path("source/archive.zip"), false).ok());
  ASSERT_TRUE(unpack(sandbox_.path("source/archive.zip"), unpacked()).ok());
  EXPECT_EQ(readFile(unpacked() + "/file"), "x");
  EXPECT_FALSE(fs::exists(unpacked() + "/archive.zip"));
}

TEST_F(PackTest, ADeepTreeIsPackedAndATooDeepOneIsAFailure) {
  fs::path deep = sandbox_.path("source/tree");
  fs::create_directories(deep);
  for (int i = 0; i < 300; ++i) deep /= "folder";
  fs::create_directories(deep);
  ASSERT_TRUE(pack(sandbox_.path("source/tree"), archive(), true).ok());
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_EQ(describeTree(unpacked() + "/tree").size(), 301U);
}

// A page for every file, and nothing left for what does not compress.
TEST_F(PackTest, ADiskThatIsFullHalfwayLeavesNothing) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.makeDirectory("source/folder");
  std::ifstream random("/dev/urandom", std::ios::binary);
  std::string bytes(200000, '\0');
  random.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  for (int i = 0; i < 5; ++i) sandbox_.makeFile("source/folder/" + std::to_string(i), bytes);
  sandbox_.mountTmpfs("place", 512UL << 10U);
  EXPECT_THAT(pack(sandbox_.path("source/folder"), archive(), true).description(),
              HasSubstr("No space left on device"));
  EXPECT_THAT(place(), IsEmpty());
}

TEST_F(PackTest, WhatTheUserMayNotReadIsAFailure) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.makeFile("source/folder/open", "x");
  fs::permissions(sandbox_.makeFile("source/folder/secret", "x"), fs::perms(0600));
  fs::permissions(sandbox_.makeDirectory("source/tree/closed"), fs::perms(0700));
  sandbox_.makeFile("source/sealed/file", "x");
  fs::permissions(sandbox_.path("source/sealed"), fs::perms(0700));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const std::string target = sandbox_.home() + "/archive.zip";
  for (const char* source : {"source/folder", "source/tree", "source/sealed/file"}) {
    const platform::Status status = pack(sandbox_.path(source), target, true);
    EXPECT_THAT(status.description(), HasSubstr("Permission denied")) << source;
  }
  for (const auto& item : fs::directory_iterator(sandbox_.home())) {
    EXPECT_THAT(item.path().filename().string(), testing::Not(HasSubstr("archiv")));
  }
}

TEST_F(PackTest, AnOrdinaryUserMayPackIntoAFolderOfTheirOwnOnly) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string bundle = makeBundle();
  fs::permissions(bundle + "/private", fs::perms(0444));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(pack(bundle, sandbox_.home() + "/archive.zip", true).ok());
  EXPECT_THAT(pack(bundle, archive(), true).description(), HasSubstr("Permission denied"));
}

// The program as it is started: a signal in the middle of a large file.
TEST_F(PackTest, AProgramThatIsAskedToEndLeavesNothing) {
  const std::string file = sandbox_.makeFile("source/large");
  fs::resize_file(file, 20ULL << 30U);
  test::ChildProgram program({QV_TEST_BUNDLE "/Contents/Linux/archiver", "-ck", file, archive()});
  ASSERT_TRUE(test::waitFor([this] { return !place().empty(); }));
  program.signal(SIGTERM);
  EXPECT_TRUE(test::waitFor([&] { return !program.isRunning(); }));
  EXPECT_THAT(place(), IsEmpty());
}

}  // namespace
