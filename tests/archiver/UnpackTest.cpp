#include "archiver/Unpack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/Sandbox.h"
#include "tests/support/ZipBuilder.h"

namespace {

namespace fs = std::filesystem;
using archiver::unpack;
using test::readFile;
using test::Sandbox;
using test::ZipEntry;
using test::zipOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr unsigned kLink = 0120777;
constexpr unsigned kFolder = 0040755;

class UnpackTest : public testing::Test {
 protected:
  void SetUp() override { sandbox_.makeDirectory("place"); }

  platform::Status unpackBytes(const std::string& bytes) {
    return unpack(sandbox_.makeFile("archive.zip", bytes), folder());
  }
  platform::Status unpackEntries(const std::vector<ZipEntry>& entries) {
    return unpackBytes(zipOf(entries));
  }
  std::string folder() const { return sandbox_.path("place/folder"); }
  std::string in(const std::string& name) const { return folder() + "/" + name; }
  mode_t modeOf(const std::string& name) const {
    struct stat status = {};
    EXPECT_EQ(::lstat(in(name).c_str(), &status), 0) << name;
    return status.st_mode & 07777;
  }
  // What is beside the place of the folder, hidden items too.
  std::vector<std::string> place() const {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(sandbox_.path("place"))) {
      names.push_back(item.path().filename());
    }
    return names;
  }
  // Refused with that reason, and nothing is there afterwards.
  void expectRefusal(const std::vector<ZipEntry>& entries, const std::string& reason) {
    const platform::Status status = unpackEntries(entries);
    EXPECT_FALSE(status.ok()) << reason;
    EXPECT_THAT(status.description(), HasSubstr(reason));
    EXPECT_THAT(place(), IsEmpty());
  }

  Sandbox sandbox_;
};

TEST_F(UnpackTest, FilesFoldersAndLinksAreMade) {
  ASSERT_TRUE(unpackEntries({{"a/", "", kFolder},
                             {"a/file", "contents"},
                             {"a/link", "file", kLink},
                             {"up/link", "../a/file", kLink},
                             {"dangling", "nowhere", kLink}})
                  .ok());
  EXPECT_EQ(readFile(in("a/file")), "contents");
  EXPECT_EQ(fs::read_symlink(in("a/link")), "file");
  EXPECT_EQ(readFile(in("up/link")), "contents");
  EXPECT_TRUE(fs::is_symlink(in("dangling")));
  EXPECT_THAT(place(), UnorderedElementsAre("folder"));
}

TEST_F(UnpackTest, PermissionsAreTakenAndRightsToRunAsSomebodyElseAreNot) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, whom no mode of a folder keeps out";
  ASSERT_TRUE(unpackEntries({{"program", "", 0106755},
                             {"sticky/", "", 0043777},
                             {"private", "", 0100600},
                             {"closed/", "", 0040000},
                             {"closed/file", "", 0100000}})
                  .ok());
  EXPECT_EQ(modeOf("program"), 0755U);
  EXPECT_EQ(modeOf("sticky"), 0777U);
  EXPECT_EQ(modeOf("private"), 0600U);
  EXPECT_EQ(modeOf("closed"), 0U);
  EXPECT_EQ(modeOf("closed/file"), 0U);
}

TEST_F(UnpackTest, WithoutPermissionsInTheArchiveTheUmaskDecides) {
  ::umask(027);
  ASSERT_TRUE(unpackEntries({{"file", "", 0, 0}, {"folder/", "", 0, 0}, {"other/file", ""}}).ok());
  EXPECT_EQ(modeOf("file"), 0640U);
  EXPECT_EQ(modeOf("folder"), 0750U);
  EXPECT_EQ(modeOf("other"), 0750U);
  EXPECT_EQ(modeOf(""), 0750U);
}

TEST_F(UnpackTest, AnEmptyArchiveIsAnEmptyFolder) {
  ASSERT_TRUE(unpackEntries({}).ok());
  EXPECT_TRUE(fs::is_empty(folder()));
}

TEST_F(UnpackTest, NamesAreTakenAsTheyCome) {
  const std::vector<std::string> names = {"line\nbreak", "\xFF\xFE", "back\\slash",
                                          "a\xCC\x88",   "\xC3\xA4", "\x1B[31m"};
  std::vector<ZipEntry> entries;
  for (const std::string& name : names) entries.push_back({name, name});
  ASSERT_TRUE(unpackEntries(entries).ok());
  for (const std::string& name : names) EXPECT_EQ(readFile(in(name)), name);
}

TEST_F(UnpackTest, ANameOfAnOldSystemIsReadInItsCharacterSet) {
  ASSERT_TRUE(unpackEntries({{"\x84ther", "", 0, 0}}).ok());
  EXPECT_TRUE(fs::exists(in("\xC3\xA4ther")));
}

TEST_F(UnpackTest, AZeroInANameHidesNothingOfIt) {
  ASSERT_TRUE(unpackEntries({{std::string("a\0b", 3), "text"}}).ok());
  EXPECT_EQ(readFile(in("a b")), "text");
  fs::remove_all(folder());
  expectRefusal({{std::string("file\0/../../x", 13), "bad"}}, "the name leads out of the folder");
}

TEST_F(UnpackTest, ANameThatLeadsOutOfTheFolderIsRefused) {
  for (const std::string name :
       {"/absolute", "../beside", "a/../../beside", "..", "/", "a/..", "//x"}) {
    expectRefusal({{"good", "x"}, {name, "bad"}}, "the name leads out of the folder");
  }
  EXPECT_FALSE(fs::exists(sandbox_.path("place/beside")));
}

TEST_F(UnpackTest, AnEmptyNameIsRefused) {
  expectRefusal({{"", "x"}}, "refused");
  expectRefusal({{".", "x"}}, "it has no name");
}

TEST_F(UnpackTest, ALinkThatLeadsOutsideIsRefused) {
  for (const std::string target : {"/etc", "..", "../x", "a/../../x", "/"}) {
    expectRefusal({{"link", target, kLink}}, "the link leads out of the folder");
  }
}

TEST_F(UnpackTest, ALinkThatLeadsOutsideByWayOfAnotherIsRefused) {
  expectRefusal({{"a/b/c/", "", kFolder},
                 {"deep", "a/b/c", kLink},
                 {"a/b/c/top", "../../..", kLink},
                 {"sly", "a/b/c/top/..", kLink}},
                "refused \"sly\": the link leads out of the folder");
}

TEST_F(UnpackTest, LinksInACircleAreMade) {
  ASSERT_TRUE(unpackEntries({{"one", "two", kLink}, {"two", "one", kLink}}).ok());
}

TEST_F(UnpackTest, NothingIsMadeThroughALink) {
  sandbox_.makeDirectory("outside");
  expectRefusal({{"a/", "", kFolder}, {"link", "a", kLink}, {"link/file", "bad"}}, "link/file");
  expectRefusal({{"a/", "", kFolder}, {"link", "a", kLink}, {"link/in/", "", kFolder}}, "link/in");
  expectRefusal({{"a/", "", kFolder}, {"link", "a", kLink}, {"link/l", "x", kLink}}, "link/l");
  expectRefusal({{"link", sandbox_.path("outside"), kLink}, {"link/file", "bad"}}, "link");
  EXPECT_TRUE(fs::is_empty(sandbox_.path("outside")));
}

TEST_F(UnpackTest, ALinkWithoutATargetOrWithAZeroInItIsRefused) {
  expectRefusal({{"link", "", kLink}}, "refused \"link\"");
  expectRefusal({{"link", std::string("a\0b", 3), kLink}}, "refused \"link\"");
  expectRefusal({{"link", std::string(5000, 'x'), kLink}}, "File name too long");
}

TEST_F(UnpackTest, TwoEntriesOfOneNameAreRefused) {
  expectRefusal({{"file", "one"}, {"file", "two"}}, "refused \"file\": it is there twice");
  expectRefusal({{"a/file", "one"}, {"a//./file", "two"}}, "it is there twice");
  expectRefusal({{"link", "x", kLink}, {"link", "bad"}}, "it is there twice");
  expectRefusal({{"name", "file"}, {"name/", "", kFolder}}, "it is there twice");
}

TEST_F(UnpackTest, AFileIsNoFolder) {
  expectRefusal({{"name", "file"}, {"name/file", "x"}}, "name/file: Not a directory");
  expectRefusal({{"name/file", "x"}, {"name", "file"}}, "name: File exists");
}

TEST_F(UnpackTest, DevicesPipesAndSocketsAreRefused) {
  for (const unsigned type : {0060000U, 0020000U, 0010000U, 0140000U, 0030000U}) {
    expectRefusal({{"item", "", type | 0666U}}, "neither a file, a folder nor a link");
  }
}

TEST_F(UnpackTest, AnEncryptedEntryIsRefused) {
  expectRefusal({{"open", "x"}, {"secret", "xxxxxxxxxxxxxxxx", 0100644, 3, 1}},
                "refused \"secret\": it is protected by a password");
}

TEST_F(UnpackTest, ADamagedEntryLeavesNothing) {
  ZipEntry damaged = {"damaged", "contents"};
  damaged.claimedChecksum = 1;
  expectRefusal({{"good", "x"}, damaged}, "damaged: CRC error");
}

TEST_F(UnpackTest, ContentsThatAreNotAsLargeAsTheArchiveSaysLeaveNothing) {
  ZipEntry smaller = {"entry", "contents"};
  smaller.claimedSize = 9;
  expectRefusal({smaller}, "entry");
  ZipEntry larger = {"entry", "contents"};
  larger.claimedSize = 7;
  expectRefusal({larger}, "entry");
}

TEST_F(UnpackTest, AnArchiveThatWouldBecomeTooLargeForItsSizeIsRefused) {
  ZipEntry bomb = {"bomb", "contents"};
  bomb.claimedSize = 0xFFFFFFF0U;
  expectRefusal({{"good", "x"}, bomb}, "too large for its size or the disk");
}

TEST_F(UnpackTest, AnArchiveThatGivesItsBytesOutSeveralTimesIsRefused) {
  std::vector<ZipEntry> entries = {{"first", std::string(1U << 20U, 'x')}};
  ZipEntry again;
  again.overlaps = true;
  for (int i = 0; i < 1200; ++i) {
    again.name = std::to_string(i);
    entries.push_back(again);
  }
  expectRefusal(entries, "too large for its size or the disk");
}

TEST_F(UnpackTest, AnArchiveThatIsCutShortAnywhereLeavesNothing) {
  const std::string whole = zipOf({{"a/file", "contents"}, {"b", "more"}, {"l", "b", kLink}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(unpackBytes(whole.substr(0, size)).ok()) << size;
    ASSERT_THAT(place(), IsEmpty()) << size;
  }
}

TEST_F(UnpackTest, WhatIsNoArchiveIsRefused) {
  EXPECT_THAT(unpackBytes("").description(), HasSubstr("the archive cannot be read"));
  EXPECT_THAT(unpackBytes("text").description(), HasSubstr("Not a zip archive"));
  EXPECT_FALSE(unpack(sandbox_.path("missing.zip"), folder()).ok());
  EXPECT_FALSE(unpack(sandbox_.path("place"), folder()).ok());
  EXPECT_FALSE(unpack("", folder()).ok());
  ASSERT_EQ(::mkfifo(sandbox_.path("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(unpack(sandbox_.path("pipe"), folder()).ok());
  EXPECT_THAT(place(), IsEmpty());
}

TEST_F(UnpackTest, AFileInTheFoldersPlaceStays) {
  sandbox_.makeFile("place/folder", "old");
  EXPECT_THAT(unpackEntries({{"new", "x"}}).description(), HasSubstr("File exists"));
  EXPECT_EQ(readFile(folder()), "old");
  EXPECT_THAT(place(), UnorderedElementsAre("folder"));
}

TEST_F(UnpackTest, IntoAFolderThatIsThereItemsGoBesideAndOverThoseInIt) {
  sandbox_.makeFile("place/folder/old", "old");
  sandbox_.makeFile("place/folder/both/old", "old");
  sandbox_.makeFile("place/folder/both/same", "old");
  ASSERT_EQ(::chmod(in("both").c_str(), 0711), 0);
  ASSERT_TRUE(
      unpackEntries({{"both/same", "new"}, {"both/new", "new"}, {"folder/file", "new"}}).ok());
  EXPECT_EQ(readFile(in("old")), "old");
  EXPECT_EQ(readFile(in("both/old")), "old");
  EXPECT_EQ(readFile(in("both/same")), "new");
  EXPECT_EQ(readFile(in("both/new")), "new");
  EXPECT_EQ(readFile(in("folder/file")), "new");
  EXPECT_EQ(modeOf("both"), 0711U);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder()), {}), 3) << "nothing hidden is left";
}

TEST_F(UnpackTest, WhatDoesNotFitIntoAFolderThatIsThereChangesNothingInIt) {
  sandbox_.makeFile("place/folder/file", "old");
  sandbox_.makeFile("place/folder/folder/file", "old");
  EXPECT_THAT(unpackEntries({{"new", "x"}, {"file/inner", "x"}}).description(),
              HasSubstr("Not a directory"));
  EXPECT_THAT(unpackEntries({{"new", "x"}, {"folder", "x"}}).description(),
              HasSubstr("Is a directory"));
  EXPECT_THAT(unpackEntries({{"new", "x"}, {"../out", "x"}}).description(), HasSubstr("refused"));
  EXPECT_EQ(readFile(in("file")), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder()), {}), 2);
}

TEST_F(UnpackTest, ALinkInAFolderThatIsThereIsReplacedAndNoWay) {
  sandbox_.makeFile("elsewhere/file", "old");
  sandbox_.makeDirectory("place/folder");
  fs::create_symlink(sandbox_.path("elsewhere"), in("folder"));
  fs::create_symlink(sandbox_.path("elsewhere/file"), in("file"));
  EXPECT_FALSE(unpackEntries({{"folder/file", "new"}}).ok());
  EXPECT_TRUE(unpackEntries({{"file", "new"}}).ok());
  EXPECT_EQ(readFile(sandbox_.path("elsewhere/file")), "old");
  EXPECT_EQ(readFile(in("file")), "new");
}

TEST_F(UnpackTest, AFolderMayBeUnpackedIntoWhereTheOneAroundItMayNotBeWritten) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string archive =
      sandbox_.makeFile("archive.zip", zipOf({{"locked/", "", 0040555}, {"locked/file", "new"}}));
  sandbox_.makeDirectory("place/folder");
  ASSERT_EQ(::lchown(folder().c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const platform::Status status = unpack(archive, folder());
  EXPECT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(readFile(in("locked/file")), "new");
  EXPECT_EQ(modeOf("locked"), 0555U);
}

TEST_F(UnpackTest, AFolderWithoutAPlaceIsRefused) {
  const std::string archive = sandbox_.makeFile("archive.zip", zipOf({{"a", "x"}}));
  EXPECT_FALSE(unpack(archive, sandbox_.path("missing/folder")).ok());
  EXPECT_FALSE(unpack(archive, "/").ok());
  EXPECT_FALSE(unpack(archive, "").ok());
}

TEST_F(UnpackTest, AVeryDeepNameIsRefusedOrMadeWhole) {
  std::string deep;
  for (int i = 0; i < 1500; ++i) deep += "d/";
  EXPECT_TRUE(unpackEntries({{deep + "file", "x"}}).ok());
  fs::remove_all(folder());
  for (int i = 0; i < 1500; ++i) deep += "d/";
  expectRefusal({{deep + "file", "x"}}, "File name too long");
  expectRefusal({{std::string(300, 'x'), "x"}}, "File name too long");
}

// Of bytes there would be enough, but every file takes a page.
TEST_F(UnpackTest, ADiskThatIsFullHalfwayLeavesNothing) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.mountTmpfs("place", 64UL << 12U);
  std::vector<ZipEntry> entries;
  for (int i = 0; i < 200; ++i) entries.push_back({"file" + std::to_string(i), "x"});
  expectRefusal(entries, "No space left on device");
}

TEST_F(UnpackTest, WhatDoesNotFitOnTheDiskIsRefusedBeforeAnythingIsWritten) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.mountTmpfs("place", 1UL << 20U);
  expectRefusal({{"large", std::string(2U << 20U, 'x')}}, "too large for its size or the disk");
}

TEST_F(UnpackTest, AFolderThatTheUserMayNotWriteToIsAFailure) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string archive = sandbox_.makeFile("archive.zip", zipOf({{"a", "x"}}));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_THAT(unpack(archive, folder()).description(), HasSubstr("Permission denied"));
  EXPECT_THAT(place(), IsEmpty());
}

TEST_F(UnpackTest, AnArchiveThatTheUserMayNotReadIsAFailure) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string archive = sandbox_.makeFile("archive.zip", zipOf({{"a", "x"}}));
  ASSERT_EQ(::chmod(archive.c_str(), 0600), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_THAT(unpack(archive, sandbox_.home() + "/folder").description(),
              HasSubstr("Permission denied"));
}

// Also folders that close behind what is in them.
TEST_F(UnpackTest, AnOrdinaryUserUnpacksWhatIsClosed) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string archive =
      sandbox_.makeFile("archive.zip", zipOf({{"closed/", "", 0040000},
                                              {"closed/in/", "", 0040500},
                                              {"closed/in/file", "x", 0100000}}));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const std::string target = sandbox_.home() + "/folder";
  EXPECT_TRUE(unpack(archive, target).ok());
  struct stat status = {};
  ASSERT_EQ(::stat((target + "/closed").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0U);
  EXPECT_EQ(status.st_uid, Sandbox::kConsoleUserId);
}

}  // namespace
