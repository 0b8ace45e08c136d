#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/Task.h"
#include "tests/support/LoopImage.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using platform::Task;
using test::LoopImage;
using test::Sandbox;
using test::waitFor;
using testing::HasSubstr;

constexpr int kFailure = 1;
constexpr int kUsageError = 64;
constexpr std::chrono::milliseconds kAWhile(300);

std::shared_ptr<Task> started(std::vector<std::string> arguments) {
  auto task = Task::create();
  task->setLaunchPath(QV_TEST_BUNDLE "/Contents/Linux/session-helper");
  arguments.insert(arguments.begin(), "detach");
  task->setArguments(std::move(arguments));
  task->setStandardError(Task::End::pipe);
  task->launch();
  return task;
}

struct Result {
  int status;
  std::string error;
};

Result detach(std::vector<std::string> arguments) {
  const auto task = started(std::move(arguments));
  platform::Data error;
  while (task->standardErrorPipe()->appendAvailableData(error) > 0) {
  }
  task->waitUntilExit();
  return {task->terminationStatus(),
          std::string(reinterpret_cast<const char*>(error.data()), error.size())};
}

// With an image mounted in a private namespace.
class DetachTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
  }

  Sandbox sandbox;
};

TEST_F(DetachTest, AnImageIsUnmountedAndItsLoopDeviceFreed) {
  const LoopImage image(sandbox, "Volumes/Image");
  ASSERT_TRUE(image.isMounted());
  ASSERT_TRUE(image.hasLoopDevice());
  const Result result = detach({image.mountPoint(), "-force"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.error, "");
  EXPECT_FALSE(image.isMounted());
  EXPECT_TRUE(waitFor([&] { return !image.hasLoopDevice(); }));
}

TEST_F(DetachTest, AMountPointMayBeCalledAnything) {
  for (const char* name : {"My Disk 100%d", "back\\slash\\040", "line\nbreak\tand tab", "return\r",
                           "#hash", "target is busy."}) {
    const LoopImage image(sandbox, name);
    ASSERT_TRUE(image.isMounted()) << name;
    EXPECT_EQ(detach({image.mountPoint()}).status, 0) << name;
    EXPECT_FALSE(image.isMounted()) << name;
  }
}

TEST_F(DetachTest, ASlashAtTheEndAndLinksAboveDoNotMatter) {
  const LoopImage image(sandbox, "Volumes/Image");
  std::filesystem::create_symlink(sandbox.path("Volumes"), sandbox.path("link"));
  EXPECT_EQ(detach({sandbox.path("link//Image//")}).status, 0);
  EXPECT_FALSE(image.isMounted());
}

TEST_F(DetachTest, ALinkToAMountPointIsNotOne) {
  const LoopImage image(sandbox, "Image");
  std::filesystem::create_symlink(image.mountPoint(), sandbox.path("link"));
  const Result result = detach({sandbox.path("link"), "-force"});
  EXPECT_EQ(result.status, kFailure);
  EXPECT_THAT(result.error, HasSubstr("is not a mount point"));
  EXPECT_TRUE(image.isMounted());
}

TEST_F(DetachTest, ABusyImageIsDetachedOnceItIsNotBusyAnyMore) {
  const LoopImage image(sandbox, "Image");
  const int busy = ::open((image.mountPoint() + "/lost+found").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(busy, 0);
  const auto task = started({image.mountPoint(), "-force"});
  EXPECT_FALSE(waitFor([&] { return !task->isRunning(); }, kAWhile));
  EXPECT_TRUE(image.isMounted());
  ::close(busy);
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 0);
  EXPECT_FALSE(image.isMounted());
}

TEST_F(DetachTest, AnImageThatStaysBusyIsTakenOutOfTheTreeAndCanBeReadOn) {
  const LoopImage image(sandbox, "Image");
  std::ofstream(image.mountPoint() + "/file") << "contents";
  std::ifstream busy(image.mountPoint() + "/file");
  ASSERT_TRUE(busy.is_open());
  const Result result = detach({image.mountPoint(), "-force"});
  EXPECT_EQ(result.status, 0) << result.error;
  EXPECT_FALSE(image.isMounted());
  std::string word;
  EXPECT_TRUE(busy >> word);
  EXPECT_EQ(word, "contents");
}

TEST_F(DetachTest, ABusyImageStaysWholeWhenDetachingIsGivenUp) {
  const LoopImage image(sandbox, "Image");
  const int busy = ::open((image.mountPoint() + "/lost+found").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(busy, 0);
  const auto task = started({image.mountPoint(), "-force"});
  EXPECT_FALSE(waitFor([&] { return !task->isRunning(); }, kAWhile));
  task->terminate();
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), SIGTERM);
  EXPECT_TRUE(image.isMounted());
  EXPECT_TRUE(std::filesystem::exists(image.mountPoint() + "/lost+found"));
  ::close(busy);
}

TEST_F(DetachTest, WithoutForceABusyImageIsAFailureAtOnce) {
  const LoopImage image(sandbox, "Image");
  const int busy = ::open((image.mountPoint() + "/lost+found").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(busy, 0);
  const Result result = detach({image.mountPoint()});
  EXPECT_EQ(result.status, kFailure);
  EXPECT_THAT(result.error, HasSubstr("busy"));
  EXPECT_TRUE(image.isMounted());
  ::close(busy);
}

TEST_F(DetachTest, SomeoneWithoutTheRightIsRefusedAndNotKeptWaiting) {
  const LoopImage image(sandbox, "Image");
  sandbox.becomeUser(Sandbox::kConsoleUser);
  const Result result = detach({image.mountPoint(), "-force"});
  EXPECT_EQ(result.status, kFailure);
  EXPECT_THAT(result.error, HasSubstr("superuser"));
  EXPECT_TRUE(image.isMounted());
}

// What somebody can rename, somebody can lead root to.
TEST_F(DetachTest, SomebodyElsesMountInAPersonsFolderIsNotTakenAway) {
  const std::string folder = sandbox.makeDirectory("home/anna/folder/disk");
  ASSERT_EQ(::chown(sandbox.path("home/anna/folder").c_str(), Sandbox::kConsoleUserId, 0), 0);
  ASSERT_EQ(::mount("tmpfs", folder.c_str(), "tmpfs", 0, nullptr), 0);
  const Result result = detach({folder, "-force"});
  EXPECT_EQ(result.status, kFailure);
  EXPECT_THAT(result.error, HasSubstr("is not an image's"));
  EXPECT_EQ(::umount2(folder.c_str(), UMOUNT_NOFOLLOW), 0) << "it is still there";
}

TEST_F(DetachTest, AnImageInAPersonsFolderIsDetached) {
  const LoopImage image(sandbox, "home/anna/Image");
  EXPECT_EQ(detach({image.mountPoint(), "-force"}).status, 0);
  EXPECT_FALSE(image.isMounted());
}

TEST(DetachArgumentsTest, WhatIsNotAMountPointIsRefused) {
  const Sandbox sandbox;
  for (const std::string& path :
       {sandbox.makeDirectory("folder"), sandbox.makeFile("file"), sandbox.path("missing"),
        sandbox.path("missing/missing"), std::string("/"), std::string("//"),
        std::string("/proc/."), std::string("/proc/..")}) {
    const Result result = detach({path, "-force"});
    EXPECT_EQ(result.status, kFailure) << path;
    EXPECT_THAT(result.error, HasSubstr("\"" + path + "\" is not a mount point"));
  }
}

TEST(DetachArgumentsTest, AnEmptyOrARelativePathIsAnError) {
  for (const char* path : {"", "proc", "."}) {
    const Result result = detach({path, "-force"});
    EXPECT_EQ(result.status, kUsageError) << path;
    EXPECT_THAT(result.error, HasSubstr("must be an absolute path"));
  }
}

TEST(DetachArgumentsTest, ArgumentsAreReadStrictly) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"-force"},
                                                    {"/a", "/b"},
                                                    {"/a", "-forced"},
                                                    {"-lazy", "/a"},
                                                    {"/a", "-force", "-force"}}) {
    EXPECT_EQ(detach(arguments).status, kUsageError);
  }
}

}  // namespace
