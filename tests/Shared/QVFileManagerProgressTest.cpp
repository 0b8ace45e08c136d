#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVFileOperationDelegate.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/FileOperationFixture.h"
#include "tests/support/HeldTool.h"
#include "tests/support/Polkit.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SlowFiles.h"
#include "tests/support/ThreadLimit.h"
#include "tests/support/WaitFor.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::consoleOf;
using test::Sandbox;
using test::serveFor;
using test::serveUntil;
using test::waitFor;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using Delegate = QVFileOperationDelegate;
using Status = Delegate::Status;

std::vector<std::string> keys(const Status& status) {
  std::vector<std::string> result;
  for (const auto& [key, value] : status) result.push_back(key);
  return result;
}

template <class T>
T entry(const Status& status, const char* key) {
  return std::any_cast<T>(status.at(key));
}

class QVFileManagerProgressTest : public test::FileOperationFixture {
 protected:
  void SetUp() override {
    FileOperationFixture::SetUp();
    finish(*delegate_);
    // Nobody is asked for rights.
    QVAuthorization::sharedController(false);
  }

  // Has the delegate note the end.
  void finish(Delegate& delegate) {
    delegate.fileOperationFinished = [this](const Status& status) { ended(status); };
  }
  void ended(const Status& status) {
    EXPECT_TRUE(platform::main_thread::isCurrent());
    last_ = status;
    ++ends_;
  }
  bool start(const std::any& object = {}, const std::any& object2 = {}) const {
    return QVFileManager::copyFileWithProgress(tree(), copy(), delegate_, object, object2);
  }
  bool serveUntilItsEnd() {
    const bool ended = serveUntil([this] { return ends_ > 0; });
    serveFor(milliseconds(20));
    return ended && ends_ == 1;
  }

  std::shared_ptr<Delegate> delegate_ = std::make_shared<Delegate>();
  int ends_ = 0;
  Status last_;
};

TEST_F(QVFileManagerProgressTest, AFolderIsCopiedAndTheDelegateIsToldOfTheEnd) {
  makeFiles(10);
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_THAT(target(), Optional(ElementsAre("copy")));
  EXPECT_EQ(test::readFile(copy() + "/9"), "12345");
  EXPECT_EQ(entry<long>(last_, Delegate::kStage), 3);
}

TEST_F(QVFileManagerProgressTest, TheEndBringsWhatIsKnownAndNoEntriesOfProgress) {
  makeFiles(1);
  EXPECT_TRUE(start(5, std::string("second")));
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_THAT(keys(last_), ElementsAre("delegate", "destination", "object", "object2",
                                       "operationtype", "source", "stage"));
  EXPECT_EQ(entry<std::string>(last_, Delegate::kSource), tree());
  EXPECT_EQ(entry<std::string>(last_, Delegate::kDestination), copy());
  EXPECT_EQ(entry<std::string>(last_, Delegate::kOperationType), "copy");
  EXPECT_EQ(entry<std::shared_ptr<Delegate>>(last_, Delegate::kDelegate), delegate_);
  EXPECT_EQ(entry<int>(last_, Delegate::kObject), 5);
  EXPECT_EQ(entry<std::string>(last_, Delegate::kObject2), "second");
}

TEST_F(QVFileManagerProgressTest, WhatIsNotGivenHasNoKey) {
  makeFiles(1);
  EXPECT_TRUE(start({}, 2));
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_THAT(keys(last_), ElementsAre("delegate", "destination", "object2", "operationtype",
                                       "source", "stage"));
}

TEST_F(QVFileManagerProgressTest, TheShorterFormHasNoSecondObject) {
  makeFiles(1);
  EXPECT_TRUE(QVFileManager::copyFileWithProgress(tree(), copy(), delegate_, 1));
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_THAT(keys(last_),
              ElementsAre("delegate", "destination", "object", "operationtype", "source", "stage"));
}

TEST_F(QVFileManagerProgressTest, ProgressBringsTheEntriesOfThePlatformToo) {
  makeFiles(10);
  Status progress;
  delegate_->fileOperationProgress = [&](const Status& status) { progress = status; };
  EXPECT_TRUE(start(5));
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_EQ(entry<long>(progress, Delegate::kStage), 2);
  EXPECT_EQ(entry<int>(progress, Delegate::kObject), 5);
  EXPECT_EQ(entry<std::int64_t>(progress, FileOperation::kTotalBytes), 50);
  EXPECT_EQ(entry<std::int64_t>(progress, FileOperation::kTotalObjects), 11);
  EXPECT_LE(entry<std::int64_t>(progress, FileOperation::kBytesComplete), 50);
  EXPECT_GE(entry<std::int64_t>(progress, FileOperation::kThroughput), 0);
  EXPECT_EQ(entry<std::string>(progress, FileOperation::kCurrentItem).find(tree()), 0U);
}

TEST_F(QVFileManagerProgressTest, NothingIsToldBeforeItIsKnownHowMuchThereIsToCopy) {
  if (!test::SlowFiles::canBeMade()) GTEST_SKIP() << test::SlowFiles::kNeeds;
  for (int i = 0; i < 60; ++i) sandbox_.makeFile("tree/" + std::to_string(i) + "/file", "12345");
  const test::SlowFiles slow(tree(), milliseconds(15), test::SlowFiles::Folders::slow);
  delegate_->fileOperationProgress = [](const Status& status) {
    EXPECT_EQ(entry<long>(status, Delegate::kStage), 2);
  };
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
}

TEST_F(QVFileManagerProgressTest, TheFormsWithTheOperationArePreferred) {
  makeFiles(3);
  int progress = 0;
  delegate_->fileOperationProgress = [&](const Status&) { ADD_FAILURE(); };
  delegate_->fileOperationFinished = [&](const Status&) { ADD_FAILURE(); };
  delegate_->fileOperationProgressWithOperation = [&](const Status&, const Operation& operation) {
    EXPECT_NE(operation, nullptr);
    ++progress;
  };
  delegate_->fileOperationFinishedWithOperation = [&](const Status& status,
                                                      const Operation& operation) {
    EXPECT_NE(operation, nullptr);
    ended(status);
  };
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_EQ(progress, 1);
}

TEST_F(QVFileManagerProgressTest, TheEndIsToldWhenTheOperationIsNoLongerScheduled) {
  makeFiles(1);
  delegate_->fileOperationFinishedWithOperation = [&](const Status& status,
                                                      const Operation& operation) {
    EXPECT_FALSE(operation->unschedule().ok());
    ended(status);
  };
  EXPECT_EQ(consoleOf([this] {
              EXPECT_TRUE(start());
              EXPECT_TRUE(serveUntilItsEnd());
            }),
            "");
}

TEST_F(QVFileManagerProgressTest, WhatTheDelegateAnswersIsLookedUpForEachMessage) {
  if (!test::SlowFiles::canBeMade()) GTEST_SKIP() << test::SlowFiles::kNeeds;
  makeFiles(100);
  const test::SlowFiles slow(tree(), milliseconds(15));
  delegate_->fileOperationProgress = [&](const Status&) {
    delegate_->fileOperationFinishedWithOperation = [&](const Status& status, const Operation&) {
      ended(status);
    };
    delegate_->fileOperationFinished = nullptr;
  };
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
}

TEST_F(QVFileManagerProgressTest, MessagesComeAtMostOnceASecond) {
  if (!test::SlowFiles::canBeMade()) GTEST_SKIP() << test::SlowFiles::kNeeds;
  makeFiles(240);
  const test::SlowFiles slow(tree(), milliseconds(10));
  std::vector<steady_clock::time_point> times;
  std::int64_t before = -1;
  delegate_->fileOperationProgress = [&](const Status& status) {
    times.push_back(steady_clock::now());
    const auto complete = entry<std::int64_t>(status, FileOperation::kObjectsComplete);
    EXPECT_GT(complete, before);
    before = complete;
  };
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_GE(times.size(), 2U);
  for (std::size_t i = 1; i < times.size(); ++i) {
    // A message is queued and may come late, so that less is left until the next one.
    EXPECT_GE(times[i] - times[i - 1], milliseconds(900));
  }
}

TEST_F(QVFileManagerProgressTest, ADelegateThatAnswersNothingGetsItsCopyAndIsLetGo) {
  makeFiles(3);
  *delegate_ = {};
  EXPECT_TRUE(start());
  EXPECT_GT(delegate_.use_count(), 1);
  EXPECT_EQ(consoleOf([&] { serveUntil([&] { return delegate_.use_count() == 1; }); }), "");
  EXPECT_EQ(delegate_.use_count(), 1);
  EXPECT_THAT(target(), Optional(ElementsAre("copy")));
}

TEST_F(QVFileManagerProgressTest, ACopyNeedsNoDelegate) {
  makeFiles(3);
  delegate_ = nullptr;
  const auto object = std::make_shared<int>(1);
  EXPECT_TRUE(start(object));
  EXPECT_TRUE(serveUntil([&] { return object.use_count() == 1; }));
  EXPECT_THAT(target(), Optional(ElementsAre("copy")));
}

TEST_F(QVFileManagerProgressTest, TheDelegateIsKeptUntilTheEndAndThenLetGo) {
  makeFiles(3);
  EXPECT_TRUE(start());
  const std::weak_ptr<Delegate> watched = delegate_;
  delegate_ = nullptr;
  EXPECT_FALSE(watched.expired());
  EXPECT_TRUE(serveUntilItsEnd());
  last_.clear();
  EXPECT_TRUE(watched.expired());
}

TEST_F(QVFileManagerProgressTest, AMissingSourceMakesNoFolder) {
  const std::string source = sandbox_.path("gone");
  const std::string console = consoleOf([&] {
    EXPECT_FALSE(
        QVFileManager::copyFileWithProgress(source, to() + "/new/copy", delegate_, {}, {}));
  });
  EXPECT_EQ(console, "Error: File " + source + " doesn't exist. Aborting copy process...\n");
  EXPECT_THAT(target(), Optional(IsEmpty()));
  serveFor(milliseconds(20));
  EXPECT_EQ(ends_, 0);
}

TEST_F(QVFileManagerProgressTest, AMissingFolderIsMadeFirst) {
  makeFiles(3);
  const std::string folder = to() + "/new/folder";
  EXPECT_EQ(consoleOf([&] {
              EXPECT_TRUE(
                  QVFileManager::copyFileWithProgress(tree(), folder + "/copy", delegate_, {}, {}));
            }),
            "");
  EXPECT_TRUE(QVFileManager::isDirectoryAtPath(folder));
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_TRUE(QVFileManager::isDirectoryAtPath(folder + "/copy"));
}

TEST_F(QVFileManagerProgressTest, AFolderThatTakesAdministratorRightsIsWaitedFor) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ASSERT_EQ(::chmod(to().c_str(), 0755), 0);
  const test::Polkit polkit(sandbox_);
  const test::HeldTool held(sandbox_);
  const std::string folder = to() + "/new";
  const pid_t child = test::startAs(sandbox_, Sandbox::kConsoleUser, [&] {
    QVAuthorization& session = QVAuthorization::sharedController();
    EXPECT_TRUE(session.authStartWithUser(test::Polkit::kAdministrator, test::Polkit::kPassword));
    // Tools on one path run one after the other.
    EXPECT_EQ(session.authExecTask("/bin/sh", {"-c", held.script(), folder}), 0);
    sandbox_.makeFile("home/anna/asked");
    EXPECT_TRUE(QVFileManager::copyFileWithProgress(tree(), folder + "/copy", nullptr, {}));
    sandbox_.makeFile("home/anna/answered");
  });
  const auto has = [this](const char* file) {
    return QVFileManager::fileExistsAtPath(sandbox_.homeOf(Sandbox::kConsoleUser) + file);
  };
  EXPECT_TRUE(waitFor([&] { return has("/asked"); }, std::chrono::minutes(1)));
  EXPECT_FALSE(waitFor([&] { return has("/answered"); }, milliseconds(500)));
  held.release();
  EXPECT_TRUE(test::passed(child));
  EXPECT_TRUE(QVFileManager::isDirectoryAtPath(folder));
}

TEST_F(QVFileManagerProgressTest, AFolderIsWaitedForTenSeconds) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ASSERT_EQ(::chmod(to().c_str(), 0755), 0);
  const test::Polkit polkit(sandbox_);
  const test::HeldTool held(sandbox_);
  const std::string folder = to() + "/new";
  const pid_t child = test::startAs(sandbox_, Sandbox::kConsoleUser, [&] {
    QVAuthorization& session = QVAuthorization::sharedController();
    EXPECT_TRUE(session.authStartWithUser(test::Polkit::kAdministrator, test::Polkit::kPassword));
    EXPECT_EQ(session.authExecTask("/bin/sh", {"-c", held.script(), folder}), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(QVFileManager::copyFileWithProgress(tree(), folder + "/copy", nullptr, {}));
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_GE(time, milliseconds(9900));
    EXPECT_LT(time, milliseconds(14000));
  });
  EXPECT_TRUE(test::passed(child));
  held.release();
}

TEST_F(QVFileManagerProgressTest, AFolderThatCannotBeMadeIsNamed) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ASSERT_EQ(::chmod(to().c_str(), 0755), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const std::string folder = to() + "/new";
  const std::string console = consoleOf([&] {
    EXPECT_FALSE(QVFileManager::copyFileWithProgress(tree(), folder + "/copy", delegate_, {}, {}));
  });
  EXPECT_THAT(console,
              testing::EndsWith("Unable to copy file " + tree() + " - destination directory " +
                                folder + " doesn't exist. Aborting copy process...\n"));
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

TEST_F(QVFileManagerProgressTest, WhatIsThereIsKeptAndTheEndIsTold) {
  makeFiles(3);
  sandbox_.makeFile("to/copy", "mine");
  delegate_->fileOperationProgress = [](const Status&) { ADD_FAILURE(); };
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_EQ(test::readFile(copy()), "mine");
}

TEST_F(QVFileManagerProgressTest, ADelegateMayCancelFromItsMessage) {
  if (!test::SlowFiles::canBeMade()) GTEST_SKIP() << test::SlowFiles::kNeeds;
  makeFiles(100);
  const test::SlowFiles slow(tree(), milliseconds(15));
  delegate_->fileOperationProgressWithOperation = [](const Status&, const Operation& operation) {
    QVFileManager::cancelFileOperation(operation);
  };
  EXPECT_TRUE(start());
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_EQ(entry<long>(last_, Delegate::kStage), 3);
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

TEST_F(QVFileManagerProgressTest, CancellingNothingDoesNothing) {
  QVFileManager::cancelFileOperation(nullptr);
}

TEST_F(QVFileManagerProgressTest, TwoCopiesOfOneDelegateRunAtOnce) {
  makeFiles(100);
  EXPECT_TRUE(start(1));
  EXPECT_TRUE(QVFileManager::copyFileWithProgress(tree(), to() + "/second", delegate_, 2));
  EXPECT_TRUE(serveUntil([this] { return ends_ == 2; }));
  EXPECT_THAT(target(), Optional(ElementsAre("copy", "second")));
}

TEST_F(QVFileManagerProgressTest, ACopyMayBeStartedOnABackgroundThread) {
  makeFiles(3);
  std::thread([this] {
    EXPECT_TRUE(QVFileManager::copyFileWithProgress(tree(), to() + "/new/copy", delegate_, {}, {}));
  }).join();
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_TRUE(QVFileManager::fileExistsAtPath(to() + "/new/copy/2"));
}

TEST_F(QVFileManagerProgressTest, AfterABusyTimeThereIsOneMessageOfProgress) {
  makeFiles(100);
  int progress = 0;
  delegate_->fileOperationProgress = [&](const Status& status) {
    EXPECT_EQ(entry<std::int64_t>(status, FileOperation::kObjectsRemaining), 0);
    ++progress;
  };
  EXPECT_TRUE(start());
  EXPECT_TRUE(waitFor([this] { return QVFileManager::fileExistsAtPath(copy()); }));
  std::this_thread::sleep_for(std::chrono::seconds(2));
  EXPECT_TRUE(serveUntilItsEnd());
  EXPECT_EQ(progress, 1);
}

TEST_F(QVFileManagerProgressTest, WithoutAThreadNothingIsBegun) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  makeFiles(1);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const test::ThreadLimit limit;
  ASSERT_TRUE(limit.isSet());
  EXPECT_EQ(consoleOf([this] { EXPECT_FALSE(start()); }),
            "Failed to begin asynchronous object copy: 11\n");
  EXPECT_EQ(delegate_.use_count(), 1);
}

TEST_F(QVFileManagerProgressTest, AfterTheEndOfTheMainLoopNothingIsScheduled) {
  makeFiles(1);
  test::besideMainLoop([] {});
  EXPECT_EQ(consoleOf([this] { EXPECT_FALSE(start()); }),
            "Failed to schedule operation with run loop: 108\n");
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

TEST_F(QVFileManagerProgressTest, ADelegateThatUnschedulesTheOperationItselfIsNotedAtTheEnd) {
  if (!test::SlowFiles::canBeMade()) GTEST_SKIP() << test::SlowFiles::kNeeds;
  makeFiles(100);
  const test::SlowFiles slow(tree(), milliseconds(15));
  const std::size_t threads = test::threads();
  delegate_->fileOperationProgressWithOperation = [&](const Status&, const Operation& operation) {
    // The end is on its way when the copy's threads are gone.
    EXPECT_TRUE(waitFor([&] { return test::threads() == threads; }));
    EXPECT_TRUE(operation->unschedule().ok());
    // Another message may be on its way already.
    delegate_->fileOperationProgressWithOperation = nullptr;
  };
  EXPECT_EQ(consoleOf([this] {
              EXPECT_TRUE(start());
              EXPECT_TRUE(serveUntilItsEnd());
            }),
            "Failed to unschedule operation from run loop: 22\n");
}

}  // namespace
