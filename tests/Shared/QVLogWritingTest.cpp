#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Shared/QVLog.h"
#include "platform/Date.h"
#include "platform/Format.h"
#include "tests/support/GatedFile.h"
#include "tests/support/LogFixture.h"
#include "tests/support/WaitFor.h"

namespace {

using test::GatedFile;
using test::inBackground;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

class QVLogWritingTest : public test::LogFixture {
 protected:
  QVLogWritingTest() : log_(QVLog::sharedController()), gate_(std::make_shared<GatedFile>()) {}
  ~QVLogWritingTest() override { gate_->open(); }

  // Whether a call from a background thread returns while the file takes nothing.
  bool returnsAtOnce(const std::function<void()>& call) {
    useFile(gate_);
    std::atomic<bool> returned = false;
    std::thread caller([&] {
      call();
      returned = true;
    });
    EXPECT_TRUE(gate_->waitForAppend());
    const bool early =
        test::waitFor([&] { return returned.load(); }, std::chrono::milliseconds(100));
    gate_->open();
    caller.join();
    return early;
  }

  QVLog& log_;
  std::shared_ptr<GatedFile> gate_;
};

std::string repeated(std::string_view part, int times) {
  std::string text;
  while (times-- > 0) text += part;
  return text;
}

TEST_F(QVLogWritingTest, ALineIsTheDateTheTrimmedTextAndANewline) {
  gate_->open();
  useFile(gate_);
  QVLog::appendLog("  hello\n");
  QVLog::finishWriting();
  EXPECT_THAT(gate_->contents(),
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} "
                           "[+-][0-9]{4} - hello\n"));
  EXPECT_EQ(log_.bytesWritten(), gate_->contents().size());
  EXPECT_EQ(log_.bytesInQueue(), 0U);
}

TEST_F(QVLogWritingTest, NewlinesInsideAMessageAreKept) {
  gate_->open();
  useFile(gate_);
  QVLog::fastAppendLog("\none\n\ntwo\n");
  QVLog::finishWriting();
  EXPECT_THAT(gate_->contents(), EndsWith(" - one\n\ntwo\n"));
}

TEST_F(QVLogWritingTest, UnicodesWhiteSpaceIsTrimmedToo) {
  gate_->open();
  useFile(gate_);
  QVLog::fastAppendLog("\u2003\u00A0wide\u2028\u3000");
  QVLog::finishWriting();
  EXPECT_THAT(gate_->contents(), EndsWith(" - wide\n"));
}

TEST_F(QVLogWritingTest, ABlankMessageWritesNothingAndChangesNoCounter) {
  gate_->open();
  useFile(gate_);
  for (const char* blank : {"", " ", " \n\t \n", "\u3000\u2029"}) {
    QVLog::appendLog(blank);
    QVLog::fastAppendLog("%@", blank);
    log_.appendTextToLog(blank);
  }
  EXPECT_EQ(log_.bytesInQueue(), 0U);
  EXPECT_EQ(log_.writeQueue()->operationCount(), 0U);
  QVLog::finishWriting();
  EXPECT_EQ(log_.bytesWritten(), 0U);
  EXPECT_EQ(gate_->contents(), "");
}

TEST_F(QVLogWritingTest, AFormatOfNoneDoesNothing) {
  gate_->open();
  useFile(gate_);
  testing::internal::CaptureStdout();
  QVLog::appendLog(std::nullopt);
  QVLog::appendLogAndPrint(std::nullopt, "argument");
  QVLog::fastAppendLog(std::nullopt);
  QVLog::finishWriting();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(gate_->contents(), "");
}

TEST_F(QVLogWritingTest, ArgumentsAreFilledIn) {
  gate_->open();
  useFile(gate_);
  const std::optional<std::string> none;
  QVLog::appendLog("%@ of %i, %s", std::string("part"), 3, none);
  QVLog::finishWriting();
  EXPECT_THAT(gate_->contents(), EndsWith(" - part of 3, (null)\n"));
}

TEST_F(QVLogWritingTest, AFormatIsReadOnce) {
  gate_->open();
  useFile(gate_);
  QVLog::appendLog("%@", "50%d");
  QVLog::fastAppendLog("%@", "%%");
  QVLog::finishWriting();
  EXPECT_THAT(messagesIn(gate_->contents()), ElementsAre("50%d", "%%"));
}

TEST_F(QVLogWritingTest, WhatIsPrintedAsWellIsReadAsAFormatTwiceInTheLog) {
  gate_->open();
  useFile(gate_);
  testing::internal::CaptureStdout();
  QVLog::appendLogAndPrint(" %@\n", "50%d");
  QVLog::finishWriting();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "50%d\n");
  EXPECT_THAT(messagesIn(gate_->contents()), ElementsAre("500"));
}

TEST_F(QVLogWritingTest, ABlankMessageToBePrintedPrintsAnEmptyLine) {
  gate_->open();
  useFile(gate_);
  testing::internal::CaptureStdout();
  QVLog::appendLogAndPrint(" \n ");
  QVLog::finishWriting();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n");
  EXPECT_EQ(gate_->contents(), "");
}

TEST_F(QVLogWritingTest, AShortMessageFromTheBackgroundIsWrittenThrough) {
  EXPECT_FALSE(returnsAtOnce([] { QVLog::appendLog("%@", repeated("x", 99)); }));
  EXPECT_EQ(log_.bytesInQueue(), 0U);
}

TEST_F(QVLogWritingTest, AMessageOfOneHundredFromTheBackgroundReturnsAtOnce) {
  EXPECT_TRUE(returnsAtOnce([] { QVLog::appendLog("%@", repeated("x", 100)); }));
}

TEST_F(QVLogWritingTest, LengthsAreCountedInUtf16Units) {
  EXPECT_TRUE(returnsAtOnce([] { QVLog::appendLog("%@", repeated("😀", 50)); }));
}

TEST_F(QVLogWritingTest, FortyNineEmojiAreShort) {
  EXPECT_FALSE(returnsAtOnce([] { QVLog::appendLog("%@", repeated("😀", 49)); }));
}

TEST_F(QVLogWritingTest, NinetyNineLettersOfTwoBytesAreShort) {
  EXPECT_FALSE(returnsAtOnce([] { QVLog::appendLog("%@", repeated("ä", 99)); }));
}

TEST_F(QVLogWritingTest, TheUntrimmedMessageDecidesWhetherItIsShort) {
  EXPECT_TRUE(returnsAtOnce([] { QVLog::appendLog("%@", repeated("x", 98) + " \n"); }));
}

TEST_F(QVLogWritingTest, AnEmptyMessageWaitsForNothingThatIsPending) {
  EXPECT_TRUE(returnsAtOnce([] {
    QVLog::fastAppendLog("pending");
    QVLog::appendLog("");
  }));
}

TEST_F(QVLogWritingTest, ABlankMessageWaitsForWhatIsPending) {
  EXPECT_FALSE(returnsAtOnce([] {
    QVLog::fastAppendLog("pending");
    QVLog::appendLog(" ");
  }));
}

TEST_F(QVLogWritingTest, WithMorePendingAShortMessageReturnsAtOnce) {
  EXPECT_TRUE(returnsAtOnce([] {
    QVLog::fastAppendLog("%@", repeated("x", 60));
    QVLog::appendLog("%@", repeated("y", 40));
  }));
}

TEST_F(QVLogWritingTest, WithNinetyNinePendingAShortMessageIsWrittenThrough) {
  EXPECT_FALSE(returnsAtOnce([] {
    QVLog::fastAppendLog("%@", repeated("x", 60));
    QVLog::appendLog("%@", repeated("y", 39));
  }));
}

TEST_F(QVLogWritingTest, TheMainThreadNeverWaits) {
  useFile(gate_);
  QVLog::appendLog("short");
  testing::internal::CaptureStdout();
  QVLog::appendLogAndPrint("printed");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "printed\n");
  EXPECT_EQ(gate_->contents(), "");
  EXPECT_EQ(log_.bytesInQueue(), 12U);
}

TEST_F(QVLogWritingTest, TheFastFormNeverWaits) {
  EXPECT_TRUE(returnsAtOnce([] { QVLog::fastAppendLog("short"); }));
}

TEST_F(QVLogWritingTest, WhatIsPrintedAsWellFollowsTheSameRule) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(returnsAtOnce([] { QVLog::appendLogAndPrint("short"); }));
  testing::internal::GetCapturedStdout();
}

TEST_F(QVLogWritingTest, FinishWritingWaitsForTheDisk) {
  EXPECT_FALSE(returnsAtOnce([] {
    QVLog::fastAppendLog("text");
    QVLog::finishWriting();
  }));
}

TEST_F(QVLogWritingTest, UnitsArePendingUntilTheirTextIsWritten) {
  useFile(gate_);
  QVLog::fastAppendLog(" 😀ä \n");
  EXPECT_EQ(log_.bytesInQueue(), 3U);
  gate_->open();
  QVLog::finishWriting();
  EXPECT_EQ(log_.bytesInQueue(), 0U);
  EXPECT_EQ(log_.bytesWritten(), kDateLength + 3 + 6 + 1);
}

TEST_F(QVLogWritingTest, CallersThatStopWaitingBecauseOfAStuckCountGoOnLogging) {
  log_.setBytesInQueue(100);
  EXPECT_TRUE(returnsAtOnce([] { QVLog::appendLog("short"); }));
  QVLog::finishWriting();
  EXPECT_THAT(gate_->contents(), EndsWith(" - short\n"));
  EXPECT_EQ(log_.bytesInQueue(), 100U);
}

TEST_F(QVLogWritingTest, LinesCarryTheDateOfTheirWriting) {
  using std::chrono::system_clock;
  useFile(gate_);
  QVLog::fastAppendLog("first");
  ASSERT_TRUE(gate_->waitForAppend());
  QVLog::fastAppendLog("second");
  const std::string queued = platform::date::description(system_clock::now());
  ASSERT_TRUE(
      test::waitFor([&] { return platform::date::description(system_clock::now()) != queued; }));
  gate_->open();
  QVLog::finishWriting();
  const std::string contents = gate_->contents();
  const std::string second = contents.substr(contents.find('\n') + 1, kDateLength);
  EXPECT_GT(second, queued);
}

TEST_F(QVLogWritingTest, TheOrderOfTheCallsIsTheOrderOfTheLines) {
  gate_->open();
  useFile(gate_);
  for (int number = 0; number < 1000; ++number) QVLog::fastAppendLog("%i", number);
  QVLog::finishWriting();
  const auto messages = messagesIn(gate_->contents());
  ASSERT_EQ(messages.size(), 1000U);
  for (int number = 0; number < 1000; ++number) {
    EXPECT_EQ(messages[static_cast<std::size_t>(number)], std::to_string(number));
  }
}

TEST_F(QVLogWritingTest, ATextIsWrittenAsItIs) {
  gate_->open();
  useFile(gate_);
  log_.appendLogOnThread("100% \xFF");
  EXPECT_THAT(gate_->contents(), EndsWith(" - 100% \xFF\n"));
  QVLog::fastAppendLog("%@", std::string("a\0b", 3));
  QVLog::finishWriting();
  EXPECT_THAT(gate_->contents(), EndsWith(std::string(" - a\0b\n", 7)));
}

// A file that logs what it is given: the log's own thread then calls the log.
class LoggingFile : public GatedFile {
 public:
  Appended append(std::string_view bytes) override {
    if (!logged_.exchange(true)) {
      QVLog::appendLog("from the writer");
      QVLog::finishWriting();
    }
    return GatedFile::append(bytes);
  }

 private:
  std::atomic<bool> logged_ = false;
};

TEST_F(QVLogWritingTest, TheWriterNeverWaitsForItself) {
  const auto file = std::make_shared<LoggingFile>();
  file->open();
  useFile(file);
  inBackground([] { QVLog::appendLog("from a caller"); });
  QVLog::finishWriting();
  EXPECT_THAT(messagesIn(file->contents()), ElementsAre("from a caller", "from the writer"));
}

class QVLogRotationTest : public test::LogFixture {
 protected:
  QVLogRotationTest() {
    becomeOrdinaryUser();
    QVLog::createNewLog();
    QVLog::finishWriting();
  }

  static constexpr std::size_t kLimit = 500'000;
};

TEST_F(QVLogRotationTest, TheLineThatReachesTheLimitIsTheLastOfTheOldFile) {
  const std::size_t lineLength = kDateLength + 3 + 4 + 1;
  QVLog::sharedController().setBytesWritten(kLimit - lineLength);
  QVLog::fastAppendLog("last");
  QVLog::finishWriting();
  EXPECT_EQ(messages(2).back(), "last");
  const auto fresh = messages(1);
  EXPECT_THAT(fresh.front(), StartsWith("Log started: "));
  EXPECT_EQ(fresh.back(), "Log truncated at 500KB");
  EXPECT_EQ(fresh.size(), sizeof(void*) == 8 ? 5U : 4U);
  EXPECT_EQ(QVLog::sharedController().bytesWritten(), read(1).size());
  EXPECT_EQ(QVLog::sharedController().bytesInQueue(), 0U);
}

TEST_F(QVLogRotationTest, OneByteLessStartsNoNewFile) {
  const std::size_t lineLength = kDateLength + 3 + 4 + 1;
  QVLog::sharedController().setBytesWritten(kLimit - lineLength - 1);
  QVLog::fastAppendLog("last");
  QVLog::finishWriting();
  EXPECT_EQ(messages(1).back(), "last");
  EXPECT_EQ(QVLog::sharedController().bytesWritten(), kLimit - 1);
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre(file(1)));
}

TEST_F(QVLogRotationTest, OneHugeTextFillsOneFile) {
  const std::string huge = repeated("x", 1'000'000);
  QVLog::fastAppendLog("before");
  QVLog::fastAppendLog("%@", huge);
  QVLog::fastAppendLog("after");
  QVLog::finishWriting();
  EXPECT_EQ(messages(2).back(), huge);
  EXPECT_THAT(messages(2), Contains("before"));
  EXPECT_THAT(messages(1), AllOf(Contains("Log truncated at 500KB"), Contains("after")));
}

TEST_F(QVLogRotationTest, EveryFileOfARushEndsWithTheLineThatFilledIt) {
  constexpr int kTexts = 18'000;
  const std::string padding = repeated("x", 60);
  for (int number = 0; number < kTexts; ++number) QVLog::fastAppendLog("%06i%@", number, padding);
  QVLog::finishWriting();
  int expected = 0;
  for (int number = static_cast<int>(QVLog::availableLogs().size()); number >= 1; --number) {
    const std::string contents = read(number);
    if (number > 1) {
      EXPECT_GE(contents.size(), kLimit);
      EXPECT_LT(contents.size(), kLimit + kDateLength + 3 + 66 + 1);
    }
    for (const std::string& message : messagesIn(contents)) {
      if (!message.ends_with(padding)) continue;
      EXPECT_EQ(message, platform::formatted("%06i%@", expected, padding));
      ++expected;
    }
  }
  EXPECT_EQ(expected, kTexts);
  EXPECT_EQ(QVLog::availableLogs().size(), 4U);
}

TEST_F(QVLogRotationTest, NothingIsLostFromManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kTexts = 4000;
  std::vector<std::thread> callers;
  for (int caller = 0; caller < kThreads; ++caller) {
    callers.emplace_back([caller] {
      const std::string padding = repeated("y", 60);
      for (int number = 0; number < kTexts; ++number) {
        if (number % 100 == 0) {
          QVLog::appendLog("%i:%i:", caller, number);
        } else {
          QVLog::fastAppendLog("%i:%i:%@", caller, number, padding);
        }
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  QVLog::finishWriting();
  std::array<int, kThreads> next{};
  for (int number = 5; number >= 1; --number) {
    for (const std::string& message : messages(number)) {
      if (message.size() < 2 || message[1] != ':') continue;
      const auto caller = static_cast<std::size_t>(message[0] - '0');
      ASSERT_LT(caller, next.size());
      EXPECT_THAT(message, StartsWith(platform::formatted("%i:%i:", caller, next[caller]++)));
    }
  }
  EXPECT_THAT(next, testing::Each(kTexts));
  EXPECT_EQ(QVLog::sharedController().bytesInQueue(), 0U);
}

TEST_F(QVLogRotationTest, ARemovedFolderIsMadeAgainWithTheNextFile) {
  std::filesystem::remove_all(folder());
  QVLog::fastAppendLog("into the file that is still open");
  QVLog::finishWriting();
  EXPECT_FALSE(std::filesystem::exists(folder()));
  QVLog::sharedController().setBytesWritten(kLimit);
  QVLog::fastAppendLog("the last");
  QVLog::finishWriting();
  EXPECT_EQ(messages(1).back(), "Log truncated at 500KB");
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre(file(1)));
}

TEST_F(QVLogRotationTest, NewLogsMayBeStartedWhileTheWriterStartsOne) {
  std::thread writer([] {
    const std::string text = repeated("z", 20'000);
    for (int i = 0; i < 200; ++i) QVLog::fastAppendLog("%@", text);
  });
  testing::internal::CaptureStdout();
  for (int i = 0; i < 20; ++i) QVLog::createNewLog();
  writer.join();
  QVLog::finishWriting();
  testing::internal::GetCapturedStdout();  // the two may be in each other's way, and say so
  QVLog::createNewLog();
  QVLog::fastAppendLog("still there");
  QVLog::finishWriting();
  EXPECT_EQ(messages(1).back(), "still there");
}

// A log that was begun while the writer was opening the old one's file again.
TEST_F(QVLogWritingTest, AFileThatWasReopenedTooLateIsNotStored) {
  QVLog& log = QVLog::sharedController();
  const auto stale = std::make_shared<test::GatedFile>();
  const auto begun = std::make_shared<test::GatedFile>();
  log.setFileHandle(nullptr);
  const std::uint64_t generation = log.handleGeneration();
  log.setFileHandle(begun);
  log.setReopenedHandle(stale, generation);
  EXPECT_EQ(log.fileHandle(), begun);

  log.setFileHandle(nullptr);
  log.setReopenedHandle(stale, log.handleGeneration());
  EXPECT_EQ(log.fileHandle(), stale);
}

}  // namespace
