#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>

#include "platform/FileSystem.h"
#include "platform/Workspace.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = platform::file_system;
using platform::workspace::recycle;
using test::ChildProgram;
using test::readFile;
using test::Sandbox;
using test::SessionBus;

constexpr char kGio[] = "/usr/bin/gio";
constexpr char kDaemon[] = "/usr/libexec/gvfsd";
constexpr char kTrashBackend[] = "/usr/libexec/gvfsd-trash";

// The desktop's own program for the Trash, with the daemon that it asks on a private bus.
class TrashRestoreTest : public testing::Test {
 protected:
  void startDesktop() {
    const std::string runtime = sandbox_.makeDirectory("runtime");
    ASSERT_EQ(::chmod(runtime.c_str(), 0700), 0);
    ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    ::setenv("XDG_DATA_HOME", (sandbox_.home() + "/.local/share").c_str(), 1);
    ::setenv("GVFS_DISABLE_FUSE", "1", 1);
    bus_ = std::make_unique<SessionBus>(sandbox_);
    bus_->announce();
    const std::string services = bus_->servicesFolder().substr(sandbox_.root().size() + 1);
    sandbox_.makeFile(
        services + "/org.gtk.vfs.Daemon.service",
        std::string("[D-BUS Service]\nName=org.gtk.vfs.Daemon\nExec=") + kDaemon + "\n");
    // The daemon would die of the signal before it has answered somebody.
    isListed("");
    bus_->daemon().signal(SIGHUP);
  }

  static bool isListed(const std::string& line) {
    ChildProgram list({kGio, "trash", "--list"});
    test::waitFor([&] { return !list.isRunning(); });
    const auto& lines = list.lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }

  Sandbox sandbox_;
  std::unique_ptr<SessionBus> bus_;
};

TEST_F(TrashRestoreTest, TheDesktopListsWhatWasRecycledAndRestoresItToItsPlace) {
  for (const char* program : {kGio, kDaemon, kTrashBackend}) {
    if (::access(program, X_OK) != 0) GTEST_SKIP() << "needs " << program;
  }
  startDesktop();
  const std::string bundle = sandbox_.makeDirectory("Applications/100% A.app");
  sandbox_.makeFile("Applications/100% A.app/Contents/file", "x");
  ASSERT_TRUE(recycle(sandbox_.path("Applications"), sandbox_.home() + "/.Trash", {"100% A.app"}));
  ASSERT_FALSE(fs::exists(bundle));
  EXPECT_TRUE(test::waitFor([&] { return isListed("trash:///100%25%20A.app\t" + bundle); }));

  const ChildProgram restore({kGio, "trash", "--restore", "trash:///100%25%20A.app"});
  EXPECT_TRUE(test::waitFor([&] { return fs::exists(bundle); }));
  EXPECT_EQ(readFile(bundle + "/Contents/file"), "x");
  EXPECT_TRUE(test::waitFor([&] {
    return fs::list(sandbox_.home() + "/.local/share/Trash/info")->empty();
  })) << "the information goes with the item";
}

}  // namespace
