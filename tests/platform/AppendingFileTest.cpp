#include "platform/AppendingFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Sandbox.h"

namespace {

using platform::AppendingFile;

class AppendingFileTest : public testing::Test {
 protected:
  test::Sandbox sandbox_;
};

TEST_F(AppendingFileTest, WritesBehindWhatIsThere) {
  const std::string path = sandbox_.makeFile("a.log", "first\n");
  const auto file = AppendingFile::open(path);
  ASSERT_TRUE(file);
  const AppendingFile::Appended appended = file->append("second\n");
  EXPECT_TRUE(appended.status.ok());
  EXPECT_EQ(appended.bytes, 7U);
  EXPECT_EQ(test::readFile(path), "first\nsecond\n");
}

TEST_F(AppendingFileTest, WritesBehindWhatAnotherHasWrittenMeanwhile) {
  const std::string path = sandbox_.makeFile("a.log");
  const auto one = AppendingFile::open(path);
  const auto two = AppendingFile::open(path);
  one->append("1");
  two->append("2");
  one->append("3");
  EXPECT_EQ(test::readFile(path), "123");
}

TEST_F(AppendingFileTest, OpensOnlyAnExistingRegularFile) {
  EXPECT_FALSE(AppendingFile::open(sandbox_.path("missing.log")));
  EXPECT_FALSE(AppendingFile::open(""));
  EXPECT_FALSE(AppendingFile::open(sandbox_.makeDirectory("folder")));
  const std::string pipe = sandbox_.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_FALSE(AppendingFile::open(pipe));
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_FALSE(AppendingFile::open(pipe));
  ::close(reader);
}

TEST_F(AppendingFileTest, AClosedFileRefuses) {
  const std::string path = sandbox_.makeFile("a.log");
  const auto file = AppendingFile::open(path);
  file->close();
  file->close();
  const AppendingFile::Appended appended = file->append("x");
  EXPECT_EQ(appended.status.code(), EBADF);
  EXPECT_EQ(appended.status.description(), "Bad file descriptor");
  EXPECT_EQ(appended.bytes, 0U);
  EXPECT_EQ(test::readFile(path), "");
}

TEST_F(AppendingFileTest, AFullDiskIsReportedWithWhatFitted) {
  if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.mountTmpfs("disk", 1 << 16);
  const auto file = AppendingFile::open(sandbox_.makeFile("disk/a.log"));
  const AppendingFile::Appended appended = file->append(std::string(1 << 20, 'x'));
  EXPECT_EQ(appended.status.code(), ENOSPC);
  EXPECT_EQ(appended.bytes, test::readFile(sandbox_.path("disk/a.log")).size());
  EXPECT_GT(appended.bytes, 0U);
}

TEST_F(AppendingFileTest, NeverTakesTheNumberOfAClosedStandardOutput) {
  const std::string path = sandbox_.makeFile("a.log");
  const int saved = ::dup(STDOUT_FILENO);
  ::close(STDOUT_FILENO);
  const auto file = AppendingFile::open(path);
  const ssize_t printed = ::write(STDOUT_FILENO, "x", 1);
  ::dup2(saved, STDOUT_FILENO);
  EXPECT_EQ(printed, -1);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->append("y").status.ok());
  EXPECT_EQ(test::readFile(path), "y");
}

TEST_F(AppendingFileTest, ChildProgramsDoNotInheritIt) {
  const std::string path = sandbox_.makeFile("a.log");
  const auto file = AppendingFile::open(path);
  int found = 0;
  for (int descriptor = 3; descriptor < 64; ++descriptor) {
    char target[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (::readlink(link.c_str(), target, sizeof target - 1) <= 0 || path != target) continue;
    ++found;
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(found, 1);
}

TEST_F(AppendingFileTest, MayBeClosedWhileOthersAppend) {
  const std::string path = sandbox_.makeFile("a.log");
  const auto file = AppendingFile::open(path);
  std::vector<std::thread> writers;
  for (int i = 0; i < 2; ++i) {
    writers.emplace_back([&] {
      while (file->append("line\n").status.ok()) {
      }
    });
  }
  file->close();
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(test::readFile(path).size() % 5, 0U) << "no line was cut";
}

}  // namespace
