#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Shared/CrashLogs.h"
#include "Shared/LogFiles.h"
#include "Shared/QVBugReporter.h"
#include "Shared/QVLog.h"
#include "platform/Directories.h"
#include "platform/PropertyList.h"
#include "posix/FileDescriptor.h"
#include "tests/support/Sandbox.h"

// What the person at the console, anna, prepares in the places of her home that a run of the
// superuser's goes to by itself.
namespace {

namespace fs = std::filesystem;
namespace property_list = platform::property_list;
using namespace std::chrono_literals;
using test::readFile;
using test::Sandbox;
using Clock = std::chrono::steady_clock;

class PersonsPlacesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(Sandbox::kConsoleUser);
    fs::create_directories("/var/lib/quorvale/Library/Logs/Quorvale");
    roots_ = sandbox_.makeDirectory("roots");
  }

  std::string home() const { return sandbox_.homeOf(Sandbox::kConsoleUser); }
  // Makes a folder in anna's home, hers as all above it.
  std::string annas(const std::string& relative) const {
    std::string folder = home();
    for (const fs::path& name : fs::path(relative)) {
      folder += "/" + name.string();
      fs::create_directory(folder);
      EXPECT_EQ(::chown(folder.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
    }
    return folder;
  }
  // A link of anna's.
  static void link(const std::string& target, const std::string& at) {
    fs::create_symlink(target, at);
    EXPECT_EQ(::lchown(at.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  }
  // Files of root's that are named as logs are.
  void makeRootsLogs(const std::string& name) const {
    for (int number = 1; number <= 5; ++number) {
      std::ofstream(roots_ + "/" + name + "." + std::to_string(number) + ".log") << number;
    }
  }
  std::string rootsLog(const std::string& name, int number) const {
    return readFile(roots_ + "/" + name + "." + std::to_string(number) + ".log");
  }
  std::string preferences() const {
    return annas("Library/Preferences") + "/com.quorvale.global.plist";
  }

  Sandbox sandbox_;
  std::string roots_;
};

TEST_F(PersonsPlacesTest, RotationThroughALinkLeavesRootsFolderAlone) {
  link(roots_, annas("Library/Logs") + "/Quorvale");
  makeRootsLogs("victim");
  log_files::rotate(home() + "/Library/Logs/Quorvale", "victim");
  for (int number = 1; number <= 5; ++number) {
    EXPECT_EQ(rootsLog("victim", number), std::to_string(number));
  }
}

TEST_F(PersonsPlacesTest, AFolderThatIsSwappedForALinkWhileItIsRotatedPlantsNothing) {
  const std::string folder = annas("Library/Logs/Quorvale");
  const std::string away = folder + "-away";
  std::atomic<bool> ending = false;
  std::thread swapper([&] {
    while (!ending) {
      ::rename(folder.c_str(), away.c_str());
      if (::symlink(roots_.c_str(), folder.c_str()) == 0) ::unlink(folder.c_str());
      ::rename(away.c_str(), folder.c_str());
    }
  });
  int tries = 0;
  for (const auto end = Clock::now() + 2s; Clock::now() < end; ++tries) {
    for (const std::string& at : {folder, away}) std::ofstream(at + "/planted.1.log") << "evil";
    log_files::rotate(folder, "planted");
  }
  ending = true;
  swapper.join();
  RecordProperty("tries", tries);
  std::printf("%d tries\n", tries);
  fs::remove(roots_ + "/planted.1.log");  // this test's own, through the link
  EXPECT_TRUE(fs::is_empty(roots_));
}

TEST_F(PersonsPlacesTest, PreferencesThatAreADeviceAreNotOpened) {
  // Opening the far end of a terminal that nobody has is seen by its near end.
  const posix::FileDescriptor near(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_TRUE(near);
  ASSERT_EQ(::grantpt(near.get()), 0);
  ASSERT_EQ(::unlockpt(near.get()), 0);
  link(::ptsname(near.get()), preferences());
  QVLog::createNewLog();
  EXPECT_FALSE(property_list::read(preferences()));
  char byte = 0;
  // "Input/output error" would say that the other end was open and is closed again.
  ::fcntl(near.get(), F_SETFL, O_NONBLOCK);
  EXPECT_EQ(::read(near.get(), &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(PersonsPlacesTest, RootsFilesAreNotReadThroughLinks) {
  const std::string secret = roots_ + "/secret.plist";
  ASSERT_TRUE(
      property_list::write(secret, {{"disable-logging", true}}, property_list::Format::xml).ok());
  fs::permissions(secret, fs::perms(0600));
  link(secret, preferences());
  EXPECT_FALSE(property_list::read(preferences()));
  QVLog::createNewLog();
  EXPECT_FALSE(QVLog::sharedController().loggingDisabled());

  const std::string folders = annas(".config") + "/user-dirs.dirs";
  const std::string rootsFolders = roots_ + "/user-dirs.dirs";
  std::ofstream(rootsFolders) << "XDG_DOCUMENTS_DIR=\"$HOME/Secret\"\n";
  fs::permissions(rootsFolders, fs::perms(0600));
  link(rootsFolders, folders);
  const auto documents = platform::directories::searchPaths(
      platform::directories::Kind::documents, platform::directories::DomainMask::user);
  for (const std::string& path : documents) EXPECT_FALSE(path.ends_with("/Secret")) << path;
}

TEST_F(PersonsPlacesTest, APipeInThePlaceOfPreferencesHoldsNobody) {
  ASSERT_EQ(::mkfifo(preferences().c_str(), 0666), 0);
  const auto begin = Clock::now();
  QVLog::createNewLog();
  EXPECT_LT(Clock::now() - begin, 5s);
}

TEST_F(PersonsPlacesTest, CrashLogsAreNotClearedAwayInRootsFolder) {
  link(roots_, annas("Library/Logs") + "/DiagnosticReports");
  for (int i = 0; i < 30; ++i) {
    std::ofstream(roots_ + "/PersonsPlacesTest_" + std::to_string(i) + ".crash") << i;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    crash_logs::startWriting();
    ::abort();
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(std::distance(fs::directory_iterator(roots_), fs::directory_iterator()), 30);
}

TEST_F(PersonsPlacesTest, ARecordThatIsALinkGivesNothingOfRootsAway) {
  const std::string folder = annas("Users/anna");
  const std::string secret = roots_ + "/shadow";
  std::ofstream(secret) << "secret";
  link(secret, folder + "/record.plist");
  QVBugReporter::chownPlist(folder + "/record.plist");
  QVBugReporter::startBugReporter("Sample", folder + "/record.plist");
  struct stat status {};
  ASSERT_EQ(::stat(secret.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(readFile(secret), "secret");
}

TEST_F(PersonsPlacesTest, TheSuperusersLogIsWrittenAlthoughTheHomeIsALink) {
  fs::remove(home());
  link("/proc/self", home());
  QVLog::createNewLog();
  QVLog::appendLog("text");
  QVLog::finishWriting();
  EXPECT_FALSE(fs::exists("/proc/self/Library"));
}

// A file system of anna's whose program takes every question and answers none but the first.
class SilentFileSystem {
 public:
  explicit SilentFileSystem(const std::string& at)
      : device_(::open("/dev/fuse", O_RDWR | O_CLOEXEC)), at_(at) {
    if (!device_) return;
    const std::string id = std::to_string(Sandbox::kConsoleUserId);
    const std::string options = "fd=" + std::to_string(device_.get()) +
                                ",rootmode=40755,user_id=" + id + ",group_id=" + id +
                                ",allow_other";
    mounted_ =
        ::mount("silent", at.c_str(), "fuse.silent", MS_NOSUID | MS_NODEV, options.c_str()) == 0;
    if (mounted_) greet();
  }
  ~SilentFileSystem() {
    // Whoever waits is told that it has gone.
    device_.reset();
    ::umount2(at_.c_str(), MNT_DETACH);
  }
  SilentFileSystem(const SilentFileSystem&) = delete;
  SilentFileSystem& operator=(const SilentFileSystem&) = delete;

  bool isMounted() const { return mounted_; }
  // Takes what has been asked, so that whoever asked cannot even be killed.
  void takeQuestions() {
    std::vector<char> question(1 << 17);
    ::fcntl(device_.get(), F_SETFL, O_NONBLOCK);
    while (::read(device_.get(), question.data(), question.size()) > 0) {
    }
  }

 private:
  void greet() {
    std::vector<char> question(1 << 17);
    if (::read(device_.get(), question.data(), question.size()) <= 0) return;
    fuse_in_header asked{};
    std::memcpy(&asked, question.data(), sizeof asked);
    struct {
      fuse_out_header header;
      fuse_init_out init;
    } answer{};
    answer.header = {sizeof answer, 0, asked.unique};
    answer.init.major = FUSE_KERNEL_VERSION;
    answer.init.minor = FUSE_KERNEL_MINOR_VERSION;
    answer.init.max_write = 4096;
    static_cast<void>(::write(device_.get(), &answer, sizeof answer));
  }

  posix::FileDescriptor device_;
  const std::string at_;
  bool mounted_ = false;
};

TEST_F(PersonsPlacesTest, AHomeThatNeverAnswersCostsTenSecondsAtMost) {
  SilentFileSystem silent(annas("Library"));
  if (!silent.isMounted()) GTEST_SKIP() << "needs a device for file systems of users";
  std::atomic<bool> ending = false;
  std::thread taker([&] {
    while (!ending) {
      silent.takeQuestions();
      std::this_thread::sleep_for(10ms);
    }
  });
  const auto begin = Clock::now();
  crash_logs::startWriting();
  QVLog::createNewLog();
  QVLog::appendLog("text");
  QVLog::finishWriting();
  QVBugReporter::startBugReporter("Sample", home() + "/Library/record.plist");
  EXPECT_TRUE(QVLog::availableLogs().empty());
  EXPECT_LT(Clock::now() - begin, 10s);
  ending = true;
  taker.join();
}

}  // namespace
