#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Polkit.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// Whole updates by the built application from disk images of every kind that it may meet: mounted
// by the superuser through a loop device, and by an ordinary user through FUSE.
namespace {

namespace fs = std::filesystem;
using test::Polkit;
using test::Sandbox;
using test::UpdateMachine;
using test::waitFor;

enum class Mounter { superuser, user };

struct Row {
  std::string name;
  Mounter mounter = Mounter::superuser;
  // What the kernel must know to mount it.
  std::string fileSystem;
  // Programs, for "command -v".
  std::string needs;
  // For a shell, with the names of the folder that goes into the image, of the image and of the
  // mount point in $CONTENTS, $IMAGE and $POINT.
  std::string make;
  std::string mount;
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

const std::vector<Row> kRows = {
    {.name = "Ext4Loop",
     .fileSystem = "ext4",
     .needs = "mkfs.ext4",
     .make = "truncate -s 24M \"$IMAGE\" && mkfs.ext4 -q -d \"$CONTENTS\" \"$IMAGE\"",
     .mount = "mount -o loop,ro \"$IMAGE\" \"$POINT\""},
    {.name = "SquashfsLoop",
     .fileSystem = "squashfs",
     .needs = "mksquashfs",
     .make = "mksquashfs \"$CONTENTS\" \"$IMAGE\" -quiet -no-progress",
     .mount = "mount -t squashfs -o loop \"$IMAGE\" \"$POINT\""},
    {.name = "Iso9660Loop",
     .fileSystem = "iso9660",
     .needs = "genisoimage",
     .make = "genisoimage -quiet -R -o \"$IMAGE\" \"$CONTENTS\"",
     .mount = "mount -t iso9660 -o loop,ro \"$IMAGE\" \"$POINT\""},
    {.name = "Ext4Fuse",
     .mounter = Mounter::user,
     .fileSystem = "fuse",
     .needs = "mkfs.ext4 fuse2fs fusermount3",
     .make = "truncate -s 24M \"$IMAGE\" && mkfs.ext4 -q -d \"$CONTENTS\" \"$IMAGE\"",
     .mount = "fuse2fs -o ro,fakeroot,allow_root \"$IMAGE\" \"$POINT\""},
    {.name = "SquashfsFuse",
     .mounter = Mounter::user,
     .fileSystem = "fuse",
     .needs = "mksquashfs squashfuse fusermount3",
     .make = "mksquashfs \"$CONTENTS\" \"$IMAGE\" -quiet -no-progress",
     .mount = "squashfuse -o allow_root \"$IMAGE\" \"$POINT\""},
    {.name = "Iso9660Fuse",
     .mounter = Mounter::user,
     .fileSystem = "fuse",
     .needs = "genisoimage fuseiso fusermount3",
     .make = "genisoimage -quiet -R -o \"$IMAGE\" \"$CONTENTS\"",
     .mount = "fuseiso \"$IMAGE\" \"$POINT\" -o allow_root"},
};

bool kernelKnows(const std::string& fileSystem) {
  std::ifstream list("/proc/filesystems");
  for (std::string word; list >> word;) {
    if (word == fileSystem) return true;
  }
  return false;
}

// Everything that the bundle has by its path, its kind and permissions, and its contents.
std::vector<std::string> contentsOf(const std::string& bundle) {
  std::vector<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(bundle)) {
    const fs::path& path = entry.path();
    std::string line = path.string().substr(bundle.size());
    if (entry.is_symlink()) {
      line += " -> " + fs::read_symlink(path).string();
    } else {
      line += " " + std::to_string(static_cast<unsigned>(entry.status().permissions()));
      if (entry.is_regular_file()) line += " " + test::readFile(path);
    }
    lines.push_back(line);
  }
  std::ranges::sort(lines);
  return lines;
}

class DiskImageTest : public testing::TestWithParam<Row> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    for (const std::string& program : programsOf(GetParam().needs)) {
      if (std::system(("command -v " + program + " >/dev/null").c_str()) != 0) {
        GTEST_SKIP() << "needs " << program;
      }
    }
    if (!kernelKnows(GetParam().fileSystem)) {
      GTEST_SKIP() << "this kernel has no " << GetParam().fileSystem;
    }
    machine_.emplace(UpdateMachine::Pauses::quick);
    machine().makeBundle(machine().destination(), "1.0");
    attach();
  }

  UpdateMachine& machine() { return *machine_; }
  std::string contents() { return machine().sandbox().path("image"); }
  static bool byUser() { return GetParam().mounter == Mounter::user; }

 private:
  static std::vector<std::string> programsOf(const std::string& words) {
    std::istringstream text(words);
    return {std::istream_iterator<std::string>(text), {}};
  }

  void attach() {
    machine().makeBundle(contents() + "/Sample.app", "2.0");
    machine().sandbox().makeFile("etc/fuse.conf", "user_allow_other\n");
    const std::string folder = machine().sandbox().makeDirectory("image-file");
    fs::create_directories(machine().mountPoint());
    for (const std::string& path : {folder, machine().mountPoint()}) {
      ASSERT_EQ(::chown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
    }
    ::setenv("CONTENTS", contents().c_str(), 1);
    ::setenv("IMAGE", (folder + "/update.img").c_str(), 1);
    ::setenv("POINT", machine().mountPoint().c_str(), 1);
    ASSERT_EQ(shell(GetParam().make), 0);
    ASSERT_EQ(shell(GetParam().mount), 0);
    ASSERT_TRUE(machine().diskImageIsAttached());
  }

  int shell(const std::string& command) {
    std::string words;
    if (byUser()) {
      for (const std::string& word :
           machine().sandbox().commandThatBecomes(Sandbox::kConsoleUser)) {
        words += word + " ";
      }
    }
    return std::system((words + "sh -c '" + command + "' >/dev/null").c_str());
  }

  std::optional<UpdateMachine> machine_;
};

TEST_P(DiskImageTest, IsInstalledFromAndDetached) {
  if (byUser()) machine().runWithRightsHandedDownTo(Sandbox::kConsoleUser);
  const Polkit polkit(machine().sandbox(), Polkit::Without::bus);
  EXPECT_EQ(machine().run({"-source", machine().source(), "-destination", machine().destination(),
                           "-mountpath", machine().mountPoint(), "-silent", "YES"}),
            0);
  EXPECT_THAT(machine().messages(), testing::Contains("Cleaning up..."));
  EXPECT_TRUE(waitFor([] { return UpdateMachine::programsThatRun().empty(); }));
  EXPECT_EQ(contentsOf(machine().destination()), contentsOf(contents() + "/Sample.app"));
  EXPECT_FALSE(machine().diskImageIsAttached());
}

INSTANTIATE_TEST_SUITE_P(All, DiskImageTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

}  // namespace
