#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/FileOperationFixture.h"
#include "tests/support/SlowFiles.h"
#include "tests/support/WaitFor.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::Sandbox;
using test::serveUntil;
using test::SlowFiles;
using test::waitFor;
using testing::ElementsAre;
using testing::Optional;
using testing::StartsWith;

class FileOperationProgressTest : public test::FileOperationFixture {
 protected:
  static void expectGrowth(const Report& before, const Report& after) {
    for (const char* key : {FileOperation::kTotalBytes, FileOperation::kBytesComplete,
                            FileOperation::kTotalObjects, FileOperation::kObjectsComplete}) {
      EXPECT_LE(number(before, key), number(after, key)) << key;
    }
  }

  static void expectSound(const Report& report) {
    EXPECT_EQ(number(report, FileOperation::kTotalBytes),
              number(report, FileOperation::kBytesComplete) +
                  number(report, FileOperation::kBytesRemaining));
    EXPECT_EQ(number(report, FileOperation::kTotalObjects),
              number(report, FileOperation::kObjectsComplete) +
                  number(report, FileOperation::kObjectsRemaining));
    EXPECT_GE(number(report, FileOperation::kBytesRemaining), 0);
    EXPECT_GE(number(report, FileOperation::kObjectsRemaining), 0);
    EXPECT_GE(number(report, FileOperation::kThroughput), 0);
  }
  void expectSoundAndGrowing() const {
    const auto& reports = recorder_->reports;
    for (std::size_t i = 0; i < reports.size(); ++i) {
      expectSound(reports[i]);
      if (i > 0) expectGrowth(reports[i - 1], reports[i]);
    }
  }
};

TEST_F(FileOperationProgressTest, ACopyThatIsOverBeforeAReportIsDueIsReportedOnceAsCopied) {
  makeFiles(10);
  std::filesystem::create_directory_symlink("/", tree() + "/link");
  started(std::chrono::hours(1));
  EXPECT_TRUE(serveUntilTheEnd());
  ASSERT_EQ(recorder_->reports.size(), 2U);
  EXPECT_EQ(recorder_->reports[0].stage, Stage::running);
  EXPECT_EQ(recorder_->reports[1].stage, Stage::complete);
  for (const Report& report : recorder_->reports) {
    EXPECT_EQ(number(report, FileOperation::kTotalBytes), 50);
    EXPECT_EQ(number(report, FileOperation::kBytesComplete), 50);
    EXPECT_EQ(number(report, FileOperation::kTotalObjects), 12) << "the folder, ten files, a link";
    EXPECT_EQ(number(report, FileOperation::kObjectsComplete), 12);
  }
}

TEST_F(FileOperationProgressTest, ACopyThatFailsBeforeAReportIsDueHasOnlyEnded) {
  started(tree() + "/missing", to(), "copy");
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->reports.size(), 1U);
}

TEST_F(FileOperationProgressTest, TheTotalsAreKnownWhenItIsReportedAsRunning) {
  if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  makeFiles(100);
  std::filesystem::create_hard_link(tree() + "/1", tree() + "/other");
  const SlowFiles slow(tree(), milliseconds(2));
  started(milliseconds(20));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_GT(recorder_->reports.size(), 2U);
  for (const Report& report : recorder_->reports) {
    if (report.stage == Stage::preflighting) continue;
    EXPECT_EQ(number(report, FileOperation::kTotalBytes), 505);
    EXPECT_EQ(number(report, FileOperation::kTotalObjects), 102);
  }
}

TEST_F(FileOperationProgressTest, CountersGrowAndEndAtTheirTotals) {
  makeFiles(3000);
  sandbox_.makeFile("tree/large", std::string(kLarge, 'x'));
  started(std::chrono::seconds(0));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_GT(recorder_->reports.size(), 3U);
  expectSoundAndGrowing();
  for (const Report& report : recorder_->reports) {
    EXPECT_THAT(*report.status.at(FileOperation::kCurrentItem).get<std::string>(),
                StartsWith(tree()));
  }
  EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kBytesComplete),
            static_cast<std::int64_t>(kLarge) + 15000);
  EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kBytesRemaining), 0);
  EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kObjectsRemaining), 0);
}

TEST_F(FileOperationProgressTest, ReportsKeepTheirDistance) {
  if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  makeFiles(200);
  const SlowFiles slow(tree(), milliseconds(5));
  started(milliseconds(200));
  EXPECT_TRUE(serveUntilTheEnd());
  const auto& times = recorder_->times;
  EXPECT_GE(times.size(), 4U);
  for (std::size_t i = 1; i + 1 < times.size(); ++i) {
    EXPECT_GE(times[i] - times[i - 1], milliseconds(199)) << i;
  }
  // The distance lies between reports of progress, not before the end.
  EXPECT_EQ(recorder_->ends, 1);
}

TEST_F(FileOperationProgressTest, ALongPreflightIsReportedWithWhatItHasFound) {
  if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  for (int i = 0; i < 60; ++i) sandbox_.makeFile("tree/" + std::to_string(i) + "/file", "12345");
  {
    const SlowFiles slow(tree(), milliseconds(5), SlowFiles::Folders::slow);
    started(milliseconds(50));
    EXPECT_TRUE(serveUntil([&] { return recorder_->reports.size() >= 3; }));
  }
  EXPECT_TRUE(serveUntilTheEnd());
  const auto& reports = recorder_->reports;
  EXPECT_EQ(reports[0].stage, Stage::preflighting);
  EXPECT_EQ(reports[1].stage, Stage::preflighting);
  EXPECT_LT(number(reports[0], FileOperation::kTotalObjects),
            number(reports[1], FileOperation::kTotalObjects));
  EXPECT_LT(number(reports[1], FileOperation::kTotalObjects), 121);
  EXPECT_EQ(number(reports.back(), FileOperation::kTotalObjects), 121);
}

TEST_F(FileOperationProgressTest, AMainThreadThatWasBusyIsGivenOneReportThatIsTrueThen) {
  makeFiles(3000);
  started(milliseconds(1));
  EXPECT_TRUE(waitFor([&] { return platform::file_system::exists(copy()); }));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->reports.size(), 2U);
  EXPECT_EQ(number(recorder_->reports[0], FileOperation::kObjectsRemaining), 0);
}

TEST_F(FileOperationProgressTest, HolesCountAsWhatTheyReadAs) {
  constexpr off_t kTebibyte = off_t{1} << 40;
  const std::string file = sandbox_.makeFile("tree/holes", "begin");
  ASSERT_EQ(::truncate(file.c_str(), kTebibyte), 0);
  const auto start = steady_clock::now();
  started(std::chrono::seconds(0));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(recorder_->resultCode(), 0);
  expectSoundAndGrowing();
  EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kTotalBytes), kTebibyte);
  EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kBytesComplete), kTebibyte);
  struct stat status {};
  ASSERT_EQ(::stat((copy() + "/holes").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, kTebibyte);
  EXPECT_LT(status.st_blocks, 1000);
}

TEST_F(FileOperationProgressTest, EachNameOfALinkedFileCountsAsAFile) {
  const std::string file = sandbox_.makeFile("tree/file", "12345");
  std::filesystem::create_hard_link(file, tree() + "/other");
  std::filesystem::create_hard_link(file, tree() + "/third");
  started();
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(number(recorder_->reports.back(), FileOperation::kBytesComplete), 15);
}

TEST_F(FileOperationProgressTest, ASourceThatGrowsRaisesTheTotal) {
  if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  makeFiles(100);
  const SlowFiles slow(tree(), milliseconds(2));
  std::int64_t counted = 0;
  recorder_->reaction = [&](const Operation&, const Report& report) {
    if (report.stage != Stage::running || counted > 0) return;
    counted = number(report, FileOperation::kTotalBytes);
    for (int i = 0; i < 100; ++i) {
      ASSERT_EQ(::truncate((tree() + "/" + std::to_string(i)).c_str(), 1000), 0);
    }
  };
  started(milliseconds(10));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->resultCode(), 0);
  expectSoundAndGrowing();
  EXPECT_EQ(counted, 500);
  EXPECT_GT(number(recorder_->reports.back(), FileOperation::kTotalBytes), 500);
}

TEST_F(FileOperationProgressTest, TwoCopiesRunAtOnceAndReportForThemselves) {
  makeFiles(500);
  started();
  const auto first = recorder_;
  startAnew();
  started(tree(), to(), "second");
  EXPECT_TRUE(serveUntil([&] { return first->ends > 0 && recorder_->ends > 0; }));
  for (const auto& recorder : {first, recorder_}) {
    EXPECT_EQ(recorder->ends, 1);
    EXPECT_EQ(recorder->resultCode(), 0);
    EXPECT_EQ(number(recorder->reports.back(), FileOperation::kObjectsComplete), 501);
  }
  EXPECT_THAT(target(), Optional(ElementsAre("copy", "second")));
}

}  // namespace
