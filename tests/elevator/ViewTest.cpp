#include "elevator/View.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "elevator/Spawn.h"
#include "elevator/Tool.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::Sandbox;

// A folder of root's with "secret" in it, and Anna's home.
class ViewTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    home_ = sandbox_.homeOf("anna");
    secret_ = sandbox_.makeFile("roots/secret", "secret");
  }

  // What Anna has: a file, a folder or a link.
  std::string annas(const std::string& path) const {
    EXPECT_EQ(::lchown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
    return path;
  }
  std::string annasFile(const std::string& name, const std::string& text) const {
    return annas(sandbox_.makeFile("home/anna/" + name, text));
  }
  std::string annasFolder(const std::string& name) const {
    return annas(sandbox_.makeDirectory("home/anna/" + name));
  }
  std::string annasLink(const std::string& name, const std::string& target) const {
    fs::create_symlink(target, home_ + "/" + name);
    return annas(home_ + "/" + name);
  }

  // Runs a tool as the elevator does; answers its exit status, or the negative reason why it was
  // not started.
  static int run(const std::vector<std::string>& words) {
    const elevator::Tool tool = elevator::openTool(words.front());
    EXPECT_EQ(tool.status, 0);
    const posix::FileDescriptor life(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    const elevator::ToolEnds ends = {{}, life.get()};
    posix::FileDescriptor process;
    const int status = elevator::spawn(tool, words, ends, process);
    return status == 0 ? elevator::collect(process) : -status;
  }

  static ino_t inodeOf(const std::string& path) {
    struct stat facts {};
    EXPECT_EQ(::lstat(path.c_str(), &facts), 0) << path;
    return facts.st_ino;
  }

  Sandbox sandbox_;
  std::string home_;
  std::string secret_;
};

TEST_F(ViewTest, AFolderThatIsSwappedForALinkLeadsNowhere) {
  const std::string source = sandbox_.makeFile("roots/new", "new");
  annasLink("App", sandbox_.path("roots"));
  EXPECT_EQ(run({"/bin/cp", "-f", "-p", "-R", source, home_ + "/App/secret"}), -ELOOP);
  EXPECT_EQ(run({"/bin/rm", "-Rdf", home_ + "/App/secret"}), -ELOOP);
  EXPECT_EQ(run({"/bin/mv", "-f", home_ + "/App/secret", home_ + "/mine"}), -ELOOP);
  EXPECT_EQ(run({"/bin/chown", "anna", home_ + "/App/secret"}), -ELOOP);
  EXPECT_EQ(run({"/bin/mkdir", "-p", home_ + "/App/made"}), -ELOOP);
  EXPECT_EQ(run({"/bin/touch", home_ + "/App/touched"}), -ELOOP);
  EXPECT_EQ(readFile(secret_), "secret");
  EXPECT_FALSE(fs::exists(sandbox_.path("roots/made")));
  EXPECT_FALSE(fs::exists(sandbox_.path("roots/touched")));
}

TEST_F(ViewTest, ALinkDeepInsideABundleIsReplacedAndItsTargetLeftAlone) {
  const std::string source = sandbox_.makeFile("roots/A.app/Contents/file", "new");
  annasFolder("A.app");
  annasFolder("A.app/Contents");
  annasLink("A.app/Contents/file", secret_);
  EXPECT_EQ(run({"/bin/cp", "-f", "-p", "-R", sandbox_.path("roots/A.app"), home_}), 0);
  EXPECT_EQ(readFile(secret_), "secret");
  EXPECT_EQ(readFile(home_ + "/A.app/Contents/file"), "new");
}

TEST_F(ViewTest, ALinkInABundleThatIsRootsButHasAFolderOfSomebodyElseIsLeftAloneToo) {
  sandbox_.makeFile("roots/A.app/Contents/file", "new");
  const std::string contents = annas(sandbox_.makeDirectory("opt/A.app/Contents"));
  fs::create_symlink(secret_, contents + "/file");
  EXPECT_EQ(run({"/bin/cp", "-f", "-p", "-R", sandbox_.path("roots/A.app"), sandbox_.path("opt")}),
            0);
  EXPECT_EQ(readFile(secret_), "secret");
  EXPECT_EQ(readFile(contents + "/file"), "new");
}

TEST_F(ViewTest, TheOwnersLinkGoesToNobodyElsesFile) {
  annasLink("link", secret_);
  EXPECT_NE(run({"/bin/chown", "anna", home_ + "/link"}), 0);
  EXPECT_NE(run({"/bin/touch", home_ + "/link"}), 0);
  struct stat facts {};
  ASSERT_EQ(::stat(secret_.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_uid, 0U);
}

TEST_F(ViewTest, TheDoorOfTheTrashIsFollowedAndAMoveThereIsARename) {
  annasFolder(".local");
  const std::string files = annasFolder(".local/files");
  annasLink("Trash", files);
  const std::string atHome = annasFile("a", "a");
  const std::string below = annasFile("Apps/b", "b");
  annas(home_ + "/Apps");
  const std::string roots = sandbox_.makeFile("roots/c", "c");
  for (const std::string& item : {atHome, below, roots}) {
    const ino_t inode = inodeOf(item);
    const std::string name = "/" + fs::path(item).filename().string();
    EXPECT_EQ(run({"/bin/mv", "-f", item, home_ + "/Trash" + name}), 0) << item;
    EXPECT_EQ(inodeOf(files + name), inode) << item;
    EXPECT_FALSE(fs::exists(item));
  }
}

TEST_F(ViewTest, AFolderThatTheOwnersLinkNamesIsCopiedInto) {
  annasLink("Apps", annasFolder("Programs"));
  const std::string app = sandbox_.makeDirectory("roots/A.app");
  EXPECT_EQ(run({"/bin/cp", "-f", "-p", "-R", app, home_ + "/Apps"}), 0);
  EXPECT_TRUE(fs::exists(home_ + "/Programs/A.app"));
  EXPECT_TRUE(fs::is_symlink(home_ + "/Apps"));
}

TEST_F(ViewTest, LinksAreCopiedMovedAndRemovedAsLinks) {
  annasFolder("A.app");
  annasLink("A.app/link", secret_);
  EXPECT_EQ(run({"/bin/cp", "-f", "-p", "-R", home_ + "/A.app", home_ + "/B.app"}), 0);
  EXPECT_EQ(fs::read_symlink(home_ + "/B.app/link"), secret_);
  EXPECT_EQ(run({"/bin/mv", "-f", home_ + "/B.app/link", home_ + "/moved"}), 0);
  EXPECT_EQ(fs::read_symlink(home_ + "/moved"), secret_);
  EXPECT_EQ(run({"/bin/rm", "-Rdf", home_ + "/moved"}), 0);
  EXPECT_FALSE(fs::is_symlink(home_ + "/moved"));
  EXPECT_EQ(readFile(secret_), "secret");
}

TEST_F(ViewTest, TheWordsOfAToolStayWhatTheyAre) {
  annasLink("Trash", annasFolder("files"));
  const std::string item = annasFile("Apps/a", "a");
  annas(home_ + "/Apps");
  std::vector<std::string> words = {"/bin/mv", "-f", item, home_ + "/Trash/a"};
  const std::vector<std::string> before = words;
  const pid_t child = ::fork();
  if (child == 0) ::_exit(elevator::enterView(words) == 0 && words == before ? 0 : 1);
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

bool giveUpMounting() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, 2> rights{};
  if (::syscall(SYS_capget, &header, rights.data()) != 0) return false;
  rights[0].effective &= ~(1U << CAP_SYS_ADMIN);
  return ::syscall(SYS_capset, &header, rights.data()) == 0;
}

TEST_F(ViewTest, WhereNoViewCanBeHadOnlyRootsOwnPathsAreWorkedOn) {
  const std::string source = sandbox_.makeFile("roots/new", "new");
  const pid_t child = ::fork();
  if (child == 0) {
    // As in a container without the right to mount.
    std::vector<std::string> theirs = {"/bin/cp", source, home_ + "/copy"};
    std::vector<std::string> roots = {"/bin/cp", source, sandbox_.path("roots/copy")};
    if (!giveUpMounting()) ::_exit(2);
    ::_exit(elevator::enterView(theirs) == EPERM && elevator::enterView(roots) == 0 ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
