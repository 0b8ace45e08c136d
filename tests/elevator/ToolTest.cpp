#include "elevator/Tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "posix/FileDescriptor.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using elevator::openTool;
using test::Sandbox;

constexpr unsigned kUser = Sandbox::kConsoleUserId;

// A folder that only root can change, "/usr/local/share" of the sandbox, with a tool in it.
class ToolTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    fs::create_directory(folder_);
    fs::copy_file("/bin/true", tool_);
    ASSERT_EQ(openTool(tool_).status, 0);
  }

  static void give(const std::string& path) { ASSERT_EQ(::lchown(path.c_str(), kUser, kUser), 0); }
  static void setMode(const std::string& path, mode_t mode) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
  }

  Sandbox sandbox_;
  const std::string folder_ = "/usr/local/share/tools";
  const std::string tool_ = folder_ + "/tool";
};

TEST_F(ToolTest, TheSystemsOwnToolsMayBeRun) {
  for (const char* path : {"/bin/rm", "/bin/mv", "/bin/cp", "/bin/mkdir", "/usr/bin/touch"}) {
    const auto tool = openTool(path);
    EXPECT_EQ(tool.status, 0) << path;
    EXPECT_TRUE(tool.file) << path;
    EXPECT_FALSE(tool.isScript) << path;
  }
}

TEST_F(ToolTest, AToolOfAnotherOwnerIsRefused) {
  give(tool_);
  EXPECT_EQ(openTool(tool_).status, EACCES);
}

TEST_F(ToolTest, AToolThatOthersCanWriteIsRefused) {
  for (const mode_t mode : {0775U, 0757U, 0777U}) {
    setMode(tool_, mode);
    EXPECT_EQ(openTool(tool_).status, EACCES) << std::oct << mode;
  }
}

TEST_F(ToolTest, AToolThatAnAccessListLetsAUserWriteIsRefused) {
  // acl(5) as the kernel stores it: version 2, then tag, permissions and id of each entry.
  const struct {
    std::uint32_t version = 2;
    struct {
      std::uint16_t tag, permissions;
      std::uint32_t id;
    } entries[5] = {{1, 7, ~0U}, {2, 7, kUser}, {4, 5, ~0U}, {16, 7, ~0U}, {32, 5, ~0U}};
  } list;
  if (::setxattr(tool_.c_str(), "system.posix_acl_access", &list, sizeof list, 0) != 0) {
    GTEST_SKIP() << "the file system has no access lists";
  }
  EXPECT_EQ(openTool(tool_).status, EACCES);
}

TEST_F(ToolTest, AToolInAFolderThatOthersCanWriteIsRefused) {
  for (const mode_t mode : {0777U, 01777U, 0775U}) {
    setMode(folder_, mode);
    EXPECT_EQ(openTool(tool_).status, EACCES) << std::oct << mode;
  }
}

TEST_F(ToolTest, AToolInAFolderOfAnotherOwnerIsRefused) {
  give(folder_);
  EXPECT_EQ(openTool(tool_).status, EACCES);
}

TEST_F(ToolTest, AFolderFurtherUpCountsToo) {
  fs::create_directories(folder_ + "/a/b");
  fs::copy_file("/bin/true", folder_ + "/a/b/tool");
  EXPECT_EQ(openTool(folder_ + "/a/b/tool").status, 0);
  setMode(folder_ + "/a", 0777);
  EXPECT_EQ(openTool(folder_ + "/a/b/tool").status, EACCES);
}

TEST_F(ToolTest, TheRootOfAllFoldersCountsToo) {
  const std::string root = sandbox_.makeDirectory("root-of-all");
  fs::copy_file("/bin/true", root + "/tool");
  const posix::FileDescriptor outside(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::chroot(root.c_str()), 0);
  EXPECT_EQ(openTool("/tool").status, 0);
  for (const mode_t mode : {0775U, 0757U}) {
    setMode("/", mode);
    EXPECT_EQ(openTool("/tool").status, EACCES) << mode;
  }
  setMode("/", 0755);
  give("/");
  EXPECT_EQ(openTool("/tool").status, EACCES);
  // A sanitizer looks at /proc when the test ends.
  ASSERT_TRUE(::fchdir(outside.get()) == 0 && ::chroot(".") == 0);
}

TEST_F(ToolTest, ALinkOfRootIsFollowed) {
  fs::create_symlink("tool", folder_ + "/relative");
  fs::create_symlink(tool_, folder_ + "/absolute");
  fs::create_directory_symlink(folder_, "/usr/local/share/folder");
  EXPECT_EQ(openTool(folder_ + "/relative").status, 0);
  EXPECT_EQ(openTool(folder_ + "/absolute").status, 0);
  EXPECT_EQ(openTool("/usr/local/share/folder/../tools/./tool").status, 0);
}

TEST_F(ToolTest, ALinkOfAUserIsRefusedThoughItLeadsToAGoodTool) {
  const std::string link = folder_ + "/link";
  fs::create_symlink("/bin/true", link);
  give(link);
  EXPECT_EQ(openTool(link).status, EACCES);
}

TEST_F(ToolTest, ALinkIntoAUsersFolderIsRefused) {
  const std::string mine = sandbox_.homeOf(Sandbox::kConsoleUser) + "/tool";
  fs::copy_file("/bin/true", mine);
  fs::create_symlink(mine, folder_ + "/link");
  EXPECT_EQ(openTool(folder_ + "/link").status, EACCES);
}

TEST_F(ToolTest, LinksThatGoInCirclesEnd) {
  fs::create_symlink("b", folder_ + "/a");
  fs::create_symlink("a", folder_ + "/b");
  EXPECT_EQ(openTool(folder_ + "/a").status, ELOOP);
}

TEST_F(ToolTest, AFileSystemThatIsNotTrustedWithSetUserIdProgramsIsRefused) {
  ASSERT_EQ(::mount("tmpfs", folder_.c_str(), "tmpfs", MS_NOSUID, "mode=0755"), 0);
  fs::copy_file("/bin/true", tool_);
  EXPECT_EQ(openTool(tool_).status, EACCES);
  ASSERT_EQ(::mount(nullptr, folder_.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
  EXPECT_EQ(openTool(tool_).status, 0);
}

TEST_F(ToolTest, OnlyARegularExecutableFileIsATool) {
  EXPECT_EQ(openTool(folder_).status, EACCES);
  EXPECT_EQ(openTool("/").status, EACCES);
  setMode(tool_, 0644);
  EXPECT_EQ(openTool(tool_).status, EACCES);
  ASSERT_EQ(::mkfifo((folder_ + "/pipe").c_str(), 0755), 0);
  EXPECT_EQ(openTool(folder_ + "/pipe").status, EACCES);
}

TEST_F(ToolTest, WhatIsMissingIsSaidToBe) {
  EXPECT_EQ(openTool(folder_ + "/missing").status, ENOENT);
  EXPECT_EQ(openTool(tool_ + "/below").status, ENOTDIR);
  EXPECT_EQ(openTool("bin/true").status, EINVAL);
  EXPECT_EQ(openTool("").status, EINVAL);
  EXPECT_EQ(openTool("/" + std::string(300, 'x')).status, ENAMETOOLONG);
}

TEST_F(ToolTest, AScriptIsKnown) {
  std::ofstream(folder_ + "/script") << "#!/bin/sh\n";
  setMode(folder_ + "/script", 0755);
  EXPECT_TRUE(openTool(folder_ + "/script").isScript);
}

}  // namespace
