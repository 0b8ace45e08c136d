#pragma once

#include <sys/mount.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Shared/QVAuthorization.h"
#include "Shared/QVLocalPaths.h"
#include "platform/FileSystem.h"
#include "tests/support/LogFixture.h"
#include "tests/support/Polkit.h"

namespace test {

// What tests of changes to files share: a machine with a person at the console, who can get an
// administrator's rights or not, and what was logged meanwhile. Needs root.
class FileChangesFixture : public LogFixture {
 protected:
  static constexpr char kUser[] = "anna";
  static constexpr char kNoAdministrator[] = "Unable to authorize\n";

  // What comes of asking for an administrator's rights.
  enum class Rights {
    granted,
    refused,    // the password was wrong, and there is nobody to answer a dialog
    impossible  // there is no dialog and no authority
  };

  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(kUser);
    // Where only the superuser can change anything.
    protected_ = sandbox_.makeDirectory("protected");
  }

  // Runs `body` as the person at the console, in a process and with a log of its own.
  void asUser(Rights rights, const std::function<void()>& body) {
    std::optional<Polkit> polkit;
    if (rights != Rights::impossible) polkit.emplace(sandbox_);
    EXPECT_TRUE(passesAs(sandbox_, kUser, [&] {
      ask(rights);
      startLog();
      body();
    }));
  }
  // The same in this process, as the superuser.
  void asSuperuser(const std::function<void()>& body) {
    startLog();
    body();
  }

  // What was logged since the body began.
  std::vector<std::string> logged() const {
    QVLog::finishWriting();
    std::vector<std::string> all = messagesIn(readFile(logFile()));
    return {all.begin() + static_cast<std::ptrdiff_t>(linesAtStart_), all.end()};
  }

  // Makes a folder read-only, for the superuser too, as long as the test runs.
  static void makeReadOnly(const std::string& folder) {
    const char* path = folder.c_str();
    ASSERT_EQ(::mount(path, path, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(::mount(nullptr, path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  }
  // Has the person own an item as the superuser's work would leave it.
  static void giveToUser(const std::string& path) {
    ASSERT_EQ(::lchown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  }
  static std::vector<std::string> namesIn(const std::string& folder) {
    return platform::file_system::list(folder).value_or(std::vector<std::string>());
  }
  static bool exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
  }

  // Paths by which no item may be changed: none, one of another working folder's, and ones that
  // lead to the folder that `item` is in without naming it.
  static std::vector<std::optional<std::string>> pathsThatNameNoItem(const std::string& item) {
    const std::filesystem::path folder = std::filesystem::path(item).parent_path();
    return {std::nullopt, "", "/", folder.filename(), item + "/..", folder / "."};
  }

  std::string trash() const { return sandbox_.homeOf(kUser) + "/.Trash"; }
  std::string inHome(const std::string& name) const { return sandbox_.homeOf(kUser) + "/" + name; }

  std::string makeFileInHome(const std::string& name, std::string_view contents = {}) const {
    const std::filesystem::path file = inHome(name);
    return sandbox_.makeFile(file.lexically_relative(sandbox_.root()).string(), contents);
  }

  std::string protected_;

 private:
  static void ask(Rights rights) {
    QVAuthorization& session = QVAuthorization::sharedController(rights == Rights::refused);
    if (rights == Rights::impossible) return;
    const bool granted = rights == Rights::granted;
    EXPECT_EQ(session.authStartWithUser(Polkit::kAdministrator, granted ? Polkit::kPassword : "no"),
              granted);
  }

  void startLog() {
    std::filesystem::create_directories(folderIn(library()));
    QVLog::createNewLog("test");
    linesAtStart_ = logged().size();
  }
  static std::string library() {
    return QVLocalPaths::libraryDirectory(::getuid() != 0).value_or("");
  }
  static std::string logFile() { return fileIn(folderIn(library()), 1); }

  std::size_t linesAtStart_ = 0;
};

}  // namespace test
