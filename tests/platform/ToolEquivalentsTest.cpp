#include "platform/linux/tasks/ToolEquivalents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/Exception.h"
#include "platform/Task.h"

namespace {

using platform::resolvedTool;
using platform::Task;
using testing::AnyOf;
using testing::EndsWith;

TEST(ToolEquivalentsTest, AToolThatExistsIsUsedAsNamed) {
  for (const char* path : {"/usr/bin/touch", "/usr/bin/killall", "/bin/cp", "/bin/rm"}) {
    EXPECT_EQ(resolvedTool(path), path);
  }
}

TEST(ToolEquivalentsTest, AToolWithoutAnEquivalentStaysAsNamed) {
  EXPECT_EQ(resolvedTool("/nonexistent/tool"), "/nonexistent/tool");
  EXPECT_EQ(resolvedTool(""), "");
}

TEST(ToolEquivalentsTest, ToolsThatAreMissingHereHaveEquivalentsThatCanBeLaunched) {
  for (const char* path : {"/usr/bin/hdiutil", "/usr/bin/ditto", "/usr/sbin/chown"}) {
    ASSERT_NE(::access(path, F_OK), 0) << path << " exists here";
    EXPECT_NE(resolvedTool(path), path);
    EXPECT_TRUE(Task::canLaunch(path)) << path;
  }
  EXPECT_THAT(resolvedTool("/usr/bin/hdiutil"), EndsWith("/session-helper"));
  EXPECT_THAT(resolvedTool("/usr/bin/ditto"), EndsWith("/archiver"));
  EXPECT_THAT(resolvedTool("/usr/sbin/chown"), AnyOf("/usr/bin/chown", "/bin/chown"));
}

TEST(ToolEquivalentsTest, AMissingToolRunsUnderItsName) {
  const auto task = Task::create();
  task->setLaunchPath("/usr/bin/hdiutil");
  task->setArguments({"detach", "/tmp/..", "-force"});
  task->setStandardError(Task::End::pipe);
  task->launch();
  EXPECT_EQ(task->launchPath(), "/usr/bin/hdiutil");
  EXPECT_FALSE(task->standardErrorPipe()->availableData().empty());
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 1);
}

}  // namespace
