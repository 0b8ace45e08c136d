#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Polkit.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WaylandServer.h"
#include "tests/support/XServer.h"

// Whole updates by the built application where its surroundings fail it: its home, its display,
// what belongs to somebody else.
namespace {

namespace fs = std::filesystem;
using test::Sandbox;
using test::UpdateMachine;
using test::waitFor;
using testing::HasSubstr;

constexpr char kWindowTitle[] = "Quorvale Software Update";

class SurroundingsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace(UpdateMachine::Pauses::quick);
    machine().makeBundle(machine().source(), "2.0");
    machine().makeBundle(machine().destination(), "1.0");
  }

  UpdateMachine& machine() { return *machine_; }

  std::vector<std::string> arguments(const std::string& silent) {
    return {"-source", machine().source(), "-destination", machine().destination(), "-silent",
            silent};
  }

  // A whole update whose window's display dies.
  template <class Display>
  void updateUnderDying(Display& display) {
    machine().start(arguments("NO"));
    ASSERT_TRUE(display.waitForWindow(kWindowTitle));
    display.kill();
    EXPECT_EQ(machine().waitForEnd(), 0);
    EXPECT_THAT(machine().messages(),
                testing::IsSupersetOf({"File copy successful.", "Terminating self..."}));
    EXPECT_TRUE(
        waitFor([&] { return UpdateMachine::versionOf(machine().destination()) == "2.0"; }));
  }

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_F(SurroundingsTest, WithAHomeThatCannotBeWrittenTheLogIsPrintedAndTheRunGoesOn) {
  machine().runAs(Sandbox::kConsoleUser);
  const std::string home = machine().sandbox().homeOf(Sandbox::kConsoleUser);
  ASSERT_EQ(::chown(home.c_str(), 0, 0), 0);
  EXPECT_EQ(machine().run(arguments("YES")), 0);
  EXPECT_THAT(machine().output(),
              testing::AllOf(HasSubstr("information: Auth trashing old application...\n"),
                             HasSubstr("information: Terminating self...\n")));
  EXPECT_EQ(UpdateMachine::versionOf(machine().destination()), "1.0");
}

TEST_F(SurroundingsTest, AMountOfSomebodyElseStaysWhereItIs) {
  fs::remove_all(machine().mountPoint());
  machine().attachDiskImage();
  machine().runWithRightsHandedDownTo(Sandbox::kConsoleUser);
  const test::Polkit polkit(machine().sandbox(), test::Polkit::Without::bus);
  std::vector<std::string> words = arguments("YES");
  words.insert(words.end(), {"-mountpath", machine().mountPoint()});
  EXPECT_EQ(machine().run(words), 0);
  EXPECT_THAT(machine().messages(), testing::Contains("Cleaning up..."));
  EXPECT_TRUE(waitFor([] { return UpdateMachine::programsThatRun().empty(); }));
  EXPECT_TRUE(machine().diskImageIsAttached());
  EXPECT_EQ(UpdateMachine::versionOf(machine().destination()), "2.0");
}

TEST_F(SurroundingsTest, ADisplayThatDiesUnderTheStatusWindowEndsNoUpdate) {
  if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
  test::XServer display;
  updateUnderDying(display);
}

TEST_F(SurroundingsTest, AWaylandCompositorThatDiesUnderTheStatusWindowEndsNoUpdate) {
  if (!test::WaylandServer::isAvailable()) GTEST_SKIP() << test::WaylandServer::kNeeds;
  test::WaylandServer display(machine().sandbox());
  updateUnderDying(display);
}

TEST_F(SurroundingsTest, AnAlertWhoseDisplayDiesIsPrintedAndKeepsNobodyWaiting) {
  if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
  fs::remove_all(machine().source());
  test::XServer display(test::XServer::WindowManager::openbox);
  machine().start(arguments("NO"));
  ASSERT_TRUE(waitFor([&] {
    return test::readFile(machine().log()).find("Source file does not exist") != std::string::npos;
  }));
  ASSERT_TRUE(display.waitForWindow(kWindowTitle));
  display.kill();
  EXPECT_EQ(machine().waitForEnd(), 0);
  EXPECT_THAT(machine().output(), HasSubstr("Source file does not exist."));
  EXPECT_EQ(machine().messages().back(), "Terminating self...");
}

}  // namespace
