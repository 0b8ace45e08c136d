#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <any>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Shared/QVLog.h"
#include "Shared/QVTaskEx.h"
#include "platform/Exception.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

// When a run hands its task out, what it gives its program, and when it lets go of its output.
namespace {

using platform::Data;
using platform::Task;
using testing::HasSubstr;
using Words = std::vector<std::string>;

// Passes the test for what is runnable, and cannot be launched.
constexpr char kFolder[] = "/tmp";

class QVTaskExOrderTest : public testing::Test {
 protected:
  void SetUp() override {
    if (test::Sandbox::canSimulateMachine()) {
      sandbox_.simulateMachine();
      sandbox_.becomeUser(test::Sandbox::kConsoleUser);
    }
    QVLog::createNewLog("TaskTest");
  }

  std::string makeProgram(const std::string& text) const {
    const std::string path = sandbox_.home() + "/program";
    std::ofstream(path) << "#!/bin/sh\n" << text;
    std::filesystem::permissions(path, std::filesystem::perms::all);
    return path;
  }

  test::Sandbox sandbox_;
};

TEST_F(QVTaskExOrderTest, TheTaskWhoseExitStatusIsAskedForIsHandedOutBeforeItIsLaunched) {
  std::shared_ptr<Task> task;
  EXPECT_THROW(QVTaskEx::terminationCodeFromTask(kFolder, std::nullopt, &task),
               platform::Exception);
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(task->launchPath(), kFolder);
}

TEST_F(QVTaskExOrderTest, TheTaskWhoseOutputIsCapturedIsHandedOutBeforeItIsLaunched) {
  std::shared_ptr<Task> task;
  EXPECT_EQ(QVTaskEx::dataFromTask(kFolder, std::nullopt, &task), std::nullopt);
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(task->launchPath(), kFolder);
}

TEST_F(QVTaskExOrderTest, ACaptureUnderATimeoutInheritsTheEnvironment) {
  const auto text = QVTaskEx::stringFromTask(QV_TEST_PROGRAMS "/TaskProbe", Words{"environment"},
                                             QVTaskEx::Seconds(60));
  EXPECT_THAT(text, testing::Optional(HasSubstr("HOME=" + sandbox_.home() + "\n")));
}

class Deaf {
 public:
  void take(const Data&, QVTaskEx&, const std::any&) {}
};

// A program that cannot be terminated learns from the closed pipe that nobody reads it any more.
TEST_F(QVTaskExOrderTest, TerminationClosesTheReadingEndOfTheOutput) {
  const std::string started = sandbox_.home() + "/started";
  const std::string unread = sandbox_.home() + "/unread";
  const std::string program = makeProgram(
      "trap '' TERM PIPE\n"
      "while echo word && [ -d '" +
      sandbox_.home() + "' ]; do : >'" + started + "'; sleep 0.01; done\n: >'" + unread + "'\n");
  const auto instance = QVTaskEx::create();
  instance->asyncDataFromTask(program, std::nullopt, std::make_shared<Deaf>(), &Deaf::take, {});
  ASSERT_TRUE(test::waitFor([&] { return std::filesystem::exists(started); }));
  EXPECT_FALSE(std::filesystem::exists(unread));
  instance->terminateAsyncTask();
  EXPECT_TRUE(
      test::waitFor([&] { return std::filesystem::exists(unread); }, std::chrono::seconds(5)));
}

}  // namespace
