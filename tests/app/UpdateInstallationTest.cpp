#include "app/UpdateInstallation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Shared/QVLog.h"
#include "app/UpdateDisplay.h"
#include "platform/MainThread.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// The installation without the frame around it, with pauses that pass quickly: what it shows, and
// when.
namespace {

using test::Sandbox;
using test::UpdateMachine;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> loggedMessages() {
  QVLog::finishWriting();
  return UpdateMachine::withoutHeader(
      UpdateMachine::messagesOf(UpdateMachine::logPath("UpdateInstallationTest")));
}

// Notes what it is to show and what the log's last line is by then.
class NotingDisplay : public UpdateDisplay {
 public:
  void updateStatusText(const std::string& text) override { note(text); }
  void hideMainWindow() override { note("no window"); }

  const std::vector<std::string>& notes() const { return notes_; }

 private:
  void note(const std::string& what) {
    EXPECT_TRUE(platform::main_thread::isCurrent());
    notes_.push_back(what + " after " + loggedMessages().back());
  }

  std::vector<std::string> notes_;
};

class UpdateInstallationTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace();
    destination_ = machine().destination();
  }

  UpdateMachine& machine() { return *machine_; }

  void install(bool silent) {
    QVLog::createNewLog();
    test::besideMainLoop([&] {
      UpdateInstallation(display_, {.source = machine().source(),
                                    .destination = destination_,
                                    .mountPath = std::nullopt,
                                    .silent = silent})
          .run();
    });
  }

  NotingDisplay display_;
  std::string destination_;

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_F(UpdateInstallationTest, ShowsThatItRelaunchesBeforeItSaysSoAndHidesTheWindowAfterwards) {
  machine().makeBundle(machine().source(), "2.0");
  machine().makeBundle(machine().destination(), "1.0");
  install(false);
  EXPECT_THAT(display_.notes(), ElementsAre("Relaunching... after Preparing to copy files...",
                                            "no window after Launching app..."));
}

TEST_F(UpdateInstallationTest, ASilentOneShowsNothing) {
  machine().makeBundle(machine().source(), "2.0");
  machine().makeBundle(machine().destination(), "1.0");
  install(true);
  EXPECT_EQ(loggedMessages().back(), "File copy successful.");
  EXPECT_THAT(display_.notes(), IsEmpty());
}

TEST_F(UpdateInstallationTest, TheNewBundleKeepsItsNameWhereTheOldOneHadAnother) {
  machine().makeBundle(machine().source(), "2.0");
  const std::string folder = std::filesystem::path(machine().destination()).parent_path();
  destination_ = folder + "/Old.app";
  machine().makeBundle(destination_, "1.0");
  install(true);
  EXPECT_TRUE(
      test::waitFor([this] { return UpdateMachine::versionOf(machine().destination()) == "2.0"; }));
  EXPECT_FALSE(std::filesystem::exists(destination_));
}

TEST_F(UpdateInstallationTest, OneThatFailsShowsNothing) {
  machine().makeBundle(machine().destination(), "1.0");
  install(true);
  EXPECT_EQ(loggedMessages().back(), "Source file does not exist");
  EXPECT_THAT(display_.notes(), IsEmpty());
  EXPECT_EQ(UpdateMachine::versionOf(machine().destination()), "1.0");
}

}  // namespace
