#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"

namespace {

namespace fs = platform::file_system;
using test::describeTree;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

// Does something to the tree as soon as so many bytes are copied.
class Meddler : public fs::CopyObserver {
 public:
  Meddler(std::uint64_t after, std::function<void()> meddle)
      : after_(after), meddle_(std::move(meddle)) {}

  void bytesCopied(std::uint64_t bytes, const Item&) override {
    bytes_ += bytes;
    if (bytes_ >= after_ && !done_.exchange(true)) meddle_();
  }
  void itemCopied(const Item&) override { ++items_; }
  bool isCancelled() override { return cancelled_; }

  void cancel() { cancelled_ = true; }
  std::uint64_t bytes() const { return bytes_; }
  int items() const { return items_; }

 private:
  const std::uint64_t after_;
  const std::function<void()> meddle_;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<int> items_ = 0;
  std::atomic<bool> done_ = false;
  std::atomic<bool> cancelled_ = false;
};

class CopyHostileTest : public testing::Test {
 protected:
  static constexpr std::size_t kLarge = 12UL << 20;
  static constexpr std::uint64_t kFirstSlice = 1;

  // What takes many steps is done in memory, where there may be a file system of the test's own.
  void workInMemory() const {
    if (!Sandbox::canSimulateMachine()) return;
    sandbox_.mountTmpfs("tree");
    sandbox_.mountTmpfs("to");
  }
  std::string large() const { return sandbox_.makeFile("tree/large", std::string(kLarge, 'x')); }
  std::string tree() const { return sandbox_.path("tree"); }
  std::string copy() const { return sandbox_.path("to/copy"); }
  auto target() const { return fs::list(sandbox_.makeDirectory("to")); }

  Sandbox sandbox_;
};

TEST_F(CopyHostileTest, ASourceThatShrinksFailsTheCopyAndLeavesNothing) {
  const std::string file = large();
  target();
  Meddler meddler(kFirstSlice, [&] { ASSERT_EQ(::truncate(file.c_str(), 1 << 20), 0); });
  EXPECT_EQ(fs::copy(tree(), copy(), &meddler).code(), ESTALE);
  EXPECT_THAT(target(), Optional(ElementsAre()));
}

TEST_F(CopyHostileTest, OfASourceThatGrowsWhatWasThereIsCopied) {
  const std::string file = large();
  target();
  Meddler meddler(kFirstSlice, [&] { ASSERT_EQ(::truncate(file.c_str(), kLarge * 2), 0); });
  EXPECT_TRUE(fs::copy(tree(), copy(), &meddler).ok());
  EXPECT_EQ(readFile(copy() + "/large"), std::string(kLarge, 'x'));
}

// The file is open and is copied to its end; an item that is gone before its turn is missed.
TEST_F(CopyHostileTest, ASourceThatVanishesIsNotCopiedInPart) {
  if (Sandbox::canSimulateMachine()) sandbox_.simulateMachine();
  workInMemory();
  sandbox_.makeFile("tree/A.app/large", std::string(kLarge, 'x'));
  for (int i = 0; i < 3000; ++i) sandbox_.makeFile("tree/A.app/many/" + std::to_string(i), "x");
  target();
  Meddler meddler(kFirstSlice, [&] { std::filesystem::remove_all(tree() + "/A.app"); });
  const auto status = fs::copy(tree() + "/A.app", copy(), &meddler);
  EXPECT_EQ(status.code(), ENOENT) << status.description();
  EXPECT_THAT(target(), Optional(ElementsAre()));
}

TEST_F(CopyHostileTest, AFolderThatIsSwappedForALinkIsNotFollowed) {
  sandbox_.makeFile("secret/file", "secret");
  large();
  for (int i = 0; i < 200; ++i) sandbox_.makeFile("tree/in" + std::to_string(i) + "/file", "x");
  target();
  Meddler meddler(kFirstSlice, [&] {
    for (int i = 0; i < 200; ++i) {
      const std::string folder = tree() + "/in" + std::to_string(i);
      std::filesystem::remove_all(folder);
      std::filesystem::create_directory_symlink(sandbox_.path("secret"), folder);
    }
  });
  const auto status = fs::copy(tree(), copy(), &meddler);
  for (int i = 0; i < 200; ++i) {
    EXPECT_NE(readFile(copy() + "/in" + std::to_string(i) + "/file"), "secret")
        << status.description();
    if (fs::symbolicLinkTarget(copy() + "/in" + std::to_string(i))) break;
  }
  if (!status.ok()) {
    EXPECT_THAT(target(), Optional(ElementsAre()));
  }
}

TEST_F(CopyHostileTest, ACancelledCopyEndsInTheMiddleOfAFileAndLeavesNothing) {
  large();
  target();
  Meddler* canceller = nullptr;
  Meddler meddler(kFirstSlice, [&] { canceller->cancel(); });
  canceller = &meddler;
  EXPECT_EQ(fs::copy(tree(), copy(), &meddler).code(), ECANCELED);
  EXPECT_LT(meddler.bytes(), kLarge);
  EXPECT_THAT(target(), Optional(ElementsAre()));
}

TEST_F(CopyHostileTest, AnObserverIsToldOfAllBytesAndItems) {
  large();
  sandbox_.makeFile("tree/in/small", "12345");
  target();
  Meddler meddler(kLarge * 2, [] {});
  EXPECT_TRUE(fs::copy(tree(), copy(), &meddler).ok());
  EXPECT_EQ(meddler.bytes(), kLarge + 5);
  EXPECT_EQ(meddler.items(), 4) << "two folders and two files";
}

TEST_F(CopyHostileTest, WhatAppearsAtTheDestinationMeanwhileIsKept) {
  large();
  target();
  Meddler meddler(kFirstSlice, [&] { sandbox_.makeFile("to/copy", "mine"); });
  EXPECT_EQ(fs::copy(tree(), copy(), &meddler).code(), EEXIST);
  EXPECT_EQ(readFile(copy()), "mine");
  EXPECT_THAT(target(), Optional(ElementsAre("copy")));
}

TEST_F(CopyHostileTest, TheCopyIsOutOfSightUntilItIsComplete) {
  large();
  target();
  Meddler meddler(kFirstSlice, [&] { EXPECT_FALSE(fs::exists(copy())); });
  EXPECT_TRUE(fs::copy(tree(), copy(), &meddler).ok());
  EXPECT_THAT(target(), Optional(ElementsAre("copy")));
}

// A tree of one folder in the other, with a file at the bottom.
void makeDeepTree(const std::string& root, int depth) {
  std::filesystem::create_directories(root);
  int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(::mkdirat(folder, "d", 0755), 0) << level;
    const int next = ::openat(folder, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(folder);
    folder = next;
  }
  const int file = ::openat(folder, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  EXPECT_EQ(::write(file, "bottom", 6), 6);
  ::close(file);
  ::close(folder);
}

TEST_F(CopyHostileTest, ATreeFourThousandDeepIsCopiedSizedAndRemovedWithFewOpenFiles) {
  if (Sandbox::canSimulateMachine()) sandbox_.simulateMachine();
  workInMemory();
  const std::string deep = tree() + "/deep";
  makeDeepTree(deep, 4000);
  target();
  const rlimit few{256, 256};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const auto status = fs::copy(deep, copy());
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(fs::sizeOfFiles(copy()), 6U);
  EXPECT_TRUE(fs::remove(deep).ok());
  EXPECT_TRUE(fs::remove(copy()).ok());
  EXPECT_THAT(target(), Optional(ElementsAre()));
}

TEST_F(CopyHostileTest, ManyHardLinksInManyFoldersStayOneFileEach) {
  for (int group = 0; group < 50; ++group) {
    const std::string first = sandbox_.makeFile("tree/0/" + std::to_string(group), "x");
    for (int folder = 1; folder < 8; ++folder) {
      const std::string place = sandbox_.makeDirectory("tree/" + std::to_string(folder));
      std::filesystem::create_hard_link(first, place + "/" + std::to_string(group));
    }
  }
  target();
  ASSERT_TRUE(fs::copy(tree(), copy()).ok());
  EXPECT_EQ(describeTree(copy()), describeTree(tree()));
}

}  // namespace
