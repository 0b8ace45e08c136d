#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/TreeDescription.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// Arguments, items and surroundings that are not as they should be: a row is one whole update by
// the built application, which ends in time with status 0 and loses nothing of the old bundle.
namespace {

namespace fs = std::filesystem;
using test::Sandbox;
using test::UpdateMachine;
using test::waitFor;

using Words = std::vector<std::string>;

constexpr char kInvalid[] = "Invalid arguments";
constexpr char kNoSource[] = "Source file does not exist";
constexpr char kNotCopied[] = "The installer was unable to copy the file to its destination";
constexpr char kCopied[] = "File copy successful.";

// Where the old bundle is afterwards, whole; elsewhere it never was.
enum class Old { inTrash, inPlace, elsewhere };

struct Row {
  std::string name;
  // Makes things bad and answers the arguments beside -silent.
  std::function<Words(UpdateMachine&)> arrange;
  // The last line of the log that tells an outcome from another.
  std::string outcome;
  Old oldBundle = Old::inPlace;
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

Words paths(const std::string& source, const std::string& destination) {
  return {"-source", source, "-destination", destination};
}

Words goodPaths(UpdateMachine& machine) {
  return paths(machine.source(), machine.destination());
}

void replaceSource(UpdateMachine& machine, const std::function<void(const std::string&)>& make) {
  fs::remove_all(machine.source());
  make(machine.source());
}

// A source and an installed bundle of the same peculiar name.
Words named(UpdateMachine& machine, const std::string& name) {
  const std::string source = machine.mountPoint() + "/" + name;
  const std::string destination = machine.sandbox().path("Applications/" + name);
  fs::rename(machine.source(), source);
  fs::rename(machine.destination(), destination);
  return paths(source, destination);
}

// The folder of the installed bundle as a file system of its own, mounted with a flag.
void mountOverDestination(UpdateMachine& machine, unsigned long flags, const std::string& options) {
  const std::string folder = fs::path(machine.destination()).parent_path();
  const std::string aside = machine.sandbox().path("aside");
  fs::rename(machine.destination(), aside);
  ASSERT_EQ(::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()), 0);
  ASSERT_EQ(std::system(("cp -a '" + aside + "' '" + machine.destination() + "'").c_str()), 0);
  ASSERT_EQ(::mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | flags, options.c_str()), 0);
}

void giveUpRights(UpdateMachine& machine) {
  machine.runAs(Sandbox::kConsoleUser);
}

const std::vector<Row> kRows = {
    {"NoArguments", [](UpdateMachine&) { return Words(); }, kInvalid},
    {"NoSource",
     [](UpdateMachine& machine) {
       return Words{"-destination", machine.destination()};
     },
     kInvalid},
    {"NoDestination",
     [](UpdateMachine& machine) {
       return Words{"-source", machine.source()};
     },
     kInvalid},
    {"AKeyWithoutAValue",
     [](UpdateMachine& machine) {
       return Words{"-source", machine.source(), "-destination"};
     },
     kInvalid},
    {"AnotherCaseOfTheSuffix",
     [](UpdateMachine& machine) { return paths(machine.source(), "/x/Sample.APP"); }, kInvalid},
    {"ATrailingSlash",
     [](UpdateMachine& machine) { return paths(machine.source(), machine.destination() + "/"); },
     kInvalid},

    {"ARelativeSourceThatIsNotHere",
     [](UpdateMachine& machine) { return paths("Sample.app", machine.destination()); }, kNoSource},
    {"ARelativeSource",
     [](UpdateMachine& machine) {
       machine.runBy({"/usr/bin/env", "-C", machine.mountPoint()});
       return paths("Sample.app", machine.destination());
     },
     kNotCopied, Old::inTrash},
    {"ARelativeDestination",
     [](UpdateMachine& machine) { return paths(machine.source(), "Sample.app"); }, kNotCopied},
    {"ASourceThatIsAFile",
     [](UpdateMachine& machine) {
       replaceSource(machine, [&](const std::string&) {
         machine.sandbox().makeFile("Volumes/Sample 2.0/Sample.app", "no bundle");
       });
       return goodPaths(machine);
     },
     kCopied, Old::inTrash},
    {"ASourceThatIsADanglingLink",
     [](UpdateMachine& machine) {
       replaceSource(machine, [](const std::string& path) { fs::create_symlink("nowhere", path); });
       return goodPaths(machine);
     },
     kNoSource},
    {"ASourceThatIsALoopOfLinks",
     [](UpdateMachine& machine) {
       replaceSource(machine,
                     [](const std::string& path) { fs::create_symlink("Sample.app", path); });
       return goodPaths(machine);
     },
     kNoSource},
    {"ASourceThatCannotBeRead",
     [](UpdateMachine& machine) {
       giveUpRights(machine);
       fs::permissions(machine.source(), fs::perms::none);
       return goodPaths(machine);
     },
     kNotCopied},
    {"ASourceThatIsTheDestination",
     [](UpdateMachine& machine) { return paths(machine.destination(), machine.destination()); },
     kNotCopied, Old::inTrash},
    {"ASourceInsideTheDestination",
     [](UpdateMachine& machine) {
       const std::string inside = machine.destination() + "/Contents/New.app";
       return paths(inside, machine.destination());
     },
     kNotCopied, Old::inTrash},

    {"ADestinationOnAReadOnlyFileSystem",
     [](UpdateMachine& machine) {
       mountOverDestination(machine, MS_RDONLY, "size=4m");
       return goodPaths(machine);
     },
     kCopied},
    {"ADestinationOnAFullFileSystem",
     [](UpdateMachine& machine) {
       // Room for the old bundle, not for the new one.
       mountOverDestination(machine, 0, "size=16m");
       machine.sandbox().makeFile("Volumes/Sample 2.0/Sample.app/Contents/large",
                                  std::string(20 << 20, 'x'));
       return goodPaths(machine);
     },
     kCopied, Old::inTrash},
    {"ADestinationThatIsALink",
     [](UpdateMachine& machine) {
       const std::string target = machine.sandbox().path("real.app");
       fs::rename(machine.destination(), target);
       fs::create_symlink(target, machine.destination());
       return goodPaths(machine);
     },
     kCopied, Old::elsewhere},

    {"NoMountPoint",
     [](UpdateMachine& machine) {
       Words words = goodPaths(machine);
       words.insert(words.end(), {"-mountpath", "/nowhere"});
       return words;
     },
     kCopied, Old::inTrash},
    {"TheRootAsMountPoint",
     [](UpdateMachine& machine) {
       Words words = goodPaths(machine);
       words.insert(words.end(), {"-mountpath", "/"});
       return words;
     },
     kCopied, Old::inTrash},
    {"AnOptionAsMountPoint",
     [](UpdateMachine& machine) {
       Words words = goodPaths(machine);
       words.insert(words.end(), {"-mountpath", "-force"});
       return words;
     },
     kCopied, Old::inTrash},

    {"ANameWithALineBreak", [](UpdateMachine& machine) { return named(machine, "two\nlines.app"); },
     kCopied, Old::inTrash},
    {"ANameWithDirectives", [](UpdateMachine& machine) { return named(machine, "%@%n%s %d.app"); },
     kCopied, Old::inTrash},
    {"ANameThatIsNotUtf8", [](UpdateMachine& machine) { return named(machine, "\xFF\xFE.app"); },
     kCopied, Old::inTrash},
    {"ANameOf255Bytes",
     [](UpdateMachine& machine) { return named(machine, std::string(251, 'x') + ".app"); }, kCopied,
     Old::inTrash},

    {"NoHome",
     [](UpdateMachine& machine) {
       giveUpRights(machine);
       machine.runBy({"/usr/bin/env", "-u", "HOME"});
       return goodPaths(machine);
     },
     kNotCopied},
    {"ARelativeHome",
     [](UpdateMachine& machine) {
       giveUpRights(machine);
       machine.runBy({"/usr/bin/env", "HOME=home"});
       return goodPaths(machine);
     },
     kNotCopied},
    {"BrokenPreferences",
     [](UpdateMachine& machine) {
       giveUpRights(machine);
       for (const std::string name : {"com.quorvale.global", "com.quorvale.UpdateHelper"}) {
         machine.sandbox().makeFile("home/anna/Library/Preferences/" + name + ".plist", "<plist");
       }
       EXPECT_EQ(std::system(
                     ("chown -R anna " + machine.sandbox().homeOf(Sandbox::kConsoleUser)).c_str()),
                 0);
       return goodPaths(machine);
     },
     kNotCopied},
    {"ClosedStandardEnds",
     [](UpdateMachine& machine) {
       machine.runBy({"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"});
       return goodPaths(machine);
     },
     kCopied, Old::inTrash},
    {"AFullStandardOutput",
     [](UpdateMachine& machine) {
       machine.runBy({"/bin/sh", "-c", "exec \"$@\" >/dev/full 2>&1", "sh"});
       return goodPaths(machine);
     },
     kCopied, Old::inTrash},
};

std::string valueOf(const std::string& key, const Words& words) {
  const auto found = std::ranges::find(words, key);
  return found == words.end() || found + 1 == words.end() ? "" : found[1];
}

class BadInputTest : public testing::TestWithParam<Row> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace(UpdateMachine::Pauses::quick);
    machine().makeBundle(machine().source(), "2.0");
    machine().makeBundle(machine().destination(), "1.0");
  }

  UpdateMachine& machine() { return *machine_; }

  // The old bundle before the run.
  std::string oldBundle(const Words& words) {
    if (GetParam().oldBundle == Old::elsewhere) return machine().sandbox().path("real.app");
    const std::string named = valueOf("-destination", words);
    return named.starts_with('/') && fs::exists(named) ? named : machine().destination();
  }

  // Under whatever name it is there; a long one is shortened.
  std::string onlyItemInTrash() {
    const fs::directory_iterator items(fs::path(machine().trashedBundle()).parent_path());
    EXPECT_EQ(std::distance(begin(items), end(items)), 1);
    return fs::directory_iterator(fs::path(machine().trashedBundle()).parent_path())->path();
  }

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_P(BadInputTest, EndsInTimeAndLosesNothing) {
  machine().makeBundle(machine().destination() + "/Contents/New.app", "1.5");
  Words words = GetParam().arrange(machine());
  const std::string old = oldBundle(words);
  const std::vector<std::string> before = test::describeTree(old);
  words.insert(words.end(), {"-silent", "NO"});

  EXPECT_EQ(machine().run(words), 0);
  EXPECT_THAT(machine().messages(), testing::Contains(GetParam().outcome));
  EXPECT_EQ(machine().messages().back(), "Terminating self...");
  EXPECT_TRUE(waitFor([] { return UpdateMachine::programsThatRun().empty(); }));
  const bool trashed = GetParam().oldBundle == Old::inTrash;
  EXPECT_EQ(test::describeTree(trashed ? onlyItemInTrash() : old), before);
}

INSTANTIATE_TEST_SUITE_P(All, BadInputTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

}  // namespace
