#include "Shared/QVAuthorization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Shared/QVLog.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/HeldTool.h"
#include "tests/support/Polkit.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using test::consoleOf;
using test::passesAs;
using test::Polkit;
using test::readFile;
using test::Sandbox;
using test::waitFor;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr char kUser[] = "anna";

// A folder that is just being copied may be closed to all but its owner.
bool appears(const std::string& path) {
  return waitFor([&path] {
    std::error_code closed;
    return fs::exists(path, closed);
  });
}

bool disappears(const std::string& path) {
  return waitFor([&path] { return !fs::exists(fs::symlink_status(path)); });
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

// Keeps the process from opening anything while it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none = {0, before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_ = {};
};

std::string loggedText() {
  QVLog::finishWriting();
  std::string text;
  for (const std::string& path : QVLog::availableLogs()) text += readFile(path);
  return text;
}

class QVAuthorizationTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(kUser);
    trash_ = sandbox_.homeOf(kUser) + "/.Trash";
    fs::create_directory(trash_);
    fs::permissions(trash_, fs::perms::all);
  }

  // A session of the user who becomes the superuser afterwards.
  static QVAuthorization& sessionMadeByUser() {
    EXPECT_EQ(::setresuid(Sandbox::kConsoleUserId, 0, 0), 0);
    QVAuthorization& session = QVAuthorization::sharedController();
    EXPECT_EQ(::setuid(0), 0);
    return session;
  }

  // The one that they show, closed to others, and the user's.
  void expectTrashOfFileManagers() const {
    const fs::path files = sandbox_.homeOf(kUser) + "/.local/share/Trash/files";
    EXPECT_EQ(fs::canonical(trash_), files);
    struct stat facts = {};
    ASSERT_EQ(::stat(files.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_uid, Sandbox::kConsoleUserId);
    EXPECT_EQ(facts.st_mode & 07777, 0700U);
  }

  Sandbox sandbox_;
  std::string trash_;
};

using QVAuthorizationAsSuperuserTest = QVAuthorizationTest;

// --- The shared instance ---

TEST_F(QVAuthorizationTest, TheFirstCallDecidesWhetherThereIsADialog) {
  QVAuthorization& session = QVAuthorization::sharedController(false);
  EXPECT_FALSE(session.hasGUI());
  EXPECT_EQ(&QVAuthorization::sharedController(), &session);
  EXPECT_FALSE(session.hasGUI());
}

TEST_F(QVAuthorizationTest, TheFirstCallWithoutAFlagMayShowADialog) {
  EXPECT_TRUE(QVAuthorization::sharedController().hasGUI());
  EXPECT_TRUE(QVAuthorization::sharedController(false).hasGUI());
}

TEST_F(QVAuthorizationTest, TheInstanceIsRegisteredWhenItIsAllocated) {
  QVAuthorization* first = QVAuthorization::allocWithZone();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(QVAuthorization::allocWithZone(), nullptr);
  EXPECT_EQ(&QVAuthorization::sharedController(), first);
  EXPECT_FALSE(first->hasGUI()) << "it was never initialised";
}

TEST_F(QVAuthorizationTest, ManyThreadsGetOneInstance) {
  std::vector<QVAuthorization*> seen(8);
  std::vector<std::thread> threads;
  for (auto& place : seen) {
    threads.emplace_back([&place] { place = &QVAuthorization::sharedController(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(seen.front()));
}

TEST_F(QVAuthorizationTest, KeepingAndLettingGoDoNothing) {
  QVAuthorization& session = QVAuthorization::sharedController();
  session.release();
  EXPECT_EQ(session.retain(), &session);
  EXPECT_EQ(session.autorelease(), &session);
  EXPECT_EQ(session.copyWithZone(), &session);
  EXPECT_EQ(QVAuthorization::retainCount(), 4294967295U);
  session.finalize();
  session.dealloc();
  EXPECT_EQ(&QVAuthorization::sharedController(), &session);
}

// --- As superuser ---

TEST_F(QVAuthorizationAsSuperuserTest, EveryStepSucceedsWithoutASession) {
  QVAuthorization& session = QVAuthorization::sharedController(false);
  EXPECT_TRUE(session.isAuthorized());
  EXPECT_TRUE(session.canAuthorize());
  EXPECT_TRUE(session.authStart());
  EXPECT_TRUE(session.authStartWithUser("nobody", "wrong"));
  EXPECT_TRUE(session.authStartWithUser(std::nullopt, std::nullopt));
  EXPECT_EQ(session.authRef(), nullptr);
  session.authEnd();
  EXPECT_TRUE(session.isAuthorized());
}

TEST_F(QVAuthorizationAsSuperuserTest, AMissingToolIsReported) {
  EXPECT_EQ(consoleOf([] {
              EXPECT_EQ(QVAuthorization::sharedController().authExecTask("/no/tool", {}), -2);
            }),
            "Unable to execute task: path /no/tool doesn't exist\n");
}

TEST_F(QVAuthorizationAsSuperuserTest, ARunIsASuccessWhateverTheToolSays) {
  EXPECT_EQ(QVAuthorization::sharedController().authExecTask("/bin/false", {}, false), 0);
  EXPECT_EQ(QVAuthorization::sharedController().authExecTask("/bin/false", {}), 0);
}

TEST_F(QVAuthorizationAsSuperuserTest, AWaitedRunReturnsAfterTheTool) {
  const std::string made = sandbox_.path("made");
  QVAuthorization::sharedController().authExecTask("/bin/mkdir", {made}, false);
  EXPECT_TRUE(fs::exists(made));
}

TEST_F(QVAuthorizationAsSuperuserTest, AnUnwaitedRunReturnsBeforeTheTool) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(QVAuthorization::sharedController().authExecTask("/bin/sleep", {"5"}), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST_F(QVAuthorizationAsSuperuserTest, AnItemIsRemoved) {
  const std::string file = sandbox_.makeFile("a/b/c.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authRemoveFile(sandbox_.path("a")));
  EXPECT_TRUE(disappears(sandbox_.path("a")));
}

TEST_F(QVAuthorizationAsSuperuserTest, AnItemIsMoved) {
  const std::string file = sandbox_.makeFile("a.txt", "a");
  const std::string moved = sandbox_.path("b.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authMoveFile(file, moved));
  EXPECT_TRUE(appears(moved));
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(QVAuthorizationAsSuperuserTest, AnItemIsMovedOverTheOneThatHasItsName) {
  const std::string moved = sandbox_.makeFile("b.txt", "b");
  EXPECT_TRUE(
      QVAuthorization::sharedController().authMoveFile(sandbox_.makeFile("a.txt", "a"), moved));
  EXPECT_TRUE(waitFor([&] { return readFile(moved) == "a"; }));
}

TEST_F(QVAuthorizationAsSuperuserTest, AProgramThatRunsIsReplacedByTheCopy) {
  const std::string folder = sandbox_.makeDirectory("to");
  const std::string program = folder + "/sleep";
  fs::copy_file("/bin/sleep", program);
  const test::ChildProgram running({program, "300"});
  ASSERT_TRUE(waitFor([&] {
    std::error_code starting;
    return fs::read_symlink("/proc/" + std::to_string(running.id()) + "/exe", starting) == program;
  }));
  EXPECT_TRUE(
      QVAuthorization::sharedController().authCopyFile(sandbox_.makeFile("sleep", "new"), folder));
  EXPECT_TRUE(waitFor([&] { return readFile(program) == "new"; }));
}

TEST_F(QVAuthorizationAsSuperuserTest, AnItemIsCopiedWithItsModeAndTime) {
  const std::string file = sandbox_.makeFile("A.app/Contents/x", "a");
  fs::permissions(file, fs::perms::owner_read);
  fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(48));
  const std::string folder = sandbox_.makeDirectory("to");
  EXPECT_TRUE(QVAuthorization::sharedController().authCopyFile(sandbox_.path("A.app"), folder));
  const std::string copy = folder + "/A.app/Contents/x";
  EXPECT_TRUE(waitFor([&] {
    return readFile(copy) == "a" && fs::last_write_time(copy) == fs::last_write_time(file);
  }));
  EXPECT_EQ(fs::status(copy).permissions(), fs::perms::owner_read);
}

TEST_F(QVAuthorizationAsSuperuserTest, AFolderIsMadeWithThoseAboveIt) {
  const std::string folder = sandbox_.path("x/y/z");
  EXPECT_TRUE(QVAuthorization::sharedController().authCreateDir(folder));
  EXPECT_TRUE(appears(folder));
}

TEST_F(QVAuthorizationAsSuperuserTest, AFileGoesToTheConsoleUsersTrash) {
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFile(file));
  EXPECT_TRUE(appears(trash_ + "/a.txt"));
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(QVAuthorizationAsSuperuserTest, AMissingTrashIsMadeForTheConsoleUser) {
  fs::remove(trash_);
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFile(file));
  EXPECT_TRUE(appears(trash_ + "/a.txt"));
  expectTrashOfFileManagers();
}

TEST_F(QVAuthorizationAsSuperuserTest, AMissingTrashInAnotherHomeIsNotMadeAndNothingIsLost) {
  sandbox_.setConsoleUser("bert");
  ::setenv("HOME", sandbox_.homeOf(kUser).c_str(), 1);
  fs::remove(trash_);
  QVAuthorization& session = sessionMadeByUser();
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_FALSE(session.authTrashFile(file));
  EXPECT_FALSE(waitFor([&] { return !fs::exists(file); }, std::chrono::milliseconds(300)));
  EXPECT_FALSE(fs::exists(fs::symlink_status(trash_)));
}

TEST_F(QVAuthorizationAsSuperuserTest, ATakenNameGetsTheTime) {
  sandbox_.makeFile("home/anna/.Trash/a.txt", "old");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFile(sandbox_.makeFile("a.txt")));
  EXPECT_TRUE(disappears(sandbox_.path("a.txt")));
  EXPECT_THAT(namesIn(trash_),
              testing::UnorderedElementsAre("a.txt", MatchesRegex("a_20[0-9]{12}\\.txt")));
  EXPECT_EQ(readFile(trash_ + "/a.txt"), "old");
}

TEST_F(QVAuthorizationAsSuperuserTest, ATakenNameWithoutExtensionEndsInABareDot) {
  fs::create_directory(trash_ + "/Folder");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFile(sandbox_.makeDirectory("Folder")));
  EXPECT_TRUE(disappears(sandbox_.path("Folder")));
  EXPECT_THAT(namesIn(trash_),
              testing::UnorderedElementsAre("Folder", MatchesRegex("Folder_20[0-9]{12}\\.")));
}

TEST_F(QVAuthorizationAsSuperuserTest, ATrailingSlashIsNotPartOfTheName) {
  EXPECT_TRUE(
      QVAuthorization::sharedController().authTrashFile(sandbox_.makeDirectory("A.app") + "/"));
  EXPECT_TRUE(appears(trash_ + "/A.app"));
  EXPECT_TRUE(fs::is_directory(trash_));
}

TEST_F(QVAuthorizationAsSuperuserTest, NothingThatHasNoNameIsTrashed) {
  QVAuthorization& session = QVAuthorization::sharedController();
  sandbox_.makeFile("home/anna/.Trash/kept");
  const std::string folder = sandbox_.makeDirectory("folder");
  for (const QVAuthorization::Path& path :
       {QVAuthorization::Path(), QVAuthorization::Path(""), QVAuthorization::Path("//"),
        QVAuthorization::Path("relative"), QVAuthorization::Path(folder + "/."),
        QVAuthorization::Path(folder + "/..")}) {
    for (const bool deleteOnRootAccount : {false, true}) {
      EXPECT_FALSE(session.authTrashFile(path, deleteOnRootAccount)) << path.value_or("none");
    }
  }
  EXPECT_THAT(namesIn(trash_), testing::ElementsAre("kept"));
}

TEST_F(QVAuthorizationAsSuperuserTest, NothingThatHasNoNameIsMovedOrRemoved) {
  QVAuthorization& session = QVAuthorization::sharedController();
  const std::string kept = sandbox_.makeFile("folder/in/kept");
  const std::string to = sandbox_.makeDirectory("to");
  for (const char* path : {"folder/.", "folder/in/.."}) {
    EXPECT_FALSE(session.authRemoveFile(sandbox_.path(path))) << path;
    EXPECT_FALSE(session.authMoveFile(sandbox_.path(path), to)) << path;
  }
  EXPECT_TRUE(fs::exists(kept));
  EXPECT_TRUE(fs::is_empty(to));
}

TEST_F(QVAuthorizationAsSuperuserTest, WithNobodyAtTheConsoleThereIsNoTrash) {
  sandbox_.setNobodyAtConsole();
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_EQ(
      consoleOf([&] { EXPECT_FALSE(QVAuthorization::sharedController().authTrashFile(file)); }),
      "Error in authMoveFile: new path is null\n");
  EXPECT_FALSE(QVAuthorization::sharedController().authTrashFile(file, true));
  EXPECT_TRUE(fs::exists(file));
}

// What is removed is what stands under the item's name in the Trash. Where something does, that
// name is taken, so the name with the time is removed, and nothing bears that.
TEST_F(QVAuthorizationAsSuperuserTest, DeletingInsteadOfTrashingLeavesTheItemItself) {
  const std::string file = sandbox_.makeFile("a.txt");
  sandbox_.makeFile("home/anna/.Trash/a.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFile(file, true));
  EXPECT_TRUE(fs::exists(file));
  EXPECT_TRUE(fs::exists(trash_ + "/a.txt"));
}

TEST_F(QVAuthorizationAsSuperuserTest, DeletingInsteadOfTrashingRemovesTheTrashName) {
  // A link that leads nowhere does not count as existing but can be removed.
  fs::create_symlink("/nowhere", trash_ + "/a.txt");
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFile(file, true));
  EXPECT_TRUE(disappears(trash_ + "/a.txt"));
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(QVAuthorizationAsSuperuserTest, ASessionMadeByAUserTrashesIntoThatUsersTrash) {
  sandbox_.setConsoleUser("bert");
  ::setenv("HOME", sandbox_.homeOf(kUser).c_str(), 1);
  QVAuthorization& session = sessionMadeByUser();
  EXPECT_TRUE(session.authTrashFile(sandbox_.makeFile("a.txt")));
  EXPECT_TRUE(appears(trash_ + "/a.txt"));
  EXPECT_TRUE(session.authTrashFile(sandbox_.makeFile("b.txt"), true));
  EXPECT_TRUE(appears(trash_ + "/b.txt")) << "with a home noted, nothing is removed instead";
  EXPECT_FALSE(fs::exists(sandbox_.homeOf("bert") + "/.Trash"));
}

TEST_F(QVAuthorizationAsSuperuserTest, TheContentsOfAFolderAreTrashed) {
  sandbox_.makeFile("folder/a.txt");
  sandbox_.makeFile("folder/.hidden");
  const std::string folder = sandbox_.path("folder");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFolderContents(folder));
  EXPECT_TRUE(waitFor([&] { return fs::is_empty(folder); }));
  EXPECT_THAT(namesIn(trash_), testing::UnorderedElementsAre("a.txt", ".hidden"));
}

TEST_F(QVAuthorizationAsSuperuserTest, TheContentsOfAFolderAreDeletedInstead) {
  sandbox_.makeFile("folder/a/b.txt");
  sandbox_.makeFile("folder/.hidden");
  const std::string folder = sandbox_.path("folder");
  EXPECT_TRUE(QVAuthorization::sharedController().authTrashFolderContents(folder, true));
  EXPECT_TRUE(waitFor([&] { return fs::is_empty(folder); }));
  EXPECT_TRUE(fs::is_empty(trash_));
}

TEST_F(QVAuthorizationAsSuperuserTest, ASessionMadeByAUserTrashesTheContentsInsteadOfDeleting) {
  ::setenv("HOME", sandbox_.homeOf(kUser).c_str(), 1);
  QVAuthorization& session = sessionMadeByUser();
  sandbox_.makeFile("folder/a.txt");
  EXPECT_TRUE(session.authTrashFolderContents(sandbox_.path("folder"), true));
  EXPECT_TRUE(appears(trash_ + "/a.txt"));
}

TEST_F(QVAuthorizationAsSuperuserTest, AnEmptyOrUnreadableFolderHasNothingToTrash) {
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_TRUE(session.authTrashFolderContents(sandbox_.makeDirectory("empty")));
  EXPECT_TRUE(session.authTrashFolderContents(sandbox_.path("missing")));
  EXPECT_TRUE(session.authMoveFolderContents(sandbox_.path("missing"), sandbox_.root()));
  EXPECT_FALSE(session.authTrashFolderContents(std::nullopt));
  EXPECT_FALSE(session.authMoveFolderContents(std::nullopt, sandbox_.root()));
}

TEST_F(QVAuthorizationAsSuperuserTest, TheContentsOfAFolderAreMoved) {
  sandbox_.makeFile("from/a.txt");
  sandbox_.makeFile("from/sub/.b");
  const std::string to = sandbox_.makeDirectory("to");
  EXPECT_TRUE(
      QVAuthorization::sharedController().authMoveFolderContents(sandbox_.path("from"), to));
  EXPECT_TRUE(appears(to + "/a.txt"));
  EXPECT_TRUE(appears(to + "/sub/.b"));
}

TEST_F(QVAuthorizationAsSuperuserTest, EveryEntryIsAttemptedThoughOneFails) {
  // A link that leads nowhere counts as missing and is refused.
  const std::string from = sandbox_.makeDirectory("from");
  fs::create_symlink("/nowhere", from + "/a");
  sandbox_.makeFile("from/b");
  const std::string to = sandbox_.makeDirectory("to");
  EXPECT_FALSE(QVAuthorization::sharedController().authMoveFolderContents(from, to));
  EXPECT_TRUE(appears(to + "/b"));
  sandbox_.makeFile("from/c");
  EXPECT_FALSE(QVAuthorization::sharedController().authTrashFolderContents(from));
  EXPECT_TRUE(appears(trash_ + "/c"));
}

// Across file systems a move copies and removes; a copy in the middle of it would merge.
TEST_F(QVAuthorizationAsSuperuserTest, ASlowMoveAndACopyOntoItsPlaceLoseNothing) {
  constexpr std::ptrdiff_t kFiles = 500;
  const std::string other = sandbox_.mountTmpfs("other");
  const std::string place = sandbox_.makeDirectory("place");
  for (std::ptrdiff_t i = 0; i < kFiles; ++i) {
    sandbox_.makeFile("place/A.app/old" + std::to_string(i), "old");
    sandbox_.makeFile("new/A.app/new" + std::to_string(i), "new");
  }
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_TRUE(session.authMoveFile(place + "/A.app", other + "/A.app"));
  EXPECT_TRUE(session.authCopyFile(sandbox_.path("new/A.app"), place));
  const auto count = [](const std::string& folder) {
    std::error_code missing;
    return std::distance(fs::directory_iterator(folder, missing), {});
  };
  EXPECT_TRUE(waitFor([&] { return fs::exists(place + "/A.app/new0"); }));
  EXPECT_EQ(count(other + "/A.app"), kFiles);
  EXPECT_TRUE(waitFor([&] { return count(place + "/A.app") == kFiles; }));
  EXPECT_FALSE(fs::exists(place + "/A.app/old0"));
}

TEST_F(QVAuthorizationAsSuperuserTest, WithoutTheElevatorTheToolsRunAllTheSame) {
  ASSERT_EQ(::mount("/dev/null", QV_TEST_ELEVATOR, nullptr, MS_BIND, nullptr), 0);
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_TRUE(QVAuthorization::sharedController().authMoveFile(file, sandbox_.path("b.txt")));
  EXPECT_TRUE(appears(sandbox_.path("b.txt")));
  EXPECT_TRUE(QVAuthorization::sharedController().authRemoveFile(sandbox_.path("b.txt")));
  EXPECT_TRUE(disappears(sandbox_.path("b.txt")));
}

TEST_F(QVAuthorizationAsSuperuserTest, TheToolsAreRunThoughTheElevatorIsKilledInBetween) {
  const std::vector<pid_t> before = test::childIds();
  QVAuthorization& session = QVAuthorization::sharedController();
  for (const char* name : {"first", "second", "third"}) {
    EXPECT_TRUE(session.authCreateDir(sandbox_.path(name)));
    EXPECT_TRUE(appears(sandbox_.path(name))) << name;
    for (const pid_t child : test::childIds()) {
      if (!std::ranges::count(before, child)) ::kill(child, SIGKILL);
    }
  }
}

TEST_F(QVAuthorizationAsSuperuserTest, AToolThatCannotBeLaunchedIsAnsweredLikeAnyOther) {
  const std::string tool = sandbox_.makeFile("tool",
                                             "\x7f"
                                             "ELF, but no program");
  fs::permissions(tool, fs::perms(0755));
  EXPECT_EQ(QVAuthorization::sharedController().authExecTask(tool, {}), 0);
}

// Nobody would watch over a tool that is not waited for.
TEST_F(QVAuthorizationAsSuperuserTest, WithoutTheElevatorAToolHasEndedWhenTheCallReturns) {
  ASSERT_EQ(::mount("/dev/null", QV_TEST_ELEVATOR, nullptr, MS_BIND, nullptr), 0);
  const std::string file = sandbox_.makeFile("a.txt");
  for (int i = 0; i < 20; ++i) {
    const std::string copy = sandbox_.path("copy" + std::to_string(i));
    EXPECT_TRUE(QVAuthorization::sharedController().authCopyFile(file, copy));
    EXPECT_TRUE(fs::exists(copy)) << i;
  }
}

TEST_F(QVAuthorizationAsSuperuserTest, WithoutTheElevatorNoToolWorksWhereOthersMayPutALink) {
  ASSERT_EQ(::mount("/dev/null", QV_TEST_ELEVATOR, nullptr, MS_BIND, nullptr), 0);
  const std::string file = sandbox_.makeFile("a.txt");
  const std::string target = sandbox_.homeOf(kUser) + "/a.txt";
  EXPECT_FALSE(QVAuthorization::sharedController().authMoveFile(file, target));
  EXPECT_TRUE(fs::exists(file));
  EXPECT_FALSE(fs::exists(target));
}

// --- Refusals ---

TEST_F(QVAuthorizationAsSuperuserTest, SystemDirectoriesAreRefused) {
  QVAuthorization& session = QVAuthorization::sharedController();
  const std::string home = sandbox_.homeOf(kUser);
  const auto quoted = [](const std::string& start, const std::string& path) {
    return start + path + " because it is a system directory.\n";
  };
  for (const std::string& path : {std::string("/"), home, home + "/Library"}) {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authRemoveFile(path)); }),
              quoted("Unable to delete path ", path));
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authMoveFile(path, "/x")); }),
              quoted("Unable to move path ", path));
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authTrashFile(path, true)); }),
              quoted("Unable to trash path ", path));
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authTrashFolderContents(path)); }),
              quoted("Unable to trash folder contents of path ", path));
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authMoveFolderContents(path, "/x")); }),
              quoted("Unable to move contents of path ", path));
  }
  EXPECT_TRUE(fs::exists(trash_));
}

TEST_F(QVAuthorizationAsSuperuserTest, WhatIsInsideASystemDirectoryMayBeRemoved) {
  const std::string inside = "/var/lib/item";  // of the sandbox's own
  fs::create_directory(inside);
  EXPECT_TRUE(QVAuthorization::sharedController().authRemoveFile(inside));
  EXPECT_TRUE(disappears(inside));
}

TEST_F(QVAuthorizationAsSuperuserTest, ASystemDirectoryMayBeCopied) {
  sandbox_.makeFile("home/anna/Library/x", "a");
  const std::string to = sandbox_.makeDirectory("to");
  EXPECT_TRUE(
      QVAuthorization::sharedController().authCopyFile(sandbox_.homeOf(kUser) + "/Library", to));
  EXPECT_TRUE(appears(to + "/Library/x"));
}

TEST_F(QVAuthorizationAsSuperuserTest, MissingPathsAreReported) {
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_EQ(consoleOf([&] {
              EXPECT_FALSE(session.authMoveFile(std::nullopt, std::nullopt));
              EXPECT_FALSE(session.authMoveFile("/x", std::nullopt));
              EXPECT_FALSE(session.authCopyFile(std::nullopt, "/x"));
              EXPECT_FALSE(session.authCopyFile("/x", std::nullopt));
            }),
            "Error in authMoveFile: old path is null\n"
            "Error in authMoveFile: new path is null\n"
            "Error in authCopyFile: old path is null\n"
            "Error in authCopyFile: new path is null\n");
}

TEST_F(QVAuthorizationAsSuperuserTest, WhatDoesNotExistIsRefusedInSilence) {
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_EQ(consoleOf([&] {
              EXPECT_FALSE(session.authMoveFile(sandbox_.path("missing"), sandbox_.path("x")));
              EXPECT_FALSE(session.authCopyFile(sandbox_.path("missing"), sandbox_.path("x")));
              EXPECT_FALSE(session.authTrashFile(sandbox_.path("missing")));
              EXPECT_FALSE(session.authRemoveFile(std::nullopt));
              EXPECT_FALSE(session.authRemoveFile(""));
              EXPECT_FALSE(session.authCreateDir(std::nullopt));
              EXPECT_FALSE(session.authCreateDir(""));
            }),
            "");
}

TEST_F(QVAuthorizationAsSuperuserTest, RelativePathsAreRefused) {
  const std::string file = sandbox_.makeFile("a.txt");
  QVAuthorization& session = QVAuthorization::sharedController();
  fs::current_path(sandbox_.root());
  EXPECT_FALSE(session.authMoveFile("a.txt", sandbox_.path("b.txt")));
  EXPECT_FALSE(session.authCopyFile("a.txt", sandbox_.path("b.txt")));
  EXPECT_FALSE(session.authCopyFile(file, "-t"));
  EXPECT_FALSE(session.authRemoveFile("a.txt"));
  EXPECT_FALSE(session.authTrashFile("a.txt"));
  EXPECT_FALSE(session.authCreateDir("-p"));
  EXPECT_TRUE(fs::exists(file));
}

// --- As an ordinary user, without the elevator ---

TEST_F(QVAuthorizationTest, WithoutADialogNothingIsAsked) {
  sandbox_.becomeUser(kUser);
  QVLog::createNewLog();
  QVAuthorization& session = QVAuthorization::sharedController(false);
  EXPECT_FALSE(session.isAuthorized());
  EXPECT_FALSE(session.canAuthorize());
  EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authStart()); }), "Unable to authorize\n");
  EXPECT_THAT(loggedText(), Not(HasSubstr("Unable to authorize")));
  EXPECT_EQ(consoleOf([&] { EXPECT_EQ(session.authExecTask("/bin/true", {}), -1); }),
            "Unable to authorize\n");
  session.setHasGUI(true);
  EXPECT_TRUE(session.canAuthorize());
}

TEST_F(QVAuthorizationTest, AMachineWithoutTheElevatorGrantsNothing) {
  const std::string file = sandbox_.makeFile("a.txt");
  sandbox_.becomeUser(kUser);
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_EQ(consoleOf([&] {
              EXPECT_FALSE(session.authStart());
              EXPECT_EQ(session.authExecTask("/bin/true", {}), -1);
              EXPECT_EQ(session.authExecTask("/bin/true", {}, false), -1);
              EXPECT_FALSE(session.authTrashFile(file));
              EXPECT_FALSE(session.authRemoveFile(file));
              EXPECT_FALSE(session.authCreateDir("/opt/x"));
            }),
            "");
  EXPECT_EQ(session.authRef(), nullptr);
  EXPECT_TRUE(fs::exists(file));
}

TEST_F(QVAuthorizationTest, AMissingToolIsReportedBeforeAnythingIsAsked) {
  sandbox_.becomeUser(kUser);
  EXPECT_EQ(consoleOf([] {
              EXPECT_EQ(QVAuthorization::sharedController(false).authExecTask("/no/tool", {}), -2);
            }),
            "Unable to execute task: path /no/tool doesn't exist\n");
}

TEST_F(QVAuthorizationTest, ANameOrAPasswordThatIsMissingIsRefusedInSilence) {
  sandbox_.becomeUser(kUser);
  QVAuthorization& session = QVAuthorization::sharedController(false);
  EXPECT_EQ(consoleOf([&] {
              EXPECT_FALSE(session.authStartWithUser(std::nullopt, "x"));
              EXPECT_FALSE(session.authStartWithUser("x", std::nullopt));
            }),
            "");
}

TEST_F(QVAuthorizationTest, AFailedStartWithAPasswordIsReported) {
  sandbox_.becomeUser(kUser);
  QVLog::createNewLog();
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(session.authStartWithUser("bert", "")); }),
            "Authorization failed. Invalid username or password\n");
  EXPECT_FALSE(session.isAuthorized());
  EXPECT_THAT(loggedText(), HasSubstr(" - Authorization failed. Invalid username or password\n"));
}

TEST_F(QVAuthorizationTest, ASessionThatCannotBeMadeIsReportedWithTheSystemsNumber) {
  sandbox_.becomeUser(kUser);
  QVAuthorization& session = QVAuthorization::sharedController();
  EXPECT_EQ(consoleOf([&] {
              const NoDescriptors none;
              EXPECT_FALSE(session.authStartWithUser("bert", "any"));
              EXPECT_FALSE(session.authStart());
            }),
            "Unable to create authRef - error " + std::to_string(EMFILE) + "\n");
  EXPECT_EQ(session.authRef(), nullptr);
}

// --- As an ordinary user, with an administrator's rights ---

class QVAuthorizationSessionTest : public QVAuthorizationTest {
 protected:
  void SetUp() override {
    QVAuthorizationTest::SetUp();
    if (IsSkipped()) return;
    polkit_.emplace(sandbox_);
    // Where only the superuser can change anything.
    protected_ = sandbox_.makeDirectory("protected");
  }

  void asUser(const std::function<void(QVAuthorization&)>& body) {
    EXPECT_TRUE(passesAs(sandbox_, kUser, [&body] {
      QVAuthorization& session = QVAuthorization::sharedController(false);
      ASSERT_TRUE(session.authStartWithUser(Polkit::kAdministrator, Polkit::kPassword));
      EXPECT_TRUE(session.isAuthorized());
      body(session);
    }));
  }

  std::optional<Polkit> polkit_;
  std::string protected_;
};

TEST_F(QVAuthorizationSessionTest, EveryOperationIsCarriedOut) {
  sandbox_.makeFile("protected/A.app/x", "a");
  sandbox_.makeFile("protected/from/b");
  sandbox_.makeFile("protected/many/c");
  asUser([&](QVAuthorization& session) {
    std::error_code refused;
    fs::create_directory(protected_ + "/mine", refused);
    EXPECT_EQ(refused, std::errc::permission_denied);
    EXPECT_TRUE(session.authCreateDir(protected_ + "/x/y"));
    EXPECT_TRUE(appears(protected_ + "/x/y"));
    EXPECT_TRUE(session.authCopyFile(protected_ + "/A.app", protected_ + "/x"));
    EXPECT_TRUE(appears(protected_ + "/x/A.app/x"));
    EXPECT_TRUE(session.authMoveFile(protected_ + "/x/A.app", protected_ + "/B.app"));
    EXPECT_TRUE(appears(protected_ + "/B.app/x"));
    EXPECT_TRUE(session.authTrashFile(protected_ + "/B.app", true));
    EXPECT_TRUE(appears(trash_ + "/B.app/x"));
    EXPECT_TRUE(session.authRemoveFile(protected_ + "/A.app"));
    EXPECT_TRUE(disappears(protected_ + "/A.app"));
    EXPECT_TRUE(session.authMoveFolderContents(protected_ + "/from", protected_ + "/x"));
    EXPECT_TRUE(appears(protected_ + "/x/b"));
    EXPECT_TRUE(session.authTrashFolderContents(protected_ + "/many", true));
    EXPECT_TRUE(appears(trash_ + "/c"));
  });
}

TEST_F(QVAuthorizationSessionTest, AMissingTrashIsMade) {
  fs::remove(trash_);
  sandbox_.makeFile("protected/A.app/x", "a");
  asUser([&](QVAuthorization& session) {
    EXPECT_TRUE(session.authTrashFile(protected_ + "/A.app", true));
    EXPECT_TRUE(appears(trash_ + "/A.app/x"));
  });
  expectTrashOfFileManagers();
}

TEST_F(QVAuthorizationSessionTest, AWaitedRunReturnsAfterTheToolWithSuccessWhateverItSays) {
  asUser([&](QVAuthorization& session) {
    const std::string slow = "sleep 0.2; mkdir " + protected_ + "/made";
    EXPECT_EQ(session.authExecTask("/bin/sh", {"-c", slow}, false), 0);
    EXPECT_TRUE(fs::exists(protected_ + "/made"));
    EXPECT_EQ(session.authExecTask("/bin/mkdir", {protected_ + "/made"}, false), 0);
    EXPECT_EQ(session.authExecTask("/bin/false", {}, false), 0);
    EXPECT_EQ(session.authExecTask("/bin/false", {}), 0);
  });
}

TEST_F(QVAuthorizationSessionTest, AWaitedRunOnWhatIsStillWrittenWaitsForNobody) {
  const test::HeldTool held(sandbox_);
  asUser([&](QVAuthorization& session) {
    EXPECT_EQ(session.authExecTask("/bin/sh", {"-c", held.script(), "sh", protected_ + "/A.app"}),
              0);
    const std::string made = protected_ + "/A.app/made";
    EXPECT_EQ(session.authExecTask("/bin/mkdir", {"-p", made}, false), 0);
    EXPECT_FALSE(fs::exists(made));
    EXPECT_EQ(session.authExecTask("/bin/mkdir", {protected_ + "/other"}, false), 0);
    EXPECT_TRUE(fs::exists(protected_ + "/other")) << "another one is waited for";
  });
  held.release();
  EXPECT_TRUE(appears(protected_ + "/A.app/made"));
}

TEST_F(QVAuthorizationSessionTest, OutputThatNobodyReadsStopsNoTool) {
  asUser([&](QVAuthorization& session) {
    // More than a pipe holds, then a sign that the tool came to its end.
    const std::string script =
        "head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2; mkdir " + protected_ + "/done";
    EXPECT_EQ(session.authExecTask("/bin/sh", {"-c", script}), 0);
    EXPECT_TRUE(appears(protected_ + "/done"));
  });
}

TEST_F(QVAuthorizationSessionTest, RefusalsAreTheSameAsForTheSuperuser) {
  sandbox_.makeFile("home/anna/Library/x");
  asUser([&](QVAuthorization& session) {
    const std::string library = sandbox_.homeOf(kUser) + "/Library";
    EXPECT_EQ(consoleOf([&] {
                EXPECT_FALSE(session.authRemoveFile(library));
                EXPECT_FALSE(session.authMoveFile(library, protected_));
                EXPECT_FALSE(session.authTrashFile(library));
                EXPECT_FALSE(session.authTrashFile(std::nullopt));
                EXPECT_FALSE(session.authTrashFile(""));
                EXPECT_FALSE(session.authMoveFile(protected_ + "/missing", protected_ + "/x"));
                EXPECT_EQ(session.authExecTask("/no/tool", {}), -2);
              }),
              "Unable to delete path " + library + " because it is a system directory.\n" +
                  "Unable to move path " + library + " because it is a system directory.\n" +
                  "Unable to trash path " + library + " because it is a system directory.\n" +
                  "Unable to execute task: path /no/tool doesn't exist\n");
    EXPECT_TRUE(fs::exists(library + "/x"));
  });
}

TEST_F(QVAuthorizationSessionTest, AToolThatAUserCouldHaveWrittenIsNotRun) {
  asUser([&](QVAuthorization& session) {
    const std::string tool = sandbox_.homeOf(kUser) + "/tool";
    fs::copy_file("/bin/true", tool);
    EXPECT_EQ(session.authExecTask(tool, {}), EACCES);
    EXPECT_EQ(session.authExecTask("/bin/true", {}), 0) << "the session goes on";
  });
}

TEST_F(QVAuthorizationSessionTest, ASecondStartAsksNobody) {
  asUser([](QVAuthorization& session) {
    const auto first = session.authRef();
    session.setHasGUI(true);
    EXPECT_TRUE(session.authStart());
    EXPECT_EQ(session.authRef(), first);
  });
}

TEST_F(QVAuthorizationSessionTest, AReplacedSessionIsClosed) {
  asUser([](QVAuthorization& session) {
    EXPECT_EQ(test::children(), 1U);
    EXPECT_TRUE(session.authStartWithUser(Polkit::kAdministrator, Polkit::kPassword));
    EXPECT_TRUE(waitFor([] { return test::children() == 1; })) << "the elevator of the first";
    EXPECT_EQ(session.authExecTask("/bin/true", {}), 0);
  });
}

// The agent that plays the person at the desktop, for this process.
class Person {
 public:
  explicit Person(const std::vector<std::string>& behaviour) : agent_(command(behaviour)) {
    EXPECT_TRUE(agent_.waitForLine("ready"));
  }
  std::size_t timesAsked() { return agent_.lines().size() - 1; }

 private:
  static std::vector<std::string> command(const std::vector<std::string>& behaviour) {
    std::vector<std::string> words = {std::string(QV_TEST_PROGRAMS) + "/PolkitAgent",
                                      std::to_string(::getpid())};
    words.insert(words.end(), behaviour.begin(), behaviour.end());
    return words;
  }

  test::ChildProgram agent_;
};

TEST_F(QVAuthorizationSessionTest, TheFirstOperationAsksThePersonAndTheOthersDoNot) {
  sandbox_.makeFile("protected/a");
  EXPECT_TRUE(passesAs(sandbox_, kUser, [this] {
    Person person({"answer", Polkit::kPassword});
    QVAuthorization& session = QVAuthorization::sharedController();
    EXPECT_FALSE(session.isAuthorized());
    EXPECT_EQ(consoleOf([&] { EXPECT_TRUE(session.authRemoveFile(protected_ + "/a")); }), "");
    EXPECT_TRUE(session.isAuthorized());
    EXPECT_TRUE(session.authCreateDir(protected_ + "/b"));
    EXPECT_TRUE(appears(protected_ + "/b"));
    EXPECT_TRUE(disappears(protected_ + "/a"));
    EXPECT_EQ(person.timesAsked(), 1U);
  }));
}

TEST_F(QVAuthorizationSessionTest, ADismissedDialogFailsInSilenceAndIsShownAgain) {
  EXPECT_TRUE(passesAs(sandbox_, kUser, [] {
    Person person({"dismiss"});
    QVAuthorization& session = QVAuthorization::sharedController();
    EXPECT_EQ(consoleOf([&] {
                EXPECT_FALSE(session.authStart());
                EXPECT_EQ(session.authExecTask("/bin/true", {}), -1);
              }),
              "");
    EXPECT_EQ(session.authRef(), nullptr);
    EXPECT_TRUE(waitFor([&] { return person.timesAsked() == 2; }));
  }));
}

TEST_F(QVAuthorizationSessionTest, ABrokenSessionIsReplacedByTheNextStart) {
  asUser([](QVAuthorization& session) {
    session.authRef()->end();
    EXPECT_EQ(session.authExecTask("/bin/true", {}), platform::privilege::kSessionLost);
    EXPECT_FALSE(session.isAuthorized());
    EXPECT_TRUE(session.authStartWithUser(Polkit::kAdministrator, Polkit::kPassword));
    EXPECT_EQ(session.authExecTask("/bin/true", {}), 0);
  });
}

// Run by the next test as a child of its own.
TEST(QVAuthorizationTestChild, DISABLED_AdoptsTheInheritedSession) {
  QVAuthorization& session = QVAuthorization::sharedController(false);
  EXPECT_NE(session.authRef(), nullptr);
  EXPECT_TRUE(session.isAuthorized());
  EXPECT_TRUE(session.authStart());
  EXPECT_EQ(session.authExecTask("/bin/true", {}, false), 0);
  session.initWithoutGUI();
  EXPECT_TRUE(session.isAuthorized()) << "who initialises anew keeps it";
  session.authEnd();
  session.initWithoutGUI();
  EXPECT_FALSE(session.isAuthorized()) << "what was ended does not come back";
}

TEST_F(QVAuthorizationSessionTest, AChildAdoptsTheSessionThatItsParentHandsDown) {
  asUser([](QVAuthorization& session) {
    EXPECT_EQ(session.authRef()->runInheriting(
                  "/proc/self/exe",
                  {"--gtest_also_run_disabled_tests",
                   "--gtest_filter=QVAuthorizationTestChild.DISABLED_AdoptsTheInheritedSession"}),
              0);
  });
}

TEST_F(QVAuthorizationSessionTest, ASessionCanBeSetAndTakenAway) {
  asUser([](QVAuthorization& session) {
    const auto kept = session.authRef();
    session.setAuthRef(nullptr);
    EXPECT_FALSE(session.isAuthorized());
    session.setAuthRef(kept);
    EXPECT_TRUE(session.isAuthorized());
    EXPECT_EQ(session.authExecTask("/bin/true", {}, false), 0) << "it was not ended meanwhile";
  });
}

TEST_F(QVAuthorizationSessionTest, AnEndedSessionIsOver) {
  asUser([](QVAuthorization& session) {
    const auto first = session.authRef();
    session.authEnd();
    EXPECT_FALSE(session.isAuthorized());
    EXPECT_EQ(session.authRef(), nullptr);
    EXPECT_EQ(first->execute("/bin/true", {}, platform::privilege::Output::discarded).status,
              platform::privilege::kSessionLost);
    EXPECT_EQ(session.authExecTask("/bin/true", {}), -1);
    EXPECT_TRUE(session.authStartWithUser(Polkit::kAdministrator, Polkit::kPassword));
    EXPECT_EQ(session.authExecTask("/bin/true", {}), 0);
  });
}

TEST_F(QVAuthorizationSessionTest, AWrongPasswordIsReportedAndEndsTheSessionItReplaces) {
  asUser([](QVAuthorization& session) {
    EXPECT_EQ(consoleOf([&] {
                EXPECT_FALSE(session.authStartWithUser(Polkit::kAdministrator, "wrong"));
              }),
              "Authorization failed. Invalid username or password\n");
    EXPECT_FALSE(session.isAuthorized());
    EXPECT_EQ(session.authExecTask("/bin/true", {}), -1);
    EXPECT_TRUE(session.authStartWithUser(Polkit::kAdministrator, Polkit::kPassword));
  });
}

}  // namespace
