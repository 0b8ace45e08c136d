#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "elevator/Spawn.h"
#include "elevator/Tool.h"
#include "tests/support/Sandbox.h"

// One of the people swaps a folder for a link to root's folder, as fast as it goes, while root's
// tools work there.
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::Sandbox;

constexpr std::chrono::seconds kTime(2);
constexpr char kSecret[] = "secret";

class LinkRaceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    roots_ = sandbox_.makeDirectory("roots");
    sandbox_.makeFile("roots/file", kSecret);
    fs::permissions(roots_ + "/file", fs::perms(0600));
    fresh_ = sandbox_.makeFile("fresh/file", "new");
    home_ = sandbox_.homeOf("anna");
  }

  void TearDown() override {
    if (attacker_ <= 0) return;
    ::kill(attacker_, SIGKILL);
    ::waitpid(attacker_, nullptr, 0);
  }

  // Anna has a folder and a link to root's and exchanges them for ever.
  void attack() {
    attacker_ = ::fork();
    if (attacker_ != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    sandbox_.becomeUser("anna");
    const std::string folder = home_ + "/App";
    const std::string link = home_ + "/evil";
    fs::create_directory(folder);
    fs::create_symlink(roots_, link);
    for (;;) ::syscall(SYS_renameat2, AT_FDCWD, folder.c_str(), AT_FDCWD, link.c_str(), 2U);
  }

  // How often the tool could be started and did succeed.
  void race(const char* name, const std::function<std::vector<std::string>(int)>& words) {
    attack();
    const posix::FileDescriptor life(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    const elevator::ToolEnds ends = {{}, life.get()};
    const auto end = std::chrono::steady_clock::now() + kTime;
    int tries = 0;
    int started = 0;
    while (std::chrono::steady_clock::now() < end) {
      const std::vector<std::string> command = words(tries++);
      posix::FileDescriptor process;
      if (elevator::spawn(elevator::openTool(command.front()), command, ends, process) != 0) {
        continue;
      }
      ++started;
      elevator::collect(process);
      if (!isUntouched()) break;
    }
    std::printf("%s: %d tries, %d of them started\n", name, tries, started);
    EXPECT_GT(started, 0);
    EXPECT_TRUE(isUntouched()) << "after " << tries << " tries";
  }

  bool isUntouched() const {
    struct stat facts {};
    return readFile(roots_ + "/file") == kSecret &&
           ::stat((roots_ + "/file").c_str(), &facts) == 0 && facts.st_uid == 0 &&
           std::distance(fs::directory_iterator(roots_), fs::directory_iterator()) == 1;
  }

  Sandbox sandbox_;
  std::string home_;
  std::string roots_;
  std::string fresh_;
  pid_t attacker_ = 0;
};

TEST_F(LinkRaceTest, ACopyOverwritesNothingOfRoots) {
  race("cp", [&](int) {
    return std::vector<std::string>{"/bin/cp", "-f", "-p", "-R", fresh_, home_ + "/App"};
  });
}

TEST_F(LinkRaceTest, ACopyToANamePutsNothingIntoRootsFolder) {
  race("cp to a name", [&](int number) {
    return std::vector<std::string>{
        "/bin/cp", "-f", "-p", "-R", fresh_, home_ + "/App/planted" + std::to_string(number)};
  });
}

TEST_F(LinkRaceTest, AMovePutsNothingIntoRootsFolder) {
  race("mv", [&](int number) {
    const std::string name = "move" + std::to_string(number);
    return std::vector<std::string>{"/bin/mv", "-f", sandbox_.makeFile("fresh/" + name),
                                    home_ + "/App/" + name};
  });
}

TEST_F(LinkRaceTest, AMoveTakesNothingOutOfRootsFolder) {
  race("mv away", [&](int) {
    return std::vector<std::string>{"/bin/mv", "-f", home_ + "/App/file", home_ + "/stolen"};
  });
}

TEST_F(LinkRaceTest, ARemovalRemovesNothingOfRoots) {
  race("rm", [&](int) { return std::vector<std::string>{"/bin/rm", "-Rdf", home_ + "/App/file"}; });
}

TEST_F(LinkRaceTest, AFolderIsNotMadeInRoots) {
  race("mkdir", [&](int number) {
    return std::vector<std::string>{"/bin/mkdir", "-p",
                                    home_ + "/App/made" + std::to_string(number)};
  });
}

TEST_F(LinkRaceTest, NothingOfRootsIsGivenAway) {
  race("chown", [&](int) {
    return std::vector<std::string>{"/bin/chown", "-R", "61001", home_ + "/App/file"};
  });
}

TEST_F(LinkRaceTest, NothingIsTouchedInRoots) {
  race("touch", [&](int number) {
    return std::vector<std::string>{"/usr/bin/touch",
                                    home_ + "/App/touched" + std::to_string(number)};
  });
}

}  // namespace
