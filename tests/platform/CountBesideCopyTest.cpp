#include "platform/linux/files/CountBesideCopy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/Sandbox.h"
#include "tests/support/ThreadLimit.h"
#include "tests/support/WaitFor.h"

namespace platform {
namespace {

using test::Sandbox;
using test::waitFor;
using Clock = CountBesideCopy::Clock;

class CountBesideCopyTest : public testing::Test {
 protected:
  // The folder, two files of which one has two names, and a link to the folder.
  void makeTree() {
    const std::string file = sandbox_.makeFile("tree/file", "12345");
    sandbox_.makeFile("tree/folder/other", "1234567");
    std::filesystem::create_hard_link(file, sandbox_.path("tree/name"));
    std::filesystem::create_directory_symlink(sandbox_.path("tree"), sandbox_.path("tree/link"));
    tree_ = locate(sandbox_.path("tree"));
  }
  void make(Clock::time_point begin) {
    count_.emplace(
        tree_, begin,
        [this](const CopyTotals&) {
          ++questions_;
          return true;
        },
        [this](const CopyTotals& totals) {
          totals_ = totals;
          ++results_;
        });
  }

  Sandbox sandbox_;
  Location tree_;
  std::atomic<int> questions_ = 0;
  std::atomic<int> results_ = 0;
  CopyTotals totals_;
  std::optional<CountBesideCopy> count_;
};

TEST_F(CountBesideCopyTest, NothingIsCountedBeforeItsTime) {
  makeTree();
  make(Clock::now() + std::chrono::hours(1));
  for (int i = 0; i < 10; ++i) count_->beginIfDue();
  count_.reset();
  EXPECT_EQ(questions_, 0);
  EXPECT_EQ(results_, 0);
}

TEST_F(CountBesideCopyTest, FromThenOnTheItemIsCountedOnce) {
  makeTree();
  make(Clock::now());
  for (int i = 0; i < 10; ++i) count_->beginIfDue();
  EXPECT_TRUE(waitFor([this] { return results_ > 0; }));
  count_->beginIfDue();
  count_.reset();
  EXPECT_EQ(results_, 1);
  EXPECT_EQ(totals_.items, 6U);
  EXPECT_EQ(totals_.bytes, 17U) << "each name of the file, and not what the link leads to";
}

TEST_F(CountBesideCopyTest, ItsEndCutsTheCountingShort) {
  for (int i = 0; i < 2000; ++i) sandbox_.makeFile("tree/" + std::to_string(i), "");
  tree_ = locate(sandbox_.path("tree"));
  std::atomic<bool> ending = false;
  count_.emplace(
      tree_, Clock::now(),
      [&](const CopyTotals&) {
        ++questions_;
        return waitFor([&] { return ending.load(); });
      },
      [this](const CopyTotals&) { ++results_; });
  count_->beginIfDue();
  EXPECT_TRUE(waitFor([this] { return questions_ > 0; }));
  std::thread release([&] { ending = true; });
  count_.reset();
  release.join();
  EXPECT_LT(questions_, 2001);
  EXPECT_EQ(results_, 0);
}

TEST_F(CountBesideCopyTest, WithoutAThreadTheOneThatBeginsCounts) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  makeTree();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  make(Clock::now());
  const test::ThreadLimit limit;
  ASSERT_TRUE(limit.isSet());
  count_->beginIfDue();
  EXPECT_EQ(results_, 1);
  EXPECT_EQ(totals_.items, 6U);
}

}  // namespace
}  // namespace platform
