#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "tests/support/Udisks.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// Whole updates by the built application from a disk image that an ordinary user has attached as
// desktops do: udisks sets up the loop device, which stays until somebody deletes it, and mounts
// it.
namespace {

using test::Sandbox;
using test::Udisks;
using test::UpdateMachine;
using test::waitFor;

class UdisksImageTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace(UpdateMachine::Pauses::quick);
    machine().makeBundle(machine().destination(), "1.0");
    const std::string image = makeImage();
    try {
      udisks_.emplace(machine().sandbox());
      udisks().attach(image, place());
    } catch (const std::exception& obstacle) {
      GTEST_SKIP() << "udisks cannot attach an image here: " << obstacle.what();
    }
    ASSERT_TRUE(udisks().isMounted());
    ASSERT_TRUE(udisks().hasLoopDevice());
  }

  UpdateMachine& machine() { return *machine_; }
  Udisks& udisks() { return *udisks_; }

  void installs() {
    EXPECT_EQ(machine().run({"-source", udisks().mountPoint() + "/Sample.app", "-destination",
                             machine().destination(), "-mountpath", udisks().mountPoint(),
                             "-silent", "YES"}),
              0);
    EXPECT_THAT(machine().messages(), testing::Contains("Cleaning up..."));
    EXPECT_EQ(UpdateMachine::versionOf(machine().destination()), "2.0");
  }

  void expectDetached() {
    EXPECT_TRUE(waitFor([] { return UpdateMachine::programsThatRun().empty(); }));
    EXPECT_FALSE(udisks().isMounted());
    // The kernel waits for whoever looks at the device at that moment, such as the device manager.
    EXPECT_TRUE(waitFor([&] { return !udisks().hasLoopDevice(); }));
  }

 private:
  virtual Udisks::On place() const { return Udisks::On::device; }

  std::string makeImage() {
    const std::string contents = machine().sandbox().path("image");
    const std::string folder = machine().sandbox().makeDirectory("image-file");
    const std::string image = folder + "/update.img";
    machine().makeBundle(contents + "/Sample.app", "2.0");
    const bool partitioned = place() == Udisks::On::firstPartition;
    const std::string table =
        partitioned ? "echo 'start=1MiB, size=24MiB' | sfdisk -q -X gpt " + image + " && " : "";
    const std::string make = "truncate -s 32M " + image + " && " + table +
                             "mkfs.ext4 -q -L 'Sample 2.0' -d " + contents +
                             (partitioned ? " -E offset=1048576 " : " ") + image + " 24M";
    EXPECT_EQ(std::system(make.c_str()), 0);
    EXPECT_EQ(::chown(image.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
    return image;
  }

  std::optional<UpdateMachine> machine_;
  std::optional<Udisks> udisks_;
};

TEST_F(UdisksImageTest, ItsUserInstallsFromItAndDetachesItWithItsLoopDevice) {
  machine().runWithRightsHandedDownTo(Sandbox::kConsoleUser);
  installs();
  expectDetached();
}

class UdisksPartitionTest : public UdisksImageTest {
 private:
  Udisks::On place() const override { return Udisks::On::firstPartition; }
};

TEST_F(UdisksPartitionTest, ItsUserInstallsFromAPartitionAndFreesTheWholeLoopDevice) {
  machine().runWithRightsHandedDownTo(Sandbox::kConsoleUser);
  installs();
  expectDetached();
}

TEST_F(UdisksPartitionTest, TheSuperuserInstallsFromAPartitionAndFreesTheWholeLoopDevice) {
  installs();
  expectDetached();
}

TEST_F(UdisksImageTest, TheSuperuserInstallsFromItAndDetachesItWithItsLoopDevice) {
  installs();
  expectDetached();
}

}  // namespace
