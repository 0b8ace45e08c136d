#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "archiver/Pack.h"
#include "archiver/Unpack.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"

namespace {

namespace fs = std::filesystem;
using archiver::pack;
using archiver::unpack;
using test::describeTree;
using test::Sandbox;
using testing::HasSubstr;

// Archives as other programs read and write them.
class ArchiveToolsTest : public testing::Test {
 protected:
  void SetUp() override {
    sandbox_.makeFile("source/Sample.app/Contents/program", std::string(300000, 'p'));
    sandbox_.makeFile("source/Sample.app/\xC3\xA4 \xE2\x98\x83", "beyond ASCII");
    sandbox_.makeFile("source/Sample.app/private", "x");
    sandbox_.makeDirectory("source/Sample.app/empty");
    fs::create_symlink("Contents/program", bundle() + "/link");
    fs::permissions(bundle() + "/Contents/program", fs::perms(0755));
    fs::permissions(bundle() + "/private", fs::perms(0600));
    test::setTimesToASecond(bundle());
    ::setenv("LC_ALL", "C.UTF-8", 1);
  }
  std::string bundle() const { return sandbox_.path("source/Sample.app"); }
  std::string archive() const { return sandbox_.path("archive.zip"); }
  std::string unpacked() const { return sandbox_.path("unpacked"); }
  // Runs a command line in the folder of the bundle; whether it ended well.
  bool run(const std::string& command) const {
    const std::string line = "cd '" + sandbox_.path("source") + "' && { " + command + "; } > '" +
                             sandbox_.path("output") + "' 2>&1";
    if (std::system(line.c_str()) == 0) return true;
    ADD_FAILURE() << command << ":\n" << test::readFile(sandbox_.path("output"));
    return false;
  }
  void expectWhatOurArchiveBecomes(const std::string& command) const {
    ASSERT_TRUE(pack(bundle(), archive(), true).ok());
    ASSERT_TRUE(run(command));
    EXPECT_EQ(describeTree(unpacked() + "/Sample.app"), describeTree(bundle()));
  }
  void expectThatWeUnpack(const std::string& command) const {
    ASSERT_TRUE(run(command));
    const platform::Status status = unpack(archive(), unpacked());
    ASSERT_TRUE(status.ok()) << status.description();
    EXPECT_EQ(describeTree(unpacked() + "/Sample.app"), describeTree(bundle()));
  }

  Sandbox sandbox_;
};

// It does not give links their times.
TEST_F(ArchiveToolsTest, UnzipUnpacksOurArchive) {
  ASSERT_TRUE(pack(bundle(), archive(), true).ok());
  ASSERT_TRUE(run("unzip -q '" + archive() + "' -d '" + unpacked() + "'"));
  EXPECT_EQ(fs::read_symlink(unpacked() + "/Sample.app/link"), "Contents/program");
  for (const std::string& root : {unpacked() + "/Sample.app", bundle()}) {
    fs::remove(root + "/link");
    test::setTimesToASecond(root);
  }
  EXPECT_EQ(describeTree(unpacked() + "/Sample.app"), describeTree(bundle()));
}

TEST_F(ArchiveToolsTest, BsdtarUnpacksOurArchive) {
  fs::create_directory(unpacked());
  expectWhatOurArchiveBecomes("bsdtar -x -p -f '" + archive() + "' -C '" + unpacked() + "'");
}

TEST_F(ArchiveToolsTest, SevenZipFindsNoFaultInOurArchive) {
  ASSERT_TRUE(pack(bundle(), archive(), true).ok());
  EXPECT_TRUE(run("7z t '" + archive() + "'"));
  EXPECT_THAT(test::readFile(sandbox_.path("output")), HasSubstr("Everything is Ok"));
}

TEST_F(ArchiveToolsTest, PythonReadsOurArchive) {
  ASSERT_TRUE(pack(bundle(), archive(), true).ok());
  EXPECT_TRUE(run("python3 -c \"import zipfile; z = zipfile.ZipFile('" + archive() +
                  "'); assert z.testzip() is None; "
                  "assert z.read('Sample.app/\xC3\xA4 \xE2\x98\x83') == b'beyond ASCII'; "
                  "assert z.read('Sample.app/link') == b'Contents/program'\""));
}

TEST_F(ArchiveToolsTest, WeUnpackWhatZipPacked) {
  expectThatWeUnpack("zip -q -r -y '" + archive() + "' Sample.app");
}

TEST_F(ArchiveToolsTest, WeUnpackWhatZipPackedWithoutKnowingSizes) {
  // Which zip itself cannot write to a pipe behind a file that it has compressed.
  fs::remove(bundle() + "/link");
  test::setTimesToASecond(bundle());
  expectThatWeUnpack("zip -q -r -y - Sample.app | cat > '" + archive() + "'");
}

TEST_F(ArchiveToolsTest, WeUnpackWhatBsdtarPacked) {
  expectThatWeUnpack("bsdtar -c -a -f '" + archive() + "' Sample.app");
}

TEST_F(ArchiveToolsTest, WeUnpackWhatSevenZipPacked) {
  expectThatWeUnpack("7z a -tzip -snl '" + archive() + "' Sample.app");
}

TEST_F(ArchiveToolsTest, WeUnpackWhatPythonPacked) {
  ASSERT_TRUE(run("python3 -m zipfile -c '" + archive() + "' Sample.app"));
  ASSERT_TRUE(unpack(archive(), unpacked()).ok());
  EXPECT_EQ(test::readFile(unpacked() + "/Sample.app/\xC3\xA4 \xE2\x98\x83"), "beyond ASCII");
}

TEST_F(ArchiveToolsTest, AnArchiveThatZipProtectedByAPasswordIsRefused) {
  ASSERT_TRUE(run("zip -q -P secret '" + archive() + "' Sample.app/private"));
  EXPECT_THAT(unpack(archive(), unpacked()).description(),
              HasSubstr("it is protected by a password"));
  EXPECT_FALSE(fs::exists(unpacked()));
}

// Beyond what the fields of the first zip archives can say.
TEST_F(ArchiveToolsTest, AFileOfMoreThanFourGibibytesIsPacked) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  constexpr std::uintmax_t kSize = (4ULL << 30U) + 1;
  // In memory a hole is read the fastest.
  sandbox_.mountTmpfs("large");
  fs::resize_file(sandbox_.makeFile("large/large"), kSize);
  ASSERT_TRUE(pack(sandbox_.path("large/large"), archive(), true).ok());
  ASSERT_TRUE(run("unzip -Z -l '" + archive() + "'"));
  EXPECT_THAT(test::readFile(sandbox_.path("output")), HasSubstr(std::to_string(kSize)));
  ASSERT_TRUE(run("python3 -c \"import zipfile; z = zipfile.ZipFile('" + archive() +
                  "'); assert z.getinfo('large').file_size == " + std::to_string(kSize) + "\""));
}

TEST_F(ArchiveToolsTest, MoreThan65535FilesArePackedAndUnpacked) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  constexpr int kFiles = 66000;
  // In memory, where it is a matter of seconds.
  const std::string place = sandbox_.mountTmpfs("unpacked", 1UL << 30U) + "/again";
  const std::string folder = sandbox_.makeDirectory("unpacked/many");
  for (int i = 0; i < kFiles; ++i) {
    ASSERT_EQ(::symlink("x", (folder + "/" + std::to_string(i)).c_str()), 0);
  }
  ASSERT_TRUE(pack(folder, archive(), false).ok());
  ASSERT_TRUE(run("test $(unzip -Z1 '" + archive() + "' | wc -l) = 66000"));
  ASSERT_TRUE(unpack(archive(), place).ok());
  EXPECT_EQ(std::distance(fs::directory_iterator(place), {}), kFiles);
}

}  // namespace
