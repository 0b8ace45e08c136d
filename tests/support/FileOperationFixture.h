#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/FileOperation.h"
#include "platform/FileSystem.h"
#include "platform/MainThread.h"
#include "tests/support/Sandbox.h"

namespace test {

// Serves the main thread until `condition` holds or for a minute; answers whether it held.
inline bool serveUntil(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition() && std::chrono::steady_clock::now() < end) {
    platform::main_thread::pumpOneEvent(std::chrono::milliseconds(5));
  }
  return condition();
}

inline void serveFor(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
    platform::main_thread::pumpOneEvent(std::chrono::milliseconds(5));
  }
}

// What a copy reports; the main thread's.
struct ReportRecorder {
  using Operation = std::shared_ptr<platform::FileOperation>;
  using Report = platform::FileOperation::Report;

  std::vector<Report> reports;
  std::vector<std::chrono::steady_clock::time_point> times;
  int ends = 0;
  bool offMainThread = false;
  // Done with each report.
  std::function<void(const Operation&, const Report&)> reaction;

  void take(const Operation& operation, const Report& report) {
    reports.push_back(report);
    times.push_back(std::chrono::steady_clock::now());
    offMainThread = offMainThread || !platform::main_thread::isCurrent();
    if (report.stage == platform::FileOperation::Stage::complete) ++ends;
    if (reaction) reaction(operation, report);
  }
  int resultCode() const { return reports.back().result.code(); }
};

// A folder to copy, one to copy it to, and what is reported meanwhile.
class FileOperationFixture : public testing::Test {
 protected:
  using FileOperation = platform::FileOperation;
  using Operation = ReportRecorder::Operation;
  using Report = ReportRecorder::Report;
  using Stage = FileOperation::Stage;

  static constexpr std::size_t kLarge = 12UL << 20;
  static constexpr std::chrono::seconds kSecond{1};

  // As root both are file systems of the test's own.
  void SetUp() override {
    if (Sandbox::canSimulateMachine()) {
      sandbox_.simulateMachine();
      sandbox_.mountTmpfs("tree");
      sandbox_.mountTmpfs("to");
    }
    sandbox_.makeDirectory("to");
    sandbox_.makeDirectory("tree");
  }

  std::string tree() const { return sandbox_.path("tree"); }
  std::string to() const { return sandbox_.path("to"); }
  std::string copy() const { return sandbox_.path("to/copy"); }
  auto target() const { return platform::file_system::list(to()); }

  void makeFiles(int count) const {
    for (int i = 0; i < count; ++i) sandbox_.makeFile("tree/" + std::to_string(i), "12345");
  }

  platform::Status begin(const Operation& operation, const std::string& source,
                         const std::string& folder, const std::string& name,
                         std::chrono::duration<double> interval = kSecond) {
    return operation->beginCopy(
        source, folder, name,
        [recorder = recorder_](const Operation& reporting, const Report& report) {
          recorder->take(reporting, report);
        },
        interval);
  }
  platform::Status begin(const Operation& operation) {
    return begin(operation, tree(), to(), "copy");
  }
  Operation started(const std::string& source, const std::string& folder, const std::string& name,
                    std::chrono::duration<double> interval = kSecond) {
    Operation operation = FileOperation::create();
    EXPECT_TRUE(operation->schedule().ok());
    EXPECT_TRUE(begin(operation, source, folder, name, interval).ok());
    return operation;
  }
  // The copy of the folder.
  Operation started(std::chrono::duration<double> interval = kSecond) {
    return started(tree(), to(), "copy", interval);
  }
  bool serveUntilTheEnd() const {
    return serveUntil([this] { return recorder_->ends > 0; });
  }
  // Starts another copy and serves it to its end; its result's code.
  int resultOf(const std::string& source, const std::string& folder, const std::string& name) {
    startAnew();
    started(source, folder, name);
    EXPECT_TRUE(serveUntilTheEnd());
    return recorder_->resultCode();
  }
  void startAnew() { recorder_ = std::make_shared<ReportRecorder>(); }

  static std::int64_t number(const Report& report, const char* key) {
    return *report.status.at(key).get<std::int64_t>();
  }

  Sandbox sandbox_;
  std::shared_ptr<ReportRecorder> recorder_ = std::make_shared<ReportRecorder>();
};

}  // namespace test
