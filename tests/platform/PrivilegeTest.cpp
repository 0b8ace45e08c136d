#include "platform/Privilege.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>

#include "tests/support/Polkit.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using platform::privilege::Credentials;
using platform::privilege::Outcome;
using platform::privilege::Output;
using platform::privilege::Session;
using test::passesAs;
using test::Polkit;
using test::Sandbox;
using test::waitFor;

constexpr char kUser[] = "anna";

std::string readAll(platform::privilege::ToolOutput& output) {
  std::string text;
  std::array<std::byte, 256> buffer{};
  for (std::size_t size = 0; (size = output.read(buffer)) > 0;) {
    text.append(reinterpret_cast<const char*>(buffer.data()), size);
  }
  return text;
}

std::shared_ptr<Session> sessionWithPassword() {
  auto session = Session::create().session;
  EXPECT_EQ(session->obtainRights({Polkit::kAdministrator, Polkit::kPassword}), Outcome::granted);
  return session;
}

// A machine with a system bus, an authority, an administrator and an installed elevator.
class PrivilegeTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
  }

  Sandbox sandbox_;
};

TEST_F(PrivilegeTest, ANameAndAPasswordStartASessionThatRunsToolsAsTheSuperuser) {
  const Polkit polkit(sandbox_);
  EXPECT_TRUE(passesAs(sandbox_, kUser, [] {
    const auto session = sessionWithPassword();
    const auto execution = session->execute("/usr/bin/id", {"-u"}, Output::piped);
    ASSERT_EQ(execution.status, 0);
    EXPECT_EQ(readAll(*execution.output), "0\n");
    EXPECT_EQ(execution.output->terminationStatus(), 0);
  }));
}

}  // namespace
