#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Shared/QVLog.h"
#include "tests/support/Sandbox.h"

namespace test {

// What tests of the log share. The log files of a test program are named after it.
class LogFixture : public testing::Test {
 protected:
  // Has the test go on as an ordinary user, whose log is in that user's home.
  void becomeOrdinaryUser() {
    if (!Sandbox::canSimulateMachine()) return;
    sandbox_.simulateMachine();
    sandbox_.becomeUser(Sandbox::kConsoleUser);
  }

  std::string preferencesFile() const {
    return sandbox_.home() + "/Library/Preferences/com.quorvale.global.plist";
  }
  static std::string folderIn(const std::string& library) { return library + "/Logs/Quorvale"; }
  std::string folder() const { return folderIn(sandbox_.home() + "/Library"); }

  static std::string programName() {
    return std::filesystem::read_symlink("/proc/self/exe").filename().string();
  }
  static std::string fileIn(const std::string& folder, int number) {
    return folder + "/" + programName() + "." + std::to_string(number) + ".log";
  }
  std::string file(int number) const { return fileIn(folder(), number); }
  std::string read(int number) const { return readFile(file(number)); }

  // The messages of a log file: its lines without date and separator. A line without them counts as
  // the continuation of the one before.
  static std::vector<std::string> messagesIn(const std::string& contents) {
    std::vector<std::string> messages;
    std::istringstream lines(contents);
    for (std::string line; std::getline(lines, line);) {
      const std::size_t separator = line.find(" - ");
      if (separator == kDateLength) {
        messages.push_back(line.substr(separator + 3));
      } else {
        EXPECT_FALSE(messages.empty()) << line;
        if (!messages.empty()) messages.back() += "\n" + line;
      }
    }
    return messages;
  }
  std::vector<std::string> messages(int number) const { return messagesIn(read(number)); }

  // Has the log write to `file` from now on, with nothing in its queue.
  static void useFile(std::shared_ptr<platform::AppendingFile> file) {
    QVLog::finishWriting();
    QVLog::sharedController().setFileHandle(std::move(file));
  }

  static constexpr std::size_t kDateLength = 25;

  Sandbox sandbox_;
};

// Runs `work` on a thread of its own and waits for it.
template <class Work>
void inBackground(Work work) {
  std::thread(work).join();
}

}  // namespace test
