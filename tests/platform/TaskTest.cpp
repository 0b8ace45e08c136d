#include "platform/Task.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Exception.h"

namespace {

using platform::Data;
using platform::Task;

std::string textOf(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

std::shared_ptr<Task> probe(std::vector<std::string> arguments) {
  auto task = Task::create();
  task->setLaunchPath(QV_TEST_PROGRAMS "/TaskProbe");
  task->setArguments(std::move(arguments));
  return task;
}

TEST(TaskTest, AProgramsExitStatusIsAnswered) {
  const auto task = probe({"exit", "7"});
  task->launch();
  task->waitUntilExit();
  EXPECT_FALSE(task->isRunning());
  EXPECT_EQ(task->terminationStatus(), 7);
}

TEST(TaskTest, OutputIsReadToItsEnd) {
  const auto task = probe({"echo", "one", "two"});
  task->setStandardOutput(Task::End::pipe);
  task->launch();
  std::string text;
  for (;;) {
    const Data data = task->standardOutputPipe()->availableData();
    if (data.empty()) break;
    text += textOf(data);
  }
  EXPECT_EQ(text, "one\ntwo\n");
}

}  // namespace
