#include "platform/ItemChanged.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/FileSystem.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"

namespace {

using platform::FileReference;
using platform::notifyItemChanged;
using test::Sandbox;

class ItemChangedTest : public testing::Test {
 protected:
  Sandbox sandbox_;
};

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return status;
}

// What a watch on the folder is told of, as the names of the items with an attribute event.
class Watch {
 public:
  explicit Watch(const std::string& folder) : descriptor_(::inotify_init1(IN_NONBLOCK)) {
    EXPECT_GE(::inotify_add_watch(descriptor_, folder.c_str(), IN_ALL_EVENTS), 0);
  }
  ~Watch() { ::close(descriptor_); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  std::string next() const {
    alignas(inotify_event) char buffer[4096];
    const ssize_t size = ::read(descriptor_, buffer, sizeof buffer);
    if (size <= 0) return "";
    const auto* event = reinterpret_cast<const inotify_event*>(buffer);
    return ((event->mask & IN_ATTRIB) != 0 ? "attributes of " : "something of ") +
           std::string(event->len > 0 ? event->name : "");
  }

 private:
  int descriptor_;
};

TEST_F(ItemChangedTest, AWatcherOfTheFolderSeesAnAttributeEventAndTheItemStaysAsItIs) {
  const std::string file = sandbox_.makeFile("folder/file", "x");
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  const struct stat before = statusOf(file);
  const Watch watch(sandbox_.path("folder"));
  EXPECT_TRUE(notifyItemChanged(FileReference::to(file)).ok());
  EXPECT_EQ(watch.next(), "attributes of file");
  EXPECT_EQ(watch.next(), "");
  const struct stat after = statusOf(file);
  EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(after.st_atim.tv_nsec, before.st_atim.tv_nsec);
  EXPECT_EQ(after.st_mode, before.st_mode);
}

TEST_F(ItemChangedTest, ASecondProcessSeesTheChange) {
  const std::string file = sandbox_.makeFile("folder/file", "x");
  test::ChildProgram watcher({QV_TEST_PROGRAMS "/ChangeWatcher", sandbox_.path("folder")});
  ASSERT_TRUE(watcher.waitForLine("ready"));
  EXPECT_TRUE(notifyItemChanged(FileReference::to(file)).ok());
  EXPECT_TRUE(watcher.waitForLine("attributes of file"));
  EXPECT_TRUE(platform::file_system::remove(file).ok());
  EXPECT_TRUE(watcher.waitForLine("gone file"));
  EXPECT_EQ(watcher.lines().size(), 3U) << "one event for each, and no other";
}

TEST_F(ItemChangedTest, ALinkIsMeantItself) {
  const std::string target = sandbox_.makeFile("elsewhere/target");
  sandbox_.makeDirectory("folder");
  std::filesystem::create_symlink(target, sandbox_.path("folder/link"));
  const Watch watch(sandbox_.path("folder"));
  const Watch other(sandbox_.path("elsewhere"));
  EXPECT_TRUE(notifyItemChanged(FileReference::to(sandbox_.path("folder/link"))).ok());
  EXPECT_EQ(watch.next(), "attributes of link");
  EXPECT_EQ(other.next(), "");
}

TEST_F(ItemChangedTest, AReferenceToNothingFails) {
  EXPECT_EQ(FileReference::to(sandbox_.path("missing")).path(), "");
  EXPECT_EQ(notifyItemChanged(FileReference::to(sandbox_.path("missing"))).code(), ENOENT);
  const FileReference gone = FileReference::to(sandbox_.makeFile("gone"));
  EXPECT_EQ(gone.path(), sandbox_.path("gone"));
  std::filesystem::remove(sandbox_.path("gone"));
  EXPECT_EQ(notifyItemChanged(gone).code(), ENOENT);
}

TEST_F(ItemChangedTest, TheSetGroupIdBitSurvivesAnOwnerOutsideTheGroup) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string file = sandbox_.makeFile("folder/file");
  ASSERT_EQ(::chown(file.c_str(), Sandbox::kConsoleUserId, Sandbox::kOtherUserId), 0);
  ASSERT_EQ(::chmod(file.c_str(), 02755), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const Watch watch(sandbox_.path("folder"));
  EXPECT_TRUE(notifyItemChanged(FileReference::to(file)).ok());
  EXPECT_EQ(watch.next(), "attributes of file");
  EXPECT_EQ(statusOf(file).st_mode & 07777U, 02755U);
}

TEST_F(ItemChangedTest, SomebodyElsesItemCannotBeAnnounced) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string file = sandbox_.makeFile("file");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_EQ(notifyItemChanged(FileReference::to(file)).code(), EPERM);
}

}  // namespace
