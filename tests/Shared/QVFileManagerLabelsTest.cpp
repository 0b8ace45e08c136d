#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>

#include "Shared/QVFileManager.h"
#include "tests/support/Sandbox.h"

namespace {

using platform::Colour;
using std::filesystem::create_symlink;
using test::Sandbox;

constexpr char kAttribute[] = "user.com.apple.FinderInfo";

// 32 bytes that all differ, with `flags` at offset 8.
std::string information(unsigned flags) {
  std::string value;
  for (char byte = 'A'; value.size() < 32; ++byte) value += byte;
  value[8] = static_cast<char>(flags >> 8U);
  value[9] = static_cast<char>(flags & 0xFFU);
  return value;
}

class QVFileManagerLabelsTest : public testing::Test {
 protected:
  static void write(const std::string& path, const std::string& value) {
    ASSERT_EQ(::setxattr(path.c_str(), kAttribute, value.data(), value.size(), 0), 0);
  }
  static std::string read(const std::string& path) {
    std::array<char, 256> value = {};
    const ssize_t size = ::getxattr(path.c_str(), kAttribute, value.data(), value.size());
    return size < 0 ? "none" : std::string(value.data(), static_cast<std::size_t>(size));
  }
  static int index(const std::string& path) { return QVFileManager::finderColorIndexForPath(path); }

  Sandbox sandbox_;
};

TEST_F(QVFileManagerLabelsTest, TheIndexIsTheWholeFlagsWord) {
  const std::string file = sandbox_.makeFile("file");
  write(file, information(0x010C));
  EXPECT_EQ(index(file), 0x010C);
  write(file, information(0xFFFF));
  EXPECT_EQ(index(file), 0xFFFF);
}

TEST_F(QVFileManagerLabelsTest, AnItemOfWhichNothingIsKeptHasNoLabel) {
  const std::string file = sandbox_.makeFile("file");
  EXPECT_EQ(index(file), 0);
  EXPECT_FALSE(QVFileManager::finderColorForPath(file));
}

TEST_F(QVFileManagerLabelsTest, ALabelThatIsSetIsReadAgainFromFilesAndFolders) {
  for (const std::string& path : {sandbox_.makeFile("file"), sandbox_.makeDirectory("folder")}) {
    QVFileManager::setFinderColorIndex(12, path);
    EXPECT_EQ(index(path), 12);
    EXPECT_EQ(QVFileManager::finderColorForPath(path), (Colour{0.0083, 0.54, 1, 1}));
    EXPECT_EQ(read(path), std::string(9, '\0') + '\x0C' + std::string(22, '\0'));
  }
}

TEST_F(QVFileManagerLabelsTest, OnlyTheLabelsBitsOfAnIndexAreSet) {
  const std::string file = sandbox_.makeFile("file");
  write(file, information(0x0100));
  QVFileManager::setFinderColorIndex(0xFEF9, file);
  EXPECT_EQ(index(file), 0x0108);
}

TEST_F(QVFileManagerLabelsTest, OtherFlagsOfTheWordLeaveNoColour) {
  const std::string file = sandbox_.makeFile("file");
  write(file, information(0x010C));
  EXPECT_FALSE(QVFileManager::finderColorForPath(file));
}

TEST_F(QVFileManagerLabelsTest, SettingALabelKeepsTheOtherFlags) {
  const std::string file = sandbox_.makeFile("file");
  write(file, information(0x0105));
  QVFileManager::setFinderColorIndex(8, file);
  EXPECT_EQ(index(file), 0x0109);
}

TEST_F(QVFileManagerLabelsTest, OnlyBitsOneToThreeOfTheIndexAreSet) {
  const std::string file = sandbox_.makeFile("file");
  QVFileManager::setFinderColorIndex(0xFFF7, file);
  EXPECT_EQ(index(file), 6);
  QVFileManager::setFinderColorIndex(-1, file);
  EXPECT_EQ(index(file), 14);
  QVFileManager::setFinderColorIndex(0, file);
  EXPECT_EQ(index(file), 0);
}

TEST_F(QVFileManagerLabelsTest, WhatElseIsKeptOfTheItemStays) {
  const std::string file = sandbox_.makeFile("file");
  write(file, information(0xA5F0));
  QVFileManager::setFinderColorIndex(6, file);
  EXPECT_EQ(read(file), information(0xA5F6));
}

TEST_F(QVFileManagerLabelsTest, AnAttributeOfAnotherLengthIsNotTouched) {
  const std::string file = sandbox_.makeFile("file");
  for (const std::size_t size : {0U, 2U, 31U, 33U, 200U}) {
    const std::string odd(size, 'x');
    write(file, odd);
    EXPECT_EQ(index(file), 0) << size;
    QVFileManager::setFinderColorIndex(6, file);
    EXPECT_EQ(read(file), odd);
  }
}

TEST_F(QVFileManagerLabelsTest, NoPathAndAMissingItemDoNothing) {
  QVFileManager::setFinderColorIndex(6, std::nullopt);
  QVFileManager::setFinderColorIndex(6, "");
  QVFileManager::setFinderColorIndex(6, sandbox_.path("missing"));
  EXPECT_FALSE(QVFileManager::fileExistsAtPath(sandbox_.path("missing")));
  EXPECT_EQ(index(sandbox_.path("missing")), 0);
  EXPECT_EQ(index(""), 0);
}

TEST_F(QVFileManagerLabelsTest, ALinkHasNoLabelAndItsTargetKeepsItsOwn) {
  const std::string file = sandbox_.makeFile("file");
  QVFileManager::setFinderColorIndex(4, file);
  create_symlink("file", sandbox_.path("link"));
  EXPECT_EQ(index(sandbox_.path("link")), 0);
  QVFileManager::setFinderColorIndex(10, sandbox_.path("link"));
  EXPECT_EQ(index(sandbox_.path("link")), 0);
  EXPECT_EQ(index(file), 4);
}

TEST_F(QVFileManagerLabelsTest, APipeHasNoLabel) {
  const std::string pipe = sandbox_.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  QVFileManager::setFinderColorIndex(10, pipe);
  EXPECT_EQ(index(pipe), 0);
}

TEST_F(QVFileManagerLabelsTest, AFileSystemThatCannotKeepALabelHasNone) {
  QVFileManager::setFinderColorIndex(10, "/proc/self/status");
  EXPECT_EQ(index("/proc/self/status"), 0);
}

TEST_F(QVFileManagerLabelsTest, AFileOfSomebodyElseKeepsItsLabel) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string readable = sandbox_.makeFile("readable");
  const std::string closed = sandbox_.makeFile("closed");
  ASSERT_EQ(::chmod(closed.c_str(), 0600), 0);
  for (const std::string& file : {readable, closed}) QVFileManager::setFinderColorIndex(4, file);
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  QVFileManager::setFinderColorIndex(10, readable);
  EXPECT_EQ(index(readable), 4);
  EXPECT_EQ(index(closed), 0);
}

TEST_F(QVFileManagerLabelsTest, AReadOnlyFileSystemKeepsItsLabels) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string file = sandbox_.makeFile("folder/file");
  QVFileManager::setFinderColorIndex(4, file);
  sandbox_.simulateMachine();
  const std::string folder = sandbox_.path("folder");
  ASSERT_EQ(::mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(::mount(nullptr, folder.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
            0);
  QVFileManager::setFinderColorIndex(10, file);
  EXPECT_EQ(index(file), 4);
}

TEST_F(QVFileManagerLabelsTest, ALabelMovesWithItsItem) {
  const std::string file = sandbox_.makeFile("file");
  QVFileManager::setFinderColorIndex(14, file);
  std::filesystem::rename(file, sandbox_.path("moved"));
  EXPECT_EQ(index(sandbox_.path("moved")), 14);
}

TEST(QVFileManagerLabelColoursTest, EachPairOfIndicesHasItsColour) {
  const std::array<Colour, 7> colours = {{{0, 0, 0.72, 1},
                                          {0.2056, 0.5, 0.85, 1},
                                          {0.7917, 0.26, 0.86, 1},
                                          {0.5789, 0.56, 0.98, 1},
                                          {0.1388, 0.54, 0.95, 1},
                                          {0.0083, 0.54, 1, 1},
                                          {0.0888, 0.52, 0.98, 1}}};
  for (int label = 1; label <= 7; ++label) {
    const Colour& colour = colours[static_cast<std::size_t>(label) - 1];
    EXPECT_EQ(QVFileManager::finderColorForColorIndex(label * 2), colour);
    EXPECT_EQ(QVFileManager::finderColorForColorIndex(label * 2 + 1), colour);
  }
}

TEST(QVFileManagerLabelColoursTest, NoOtherIndexHasOne) {
  for (const int index : {0, 1, 16, 17, 0x010C, 0xFFFF, -1, -2, -14, INT_MIN, INT_MAX}) {
    EXPECT_FALSE(QVFileManager::finderColorForColorIndex(index)) << index;
  }
}

}  // namespace
