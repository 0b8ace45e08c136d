#include "tests/support/UpdateMachine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/support/MountPoint.h"
#include "tests/support/WaitFor.h"

namespace test {
namespace fs = std::filesystem;
namespace {

constexpr std::chrono::seconds kLongestRun(30);

// A shell that waits for SIGCONT and then becomes what follows.
constexpr const char* kStopped[] = {"/bin/sh", "-c", "kill -STOP $$; exec \"$@\"", "sh"};

void append(std::vector<std::string>& words, const std::vector<std::string>& more) {
  words.insert(words.end(), more.begin(), more.end());
}

// Starts a program, named by the first word, with standard output and error appended to a file.
int spawn(std::vector<std::string> command, const std::string& outputFile) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                   0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + command.front());
  return pid;
}

void runTool(const std::vector<std::string>& command) {
  int status = 0;
  const int pid = spawn(command, "/dev/stderr");
  if (::waitpid(pid, &status, 0) != pid || status != 0) {
    throw std::runtime_error(command.front() + " failed");
  }
}

}  // namespace

UpdateMachine::UpdateMachine(Pauses pauses) : pauses_(pauses) {
  sandbox_.simulateMachine();
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  fs::create_directories("/var/lib/quorvale/Library/Logs/Quorvale");
  fs::create_directories(sandbox_.path("local-share"));
  runTool({"/bin/mount", "--bind", sandbox_.path("local-share"), "/usr/local/share"});
}

UpdateMachine::~UpdateMachine() {
  for (const int pid : started_) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
  while (diskImageIsAttached() && ::umount2(mountPoint().c_str(), MNT_DETACH) == 0) {
  }
}

void UpdateMachine::makeBundle(const std::string& path, const std::string& version) const {
  fs::create_directories(fs::path(path).parent_path());
  runTool({QV_TEST_SOURCES "/../examples/sample/make-bundle", QV_TEST_PROGRAMS "/OpenedApplication",
           version, path});
  const std::string owner = std::to_string(Sandbox::kConsoleUserId);
  runTool({"/bin/chown", "-R", owner + ":" + owner, path});
}

void UpdateMachine::attachDiskImage() {
  const std::string image = sandbox_.path("update.img");
  makeBundle(sandbox_.path("image/Sample.app"), "2.0");
  std::ofstream(image).close();
  fs::resize_file(image, 16U << 20U);
  runTool({"/sbin/mkfs.ext4", "-q", "-d", sandbox_.path("image"), image});
  fs::create_directories(mountPoint());
  runTool({"/bin/mount", "-o", "loop,ro", image, mountPoint()});
}

bool UpdateMachine::diskImageIsAttached() const {
  return isMountPoint(mountPoint());
}

// static
std::string UpdateMachine::versionOf(const std::string& bundle) {
  std::istringstream text(readFile(bundle + "/Contents/Resources/version.txt"));
  std::string version;
  std::getline(text, version);
  return version;
}

std::string UpdateMachine::trashedBundle() const {
  return sandbox_.homeOf(Sandbox::kConsoleUser) + "/.local/share/Trash/files/Sample.app";
}

int UpdateMachine::startUpdater(const std::string& name) {
  const std::string program = sandbox_.path(name);
  fs::copy_file("/bin/sleep", program);
  started_.push_back(spawn({program, "300"}, "/dev/null"));
  return started_.back();
}

int UpdateMachine::run(const std::vector<std::string>& arguments) {
  start(arguments);
  return waitForEnd();
}

void UpdateMachine::runAs(const std::string& user) {
  user_ = user;
}

void UpdateMachine::runWithRightsHandedDownTo(const std::string& user) {
  user_ = user;
  rightsAreHandedDown_ = true;
}

void UpdateMachine::answerAsPerson(const std::vector<std::string>& behaviour) {
  person_ = behaviour;
}

void UpdateMachine::runBy(const std::vector<std::string>& command) {
  append(wayIn_, command);
}

std::vector<std::string> UpdateMachine::commandFor(
    const std::vector<std::string>& arguments) const {
  std::vector<std::string> command;
  if (rightsAreHandedDown_) append(command, {QV_TEST_UPDATER});
  if (!user_.empty()) append(command, sandbox_.commandThatBecomes(user_));
  if (!person_.empty()) append(command, {std::begin(kStopped), std::end(kStopped)});
  append(command, wayIn_);
  append(command, {std::string(pauses_ == Pauses::real ? QV_TEST_BUNDLE : QV_TEST_QUICK_BUNDLE) +
                   "/Contents/Linux/QVUpdateHelper"});
  append(command, arguments);
  return command;
}

void UpdateMachine::start(const std::vector<std::string>& arguments) {
  application_ = spawn(commandFor(arguments), sandbox_.path("output.txt"));
  started_.push_back(application_);
  if (!person_.empty()) letPersonWatch();
}

// The person's agent looks after a process that belongs to that person already.
void UpdateMachine::letPersonWatch() {
  int status = 0;
  ::waitpid(application_, &status, WUNTRACED);
  std::vector<std::string> agent = {QV_TEST_PROGRAMS "/PolkitAgent", std::to_string(application_)};
  append(agent, person_);
  agent_ = std::make_unique<ChildProgram>(agent, Sandbox::idOf(user_));
  if (!agent_->waitForLine("ready")) throw std::runtime_error("the agent does not start");
  ::kill(application_, SIGCONT);
}

int UpdateMachine::waitForEnd() {
  int status = 0;
  const bool ended = waitFor(
      [&] { return ::waitpid(application_, &status, WNOHANG) == application_; }, kLongestRun);
  EXPECT_TRUE(ended) << "the application still runs after 30 seconds";
  if (!ended) return -1;
  std::erase(started_, application_);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// static
std::vector<std::string> UpdateMachine::programsThatRun() {
  std::vector<std::string> running;
  for (const char* name : {"QVUpdateHelper", "session-helper", "authentication-agent",
                           "qv-elevator", "pkexec", "QuorvaleUpdater", "cp", "mv", "killall"}) {
    if (processNamed(name) != 0) running.emplace_back(name);
  }
  return running;
}

// static
int UpdateMachine::processNamed(const std::string& name) {
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::error_code none;  // a zombie has no program, and what is no process neither
    if (fs::read_symlink(entry.path() / "exe", none).filename() != name) continue;
    if (const int pid = std::atoi(entry.path().filename().c_str()); pid > 0) return pid;
  }
  return 0;
}

std::string UpdateMachine::log() const {
  if (user_.empty()) return logPath();
  return sandbox_.homeOf(user_) + "/Library/Logs/Quorvale/QVUpdateHelper.1.log";
}

// static
std::string UpdateMachine::logPath(const std::string& program) {
  return "/var/lib/quorvale/Library/Logs/Quorvale/" + program + ".1.log";
}

// static
std::vector<std::string> UpdateMachine::messagesOf(const std::string& log) {
  static const std::regex dated(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4} - (.*))");
  std::vector<std::string> messages;
  std::istringstream lines(readFile(log));
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_match(line, match, dated)) {
      messages.push_back(match[1]);
    } else if (!messages.empty()) {
      messages.back() += "\n" + line;
    } else {
      ADD_FAILURE() << "the log begins without a date: " << line;
    }
  }
  return messages;
}

// static
std::vector<std::string> UpdateMachine::withoutHeader(std::vector<std::string> messages) {
  const auto last = std::ranges::find(messages, "Running in 64-bit mode");
  EXPECT_NE(last, messages.end()) << "the log has no header";
  if (last != messages.end()) messages.erase(messages.begin(), last + 1);
  return messages;
}

bool isRunning(int pid) {
  std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:")) return line.find('Z') == std::string::npos;
  }
  return false;
}

}  // namespace test
