#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/e2e/OutcomeTable.h"
#include "tests/support/LogPreamble.h"
#include "tests/support/Polkit.h"
#include "tests/support/TreeDescription.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// Each row of the table of outcomes is one whole update by the built application.
namespace {

using namespace outcome;  // NOLINT(google-build-using-namespace): the words of the table
namespace fs = std::filesystem;
using test::Polkit;
using test::Sandbox;
using test::UpdateMachine;
using test::waitFor;
using testing::HasSubstr;

// What cp(1) keeps of a bundle: all but which files are one and the same, how the file system
// stores them, and the time of the bundle itself, which is touched.
std::vector<std::string> copyable(const std::string& bundle) {
  static const std::regex lost(" holes=[01]| links=[0-9]+ same as .*");
  static const std::regex touched(" changed=[^ ]+");
  std::vector<std::string> lines = test::describeTree(bundle);
  for (std::string& line : lines) line = std::regex_replace(line, lost, "");
  lines.front() = std::regex_replace(lines.front(), touched, "");
  return lines;
}

std::vector<std::string> differences(std::vector<std::string> one, std::vector<std::string> other) {
  std::vector<std::string> lines;
  std::ranges::sort(one);
  std::ranges::sort(other);
  std::ranges::set_symmetric_difference(one, other, std::back_inserter(lines));
  return lines;
}

class OutcomeTest : public testing::TestWithParam<Row> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace(UpdateMachine::Pauses::quick);
    prepareBundles();
    prepareTrash();
    preparePeople();
  }

  static const Row& row() { return GetParam(); }
  UpdateMachine& machine() { return *machine_; }
  std::string home() { return machine().sandbox().homeOf(Sandbox::kConsoleUser); }

  std::string folder() {
    return row().place == Place::foreign ? machine().sandbox().path("Applications")
                                         : home() + "/Programs";
  }
  std::string destination() { return folder() + "/Sample.app"; }
  std::string trash() { return home() + "/.local/share/Trash/files"; }

  std::vector<std::string> arguments() {
    std::vector<std::string> words = {"-source",      machine().source(),
                                      "-destination", destination(),
                                      "-silent",      row().silent ? "YES" : "NO"};
    if (const auto path = mountPath()) words.insert(words.end(), {"-mountpath", *path});
    return words;
  }

  std::optional<std::string> mountPath() {
    if (row().mount == Mount::none) return std::nullopt;
    if (row().mount == Mount::empty) return "";
    return row().mount == Mount::image ? machine().mountPoint() : home();
  }

  // The log of the whole run, or what was printed in its place where there is none.
  std::vector<std::string> messages() {
    if (row().who != Who::superuserAlone) return machine().messages();
    constexpr std::string_view kPrefix = "Unable to log the following information: ";
    std::vector<std::string> found;
    std::istringstream output(machine().output());
    for (std::string line; std::getline(output, line);) {
      if (line.starts_with(kPrefix)) found.push_back(line.substr(kPrefix.size()));
    }
    return found;
  }

  std::vector<std::string> expectedMessages() {
    std::vector<std::string> rest(row().log.begin(), row().log.end());
    rest.emplace_back("Terminating self...");
    return test::logOfValidRun({.source = machine().source(),
                                .destination = destination(),
                                .mountPath = mountPath().value_or("(null)"),
                                .silent = row().silent},
                               rest);
  }

  // Without a display an alert is printed.
  std::string alert() {
    const std::string output = machine().output();
    const std::size_t begin = output.find("Alert: ");
    return begin == std::string::npos ? ""
                                      : output.substr(begin, output.find('\n', begin) + 1 - begin);
  }

  void expectNewBundle() {
    const std::string bundle = row().newBundle == New::asFolder ? folder() : destination();
    if (row().newBundle == New::absent) return;
    if (row().oldBundle == Old::mergedInto) {
      EXPECT_TRUE(waitFor([&] { return UpdateMachine::versionOf(bundle) == "2.0"; }));
      return;
    }
    EXPECT_TRUE(waitFor([&] { return differences(copyable(bundle), new_).empty(); }))
        << testing::PrintToString(differences(copyable(bundle), new_));
  }

  void expectOldBundle() {
    const std::string trashed =
        trash() + (row().trash == Trash::taken ? "/Sample 2.app" : "/Sample.app");
    EXPECT_EQ(fs::exists(trashed), row().oldBundle == Old::inTrash);
    if (row().oldBundle == Old::inTrash) {
      EXPECT_EQ(test::describeTree(trashed), old_);
    } else if (row().oldBundle == Old::inPlace) {
      EXPECT_EQ(test::describeTree(destination()), old_);
    }
    if (row().trash == Trash::taken) {
      EXPECT_EQ(UpdateMachine::versionOf(trash() + "/Sample.app"), "0.9");
    }
  }

  // The opened application says who it is.
  void expectOpened() {
    if (!row().opened) {
      EXPECT_FALSE(fs::exists(machine().launchRecord()));
      return;
    }
    ASSERT_TRUE(waitFor([&] { return fs::exists(machine().launchRecord()); }));
    EXPECT_THAT(test::readFile(machine().launchRecord()),
                testing::AllOf(HasSubstr("users 61001 61001 61001\n"),
                               HasSubstr("program " + destination() + "/")));
  }

  // The desktop knows the new bundle when it is where the old one was, in the person's folder: the
  // bundle is the person's to change, also where the superuser has copied it.
  void expectRegistered() {
    const std::string entry = home() + "/.local/share/applications/com.quorvale.Sample.desktop";
    EXPECT_FALSE(fs::exists("/usr/local/share/applications/com.quorvale.Sample.desktop"));
    if (row().newBundle != New::inPlace) {
      EXPECT_FALSE(fs::exists(entry));
      return;
    }
    EXPECT_TRUE(waitFor([&] { return fs::exists(entry); }));
    EXPECT_THAT(test::readFile(entry), HasSubstr(destination() + "/Contents/Linux/"));
  }

  void expectNothingLeft() {
    EXPECT_TRUE(waitFor([&] { return machine().programsThatRun().empty(); }))
        << machine().programsThatRun().front();
    EXPECT_TRUE(fs::is_empty(machine().sandbox().path("tmp")));
    if (row().newBundle == New::asFolder || !fs::exists(folder())) return;
    for (const auto& entry : fs::directory_iterator(folder())) {
      EXPECT_EQ(entry.path().filename(), "Sample.app");
    }
  }

 private:
  void prepareBundles() {
    if (row().mount == Mount::image) {
      machine().attachDiskImage();
    } else if (row().source) {
      machine().makeBundle(machine().source(), "2.0");
    }
    if (row().place == Place::own || row().place == Place::foreign) {
      machine().makeBundle(destination(), "1.0");
      old_ = test::describeTree(destination());
    }
    if (row().place == Place::free) fs::create_directories(folder());
    if (row().place != Place::foreign && fs::exists(folder())) give(folder());
    if (row().source) new_ = copyable(machine().source());
  }

  void prepareTrash() {
    if (row().trash == Trash::broken) machine().sandbox().makeFile("home/anna/.Trash", "no folder");
    if (row().trash == Trash::taken) machine().makeBundle(trash() + "/Sample.app", "0.9");
    for (const char* made :
         {".local", ".local/share", ".local/share/Trash", ".local/share/Trash/files"}) {
      if (fs::exists(home() + "/" + made)) give(home() + "/" + made);
    }
  }

  void give(const std::string& path) {
    ASSERT_EQ(::chown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0) << path;
  }

  void preparePeople() {
    if (row().who == Who::superuserAlone) machine().sandbox().setNobodyAtConsole();
    if (row().who != Who::user) return;
    machine().runAs(Sandbox::kConsoleUser);
    if (row().rights == Rights::handedDown) {
      polkit_.emplace(machine().sandbox(), Polkit::Without::bus);
      machine().runWithRightsHandedDownTo(Sandbox::kConsoleUser);
      return;
    }
    polkit_.emplace(machine().sandbox());
    if (row().rights == Rights::granted) machine().answerAsPerson({"answer", Polkit::kPassword});
    if (row().rights == Rights::refused) machine().answerAsPerson({"answer", "wrong"});
    if (row().rights == Rights::cancelled) machine().answerAsPerson({"dismiss"});
  }

  std::optional<UpdateMachine> machine_;
  std::optional<Polkit> polkit_;
  std::vector<std::string> old_;
  std::vector<std::string> new_;
};

TEST_P(OutcomeTest, IsAsTheTableSays) {
  EXPECT_EQ(machine().run(arguments()), 0);
  EXPECT_EQ(messages(), expectedMessages());
  EXPECT_EQ(alert(), row().alert);
  expectNewBundle();
  expectOldBundle();
  expectRegistered();
  expectOpened();
  EXPECT_EQ(machine().diskImageIsAttached(),
            row().mount == Mount::image && row().log.back() != kCleaning);
  expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(All, OutcomeTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

}  // namespace
