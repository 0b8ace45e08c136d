#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Shared/QVLog.h"
#include "platform/Exception.h"
#include "tests/support/GatedFile.h"
#include "tests/support/LogFixture.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;

class QVLogFailureTest : public test::LogFixture {
 protected:
  QVLogFailureTest() : log_(QVLog::sharedController()) {}

  // What is printed while the texts are written.
  static std::string printedFor(std::initializer_list<const char*> texts) {
    testing::internal::CaptureStdout();
    for (const char* text : texts) QVLog::fastAppendLog("%@", text);
    QVLog::finishWriting();
    return testing::internal::GetCapturedStdout();
  }

  QVLog& log_;
};

TEST_F(QVLogFailureTest, WithoutALogTheTextIsPrintedAndCountsNoLonger) {
  becomeOrdinaryUser();
  EXPECT_EQ(printedFor({"one"}),
            "Unable to log the following information: one\nUnable to open log for output\n");
  EXPECT_EQ(log_.bytesInQueue(), 0U);
  EXPECT_EQ(log_.bytesWritten(), 0U);
  EXPECT_FALSE(fs::exists(folder())) << "only an existing file is opened";
}

TEST_F(QVLogFailureTest, EveryTextIsTriedAnew) {
  becomeOrdinaryUser();
  EXPECT_THAT(printedFor({"one"}), EndsWith("Unable to open log for output\n"));
  fs::create_directories(folder());
  std::ofstream(file(1)) << "already here\n";
  EXPECT_EQ(printedFor({"two"}), "");
  EXPECT_EQ(read(1).substr(0, 13), "already here\n");
  EXPECT_THAT(read(1), EndsWith(" - two\n"));
  EXPECT_NE(log_.fileHandle(), nullptr);
}

TEST_F(QVLogFailureTest, AFileWithoutAHandleIsOpenedAgainAtItsEnd) {
  becomeOrdinaryUser();
  QVLog::createNewLog();
  QVLog::finishWriting();
  const auto before = messages(1);
  log_.setFileHandle(nullptr);
  EXPECT_EQ(printedFor({"again"}), "");
  EXPECT_EQ(messages(1).size(), before.size() + 1);
  EXPECT_EQ(messages(1).back(), "again");
}

TEST_F(QVLogFailureTest, AReadOnlyHomeLosesTextsOnly) {
  becomeOrdinaryUser();
  fs::permissions(sandbox_.home(), fs::perms::owner_read | fs::perms::owner_exec);
  testing::internal::CaptureStdout();
  QVLog::createNewLog();
  QVLog::appendLog("lost");
  QVLog::finishWriting();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Unable to create folder " + folder() +
                ".\nUnable to log the following information: lost\n"
                "Unable to open log for output\n");
}

TEST_F(QVLogFailureTest, AClosedHandleIsPrintedForEveryTextAndCountsStick) {
  becomeOrdinaryUser();
  QVLog::createNewLog();
  QVLog::finishWriting();
  const std::uint64_t written = log_.bytesWritten();
  log_.fileHandle()->close();
  EXPECT_EQ(printedFor({"one", "two"}),
            "Exception writing to log: Bad file descriptor\n"
            "Exception writing to log: Bad file descriptor\n");
  EXPECT_EQ(log_.bytesInQueue(), 6U);
  EXPECT_EQ(log_.bytesWritten(), written);
}

TEST_F(QVLogFailureTest, StuckCountsLetCallersGoOnWithoutWaiting) {
  becomeOrdinaryUser();
  QVLog::createNewLog();
  QVLog::finishWriting();
  log_.fileHandle()->close();
  printedFor({std::string(100, 'x').c_str()});
  EXPECT_EQ(log_.bytesInQueue(), 100U);
  const auto gate = std::make_shared<test::GatedFile>();
  useFile(gate);
  test::inBackground([] { QVLog::appendLog("short"); });
  EXPECT_EQ(gate->contents(), "");
  gate->open();
  QVLog::finishWriting();
  EXPECT_EQ(log_.bytesInQueue(), 100U);
}

// A handle of the caller's own that raises.
class RaisingFile : public platform::AppendingFile {
 public:
  Appended append(std::string_view) override {
    throw platform::Exception("NSFileHandleOperationException", "no such luck");
  }
  void close() override {}
};

TEST_F(QVLogFailureTest, AHandleThatRaisesIsPrintedForEveryText) {
  useFile(std::make_shared<RaisingFile>());
  EXPECT_EQ(printedFor({"one", "two"}),
            "Exception writing to log: no such luck\n"
            "Exception writing to log: no such luck\n");
  EXPECT_EQ(log_.bytesInQueue(), 6U);
}

// Takes so many bytes, fails once, and takes everything again.
class StumblingFile : public test::GatedFile {
 public:
  explicit StumblingFile(std::size_t bytes) : left_(bytes) { open(); }

  Appended append(std::string_view bytes) override {
    if (stumbled_ || bytes.size() <= left_) {
      if (!stumbled_) left_ -= bytes.size();
      return GatedFile::append(bytes);
    }
    stumbled_ = true;
    GatedFile::append(bytes.substr(0, left_));
    return {left_, platform::Status::failure(28, "No space left on device")};
  }

 private:
  std::size_t left_;
  bool stumbled_ = false;
};

TEST_F(QVLogFailureTest, OneFailureInTheMiddleLosesOneText) {
  const std::size_t line = kDateLength + 3 + 4 + 1;
  const auto file = std::make_shared<StumblingFile>(2 * line + 5);
  useFile(file);
  EXPECT_EQ(printedFor({"aaaa", "bbbb", "cccc", "dddd", "eeee"}),
            "Exception writing to log: No space left on device\n");
  const std::string contents = file->contents();
  EXPECT_EQ(contents.size(), 4 * line + 5) << "the part of the third that fitted stays";
  EXPECT_THAT(messagesIn(contents.substr(0, 2 * line)), ElementsAre("aaaa", "bbbb"));
  EXPECT_THAT(messagesIn(contents.substr(2 * line + 5)), ElementsAre("dddd", "eeee"));
  EXPECT_EQ(log_.bytesInQueue(), 4U);
  EXPECT_EQ(log_.bytesWritten(), 4 * line);
}

TEST_F(QVLogFailureTest, AFailureAtTheVeryBeginningLosesOneText) {
  const auto file = std::make_shared<StumblingFile>(0);
  useFile(file);
  EXPECT_EQ(printedFor({"aaaa", "bbbb"}), "Exception writing to log: No space left on device\n");
  EXPECT_THAT(messagesIn(file->contents()), ElementsAre("bbbb"));
}

TEST_F(QVLogFailureTest, AFullDiskIsPrintedAndLogsAgainWhenThereIsRoom) {
  if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string library = sandbox_.mountTmpfs("home/anna/Library", 1 << 17);
  fs::permissions(library, fs::perms::all);
  sandbox_.becomeUser(test::Sandbox::kConsoleUser);
  QVLog::createNewLog();
  QVLog::finishWriting();
  std::ofstream(library + "/ballast") << std::string(1 << 20, 'b');

  const std::string text(3000, 'x');
  testing::internal::CaptureStdout();
  for (int i = 0; i < 4; ++i) QVLog::fastAppendLog("%@", text);
  QVLog::finishWriting();
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              EndsWith("Exception writing to log: No space left on device\n"));
  EXPECT_GE(log_.bytesInQueue(), 2 * text.size());

  fs::remove(library + "/ballast");
  EXPECT_EQ(printedFor({"room again"}), "");
  EXPECT_THAT(read(1), EndsWith(" - room again\n"));
}

TEST_F(QVLogFailureTest, WithLoggingDisabledNothingIsPrintedOrWrittenWhateverFails) {
  const auto file = std::make_shared<test::GatedFile>();
  file->open();
  useFile(file);
  log_.setLoggingDisabled(true);
  EXPECT_EQ(printedFor({"one", "two"}), "");
  EXPECT_EQ(file->contents(), "");
  EXPECT_EQ(log_.bytesInQueue(), 6U) << "these counts stay";
  log_.setFileHandle(std::make_shared<RaisingFile>());
  EXPECT_EQ(printedFor({"three"}), "");
  log_.setFileHandle(nullptr);
  EXPECT_EQ(printedFor({"four"}), "");
}

// Raises, and logging is disabled by then.
class DisablingFile : public RaisingFile {
 public:
  Appended append(std::string_view bytes) override {
    QVLog::sharedController().setLoggingDisabled(true);
    return RaisingFile::append(bytes);
  }
};

TEST_F(QVLogFailureTest, AFailureUnderWayWhenLoggingIsDisabledIsNotPrinted) {
  useFile(std::make_shared<DisablingFile>());
  EXPECT_EQ(printedFor({"one"}), "");
}

TEST_F(QVLogFailureTest, AClosedStandardOutputIsNoFailure) {
  becomeOrdinaryUser();
  const int saved = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100);
  ::close(STDOUT_FILENO);
  QVLog::appendLog("no log yet");
  QVLog::finishWriting();
  QVLog::createNewLog();
  QVLog::appendLogAndPrint("logged all the same");
  QVLog::finishWriting();
  ::dup2(saved, STDOUT_FILENO);
  EXPECT_EQ(messages(1).back(), "logged all the same");
  EXPECT_EQ(read(1).find("no log yet"), std::string::npos);
}

}  // namespace
