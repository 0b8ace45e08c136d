#include "Shared/TaskOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <utility>

namespace {

using platform::Data;

Data bytes(std::string_view text) {
  return Data(std::as_bytes(std::span(text)));
}

// Yields prepared chunks and then nothing, and notes in a shared text who was read when.
class PreparedPipe : public platform::Pipe {
 public:
  PreparedPipe(char name, std::string& reads, std::deque<std::string> chunks)
      : name_(name), reads_(reads), chunks_(std::move(chunks)) {}

  std::size_t appendAvailableData(Data& into) override {
    reads_ += name_;
    if (chunks_.empty()) return 0;
    const std::string chunk = std::exchange(chunks_.front(), {});
    chunks_.pop_front();
    into.append(bytes(chunk));
    return chunk.size();
  }
  void closeReadingEnd() override {}

 private:
  const char name_;
  std::string& reads_;
  std::deque<std::string> chunks_;
};

TEST(TaskOutputTest, OutputIsDrainedBeforeErrorsAreRead) {
  std::string reads;
  PreparedPipe output('o', reads, {"a", "b"});
  PreparedPipe error('e', reads, {"x", "y"});
  const TaskOutput collected = readToEnd(&output, error);
  EXPECT_EQ(collected.output, bytes("ab"));
  EXPECT_EQ(collected.error, bytes("xy"));
  EXPECT_EQ(reads,
            "ooo"
            "e"
            "oe"
            "oe");
}

TEST(TaskOutputTest, TheLastErrorChunkIsAppendedAgainWithEachLaterOutput) {
  std::string reads;
  PreparedPipe output('o', reads, {"", "a", "b", "", "c"});
  PreparedPipe error('e', reads, {"x", "y"});
  const TaskOutput collected = readToEnd(&output, error);
  EXPECT_EQ(collected.output, bytes("abc"));
  EXPECT_EQ(collected.error, bytes("xxxyy"));
}

TEST(TaskOutputTest, AnEmptyErrorPipeEndsTheReading) {
  std::string reads;
  PreparedPipe output('o', reads, {"a", "", "lost"});
  PreparedPipe error('e', reads, {});
  EXPECT_EQ(readToEnd(&output, error).output, bytes("a"));
  EXPECT_EQ(reads, "ooe");
}

TEST(TaskOutputTest, WithoutAnOutputPipeOnlyErrorsAreRead) {
  std::string reads;
  PreparedPipe error('e', reads, {"x", "y"});
  EXPECT_EQ(readToEnd(nullptr, error).result(), bytes("xy"));
}

TEST(TaskOutputTest, ErrorsStandInForMissingOutputOnly) {
  EXPECT_EQ((TaskOutput{bytes("out"), bytes("err")}).result(), bytes("out"));
  EXPECT_EQ((TaskOutput{bytes(""), bytes("err")}).result(), bytes("err"));
  EXPECT_EQ((TaskOutput{bytes(""), bytes("")}).result(), bytes(""));
}

}  // namespace
