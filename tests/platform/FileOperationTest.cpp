#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/Exception.h"
#include "tests/support/FileOperationFixture.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SlowFiles.h"
#include "tests/support/ThreadLimit.h"
#include "tests/support/TreeDescription.h"
#include "tests/support/WaitFor.h"

namespace {

using std::chrono::milliseconds;
using test::readFile;
using test::Sandbox;
using test::serveFor;
using test::serveUntil;
using test::SlowFiles;
using test::waitFor;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace file_system = platform::file_system;

class FileOperationTest : public test::FileOperationFixture {};

TEST_F(FileOperationTest, AHostileTreeIsCopiedAndItsEndIsReportedOnceOnTheMainThread) {
  test::makeHostileTree(tree() + "/in");
  started();
  EXPECT_TRUE(serveUntilTheEnd());
  serveFor(milliseconds(50));
  EXPECT_EQ(recorder_->ends, 1);
  EXPECT_EQ(recorder_->resultCode(), 0) << recorder_->reports.back().result.description();
  EXPECT_FALSE(recorder_->offMainThread);
  EXPECT_EQ(test::describeTree(copy()), test::describeTree(tree()));
}

TEST_F(FileOperationTest, ASingleFileAndASingleLinkAreCopied) {
  const std::string file = sandbox_.makeFile("tree/file", std::string(kLarge, 'x'));
  std::filesystem::create_symlink("nowhere", tree() + "/link");
  for (const char* name : {"file", "link"}) {
    EXPECT_EQ(resultOf(tree() + "/" + name, to(), name), 0);
    EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kObjectsComplete), 1);
  }
  EXPECT_EQ(readFile(sandbox_.path("to/file")), readFile(file));
  EXPECT_THAT(target(), Optional(ElementsAre("file", "link")));
}

TEST_F(FileOperationTest, ASourceThatVanishesFailsTheCopyAndLeavesNothing) {
  if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  makeFiles(100);
  const SlowFiles slow(tree(), milliseconds(2));
  recorder_->reaction = [&](const Operation&, const Report& report) {
    // The folder has been read by then.
    if (number(report, FileOperation::kObjectsComplete) == 0) return;
    for (int i = 0; i < 100; ++i) std::filesystem::remove(tree() + "/" + std::to_string(i));
  };
  started(milliseconds(5));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->resultCode(), ENOENT);
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

TEST_F(FileOperationTest, WhatIsThereIsKeptAndRefusedAtOnce) {
  makeFiles(3);
  sandbox_.makeFile("to/copy", "mine");
  started();
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->resultCode(), EEXIST);
  EXPECT_EQ(recorder_->reports.size(), 1U);
  EXPECT_EQ(number(recorder_->reports[0], FileOperation::kTotalObjects), 0);
  EXPECT_EQ(readFile(copy()), "mine");
}

TEST_F(FileOperationTest, MissingPlacesAndAFolderIntoItselfAreReportedAtTheEnd) {
  makeFiles(1);
  EXPECT_EQ(resultOf(tree() + "/gone", to(), "copy"), ENOENT);
  EXPECT_EQ(resultOf(tree(), sandbox_.path("to/gone"), "copy"), ENOENT);
  EXPECT_EQ(resultOf(tree(), tree(), "copy"), EINVAL);
  EXPECT_EQ(resultOf(tree(), to(), ".."), EINVAL);
  EXPECT_EQ(resultOf("relative", to(), "copy"), EINVAL);
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

TEST_F(FileOperationTest, AFullDiskEndsTheCopyAndNothingIsLeft) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = sandbox_.mountTmpfs("small", 4UL << 20);
  sandbox_.makeFile("tree/large", std::string(kLarge, 'x'));
  EXPECT_EQ(resultOf(tree(), disk, "copy"), ENOSPC);
  EXPECT_THAT(file_system::list(disk), Optional(IsEmpty()));
}

TEST_F(FileOperationTest, AnOrdinaryUserWithoutRightsIsRefusedAtTheEnd) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  makeFiles(3);
  ASSERT_EQ(::chmod((tree() + "/1").c_str(), 0), 0);
  ASSERT_EQ(::chmod(to().c_str(), 0755), 0);
  const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_EQ(resultOf(tree(), to(), "copy"), EACCES) << "the folder is not hers";
  EXPECT_EQ(resultOf(tree(), home, "copy"), EACCES) << "one file is not for her";
  EXPECT_FALSE(file_system::exists(home + "/copy"));
}

TEST_F(FileOperationTest, ACopyMayBeBegunOnAnyThread) {
  makeFiles(3);
  std::thread([this] { started(); }).join();
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_FALSE(recorder_->offMainThread);
  EXPECT_TRUE(file_system::exists(copy()));
}

TEST_F(FileOperationTest, WithoutAScheduleNothingIsReportedAndTheCallbackIsLetGo) {
  makeFiles(3);
  EXPECT_TRUE(begin(FileOperation::create()).ok());
  EXPECT_TRUE(waitFor([&] { return file_system::exists(copy()); }));
  EXPECT_TRUE(serveUntil([&] { return recorder_.use_count() == 1; }));
  EXPECT_THAT(recorder_->reports, IsEmpty());
}

TEST_F(FileOperationTest, ItIsScheduledOnceAndUnscheduledOnce) {
  const Operation operation = FileOperation::create();
  EXPECT_EQ(operation->unschedule().code(), EINVAL);
  EXPECT_TRUE(operation->schedule().ok());
  EXPECT_EQ(operation->schedule().code(), EALREADY);
  EXPECT_TRUE(operation->unschedule().ok());
  EXPECT_EQ(operation->unschedule().code(), EINVAL);
}

TEST_F(FileOperationTest, ItIsBegunOnce) {
  makeFiles(1);
  const Operation operation = started();
  EXPECT_EQ(begin(operation).code(), EALREADY);
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(begin(operation).code(), EALREADY);
}

TEST_F(FileOperationTest, WhatIsNoPathIsRefusedAtOnce) {
  const Operation operation = FileOperation::create();
  const std::string zero("/etc/passwd\0/x", 14);
  EXPECT_EQ(begin(operation, "", "/tmp", "x").code(), EINVAL);
  EXPECT_EQ(begin(operation, "/tmp", "", "x").code(), EINVAL);
  EXPECT_EQ(begin(operation, "/tmp", "/tmp", "").code(), EINVAL);
  EXPECT_EQ(begin(operation, zero, "/tmp", "x").code(), EINVAL);
}

TEST_F(FileOperationTest, WithoutAThreadItDoesNotBegin) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  makeFiles(1);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const Operation operation = FileOperation::create();
  EXPECT_TRUE(operation->schedule().ok());
  {
    const test::ThreadLimit limit;
    ASSERT_TRUE(limit.isSet());
    EXPECT_EQ(begin(operation).code(), EAGAIN);
  }
  EXPECT_EQ(recorder_.use_count(), 1);
  serveFor(milliseconds(20));
  EXPECT_THAT(recorder_->reports, IsEmpty());
}

TEST_F(FileOperationTest, AnExceptionOfTheCallbackEndsNothing) {
  makeFiles(3);
  recorder_->reaction = [](const Operation&, const Report&) {
    throw platform::Exception("Name", "reason");
  };
  started();
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->resultCode(), 0);
  EXPECT_TRUE(serveUntil([&] { return recorder_.use_count() == 1; }));
}

TEST_F(FileOperationTest, ACallbackMayServeTheMainLoopUntilTheEnd) {
  makeFiles(100);
  recorder_->reaction = [this](const Operation&, const Report& report) {
    if (report.stage == Stage::running) serveUntilTheEnd();
  };
  started();
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->ends, 1);
}

TEST_F(FileOperationTest, ManyCopiesLeaveNoThreadAndNoDescriptor) {
  makeFiles(3);
  started();
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_TRUE(waitFor([] { return test::threads() == 1; }));
  const std::size_t descriptors = test::openDescriptors();
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(file_system::remove(copy()).ok());
    EXPECT_EQ(resultOf(tree(), to(), "copy"), 0);
  }
  EXPECT_TRUE(waitFor([] { return test::threads() == 1; }));
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

}  // namespace
