#include "tests/support/PrivateMachine.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <utility>

#include "tests/support/Janitor.h"
#include "tests/support/Sandbox.h"

namespace test {
namespace fs = std::filesystem;
namespace {

// What the list of mounts calls the file systems of such a machine.
constexpr char kName[] = "qv-private-machine";

struct EmptyFolder {
  const char* path;
  const char* mode;
};
constexpr EmptyFolder kEmptyFolders[] = {
    {"/tmp", "1777"}, {"/run", "755"}, {"/dev/shm", "1777"}, {"/home", "755"}, {"/root", "700"}};
constexpr std::array kCopiedFolders{"/var", "/usr/local"};

void check(bool ok, const std::string& what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

void setReadOnly(int folder, bool readOnly) {
  mount_attr change = {};
  (readOnly ? change.attr_set : change.attr_clr) = MOUNT_ATTR_RDONLY;
  check(::mount_setattr(folder, "", AT_EMPTY_PATH | AT_RECURSIVE, &change, sizeof change) == 0,
        "mount_setattr");
}

void mountMemory(const std::string& folder, const std::string& mode) {
  check(::mount(kName, folder.c_str(), "tmpfs", 0, ("mode=" + mode).c_str()) == 0,
        "tmpfs " + folder);
}

// A folder as it is seen now, to be shown at its place again when something covers it.
class KeptFolder {
 public:
  explicit KeptFolder(std::string path)
      : path_(std::move(path)),
        tree_(::open_tree(AT_FDCWD, path_.c_str(),
                          OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE)) {
    check(tree_ >= 0, "open_tree " + path_);
  }
  KeptFolder(KeptFolder&& other) noexcept
      : path_(std::move(other.path_)), tree_(std::exchange(other.tree_, -1)) {}
  KeptFolder& operator=(KeptFolder&&) = delete;
  ~KeptFolder() {
    if (tree_ >= 0) ::close(tree_);
  }

  void setReadOnly(bool readOnly) const { test::setReadOnly(tree_, readOnly); }
  void showAgain() const {
    fs::create_directories(path_);
    check(::move_mount(tree_, "", AT_FDCWD, path_.c_str(), MOVE_MOUNT_F_EMPTY_PATH) == 0,
          "move_mount " + path_);
  }

 private:
  std::string path_;
  int tree_;
};

bool isOverlay(const std::string& folder) {
  struct statfs status = {};
  return ::statfs(folder.c_str(), &status) == 0 && status.f_type == OVERLAYFS_SUPER_MAGIC;
}

std::string makeScratch() {
  std::string name = (fs::canonical(fs::temp_directory_path()) / "qv-tests-XXXXXX").string();
  check(::mkdtemp(name.data()) != nullptr, "mkdtemp " + name);
  check(::chmod(name.c_str(), 0755) == 0, "chmod " + name);
  return name;
}

void makeEverythingReadOnly() {
  check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
  const KeptFolder processes("/proc");
  const int root = ::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
  setReadOnly(root, true);
  ::close(root);
  processes.showAgain();
}

// Shows at `folder` what it holds; changes are kept in memory.
void copyInMemory(const std::string& folder, const std::string& memory) {
  const std::string upper = memory + folder + "/upper";
  const std::string work = memory + folder + "/work";
  fs::create_directories(upper);
  fs::create_directories(work);
  const std::string options = "lowerdir=" + folder + ",upperdir=" + upper + ",workdir=" + work;
  check(::mount(kName, folder.c_str(), "overlay", 0, options.c_str()) == 0, "overlay " + folder);
}

void coverFolders() {
  for (const EmptyFolder& folder : kEmptyFolders) {
    if (fs::is_directory(folder.path)) mountMemory(folder.path, folder.mode);
  }
  const std::string memory = "/run/changes";
  fs::create_directory(memory);
  for (const std::string folder : kCopiedFolders) copyInMemory(folder, memory);
}

// Where no service was ever started, as in a container, nobody has made these either.
void makePlacesOfServices() {
  for (const char* folder : {"/run/systemd", "/run/dbus", "/run/user"}) {
    fs::create_directories(folder);
  }
}

void enter(const std::string& scratch) {
  check(::unshare(CLONE_NEWNS) == 0, "unshare");
  const KeptFolder writable(scratch);
  makeEverythingReadOnly();
  const KeptFolder sources(fs::path(QV_TEST_SOURCES).parent_path());
  const KeptFolder programs(QV_TEST_BUILD);
  coverFolders();
  makePlacesOfServices();
  for (const KeptFolder* folder : {&sources, &programs, &writable}) folder->showAgain();
  // An overlay is no place for another one, and has neither locks nor attributes.
  if (isOverlay(scratch)) mountMemory(scratch, "755");
  ::setenv("TMPDIR", scratch.c_str(), 1);
}

// Nothing keeps the superuser from harming the machine then, so the tests do without those rights.
void becomeOrdinaryUser(const std::string& scratch) {
  // nobody: buses ask for a name.
  constexpr unsigned kId = 65534;
  check(::chown(scratch.c_str(), kId, kId) == 0, "chown " + scratch);
  check(::setgroups(0, nullptr) == 0, "setgroups");
  check(::setresgid(kId, kId, kId) == 0, "setresgid");
  check(::setresuid(kId, kId, kId) == 0, "setresuid");
  ::setenv("TMPDIR", scratch.c_str(), 1);
  ::setenv("HOME", scratch.c_str(), 1);
}

// Whether all of it is allowed is only known when it is done.
void enterIfAllowed(const std::string& scratch) {
  const int outside = ::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
  try {
    enter(scratch);
  } catch (const std::system_error& refusal) {
    std::cerr << "No machine of its own: " << refusal.what() << '\n';
    if (::setns(outside, CLONE_NEWNS) != 0 && errno != EPERM) throw;
    becomeOrdinaryUser(scratch);
  }
  ::close(outside);
}

// The first process of a namespace also ends what others have left behind.
int statusOf(pid_t child) {
  int status = 0;
  for (pid_t ended = 0; ended != child;) {
    ended = ::waitpid(-1, &status, 0);
    if (ended < 0 && errno != EINTR) return -1;
  }
  return status;
}

[[noreturn]] void endAs(int status) {
  if (WIFSIGNALED(status)) {
    // The child has written the core, if there is to be one.
    const rlimit none = {};
    ::setrlimit(RLIMIT_CORE, &none);
    ::signal(WTERMSIG(status), SIG_DFL);
    ::raise(WTERMSIG(status));
  }
  ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE);
}

}  // namespace

// static
int PrivateMachine::run(const std::function<int()>& tests) {
  if (::geteuid() != 0 || isEntered()) return tests();
  const std::string scratch = makeScratch();
  const pid_t child = ::fork();
  check(child >= 0, "fork");
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    enterIfAllowed(scratch);
    return tests();
  }
  const int status = statusOf(child);
  removeTree(scratch);
  endAs(status);
}

// static
bool PrivateMachine::isEntered() {
  return readFile("/proc/self/mountinfo").find(kName) != std::string::npos;
}

}  // namespace test
