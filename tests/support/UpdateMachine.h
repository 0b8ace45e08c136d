#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"

namespace test {

// A simulated machine with a person at the console on which the built application performs updates:
// a sample bundle to install, on a real disk image if wanted, and one that is installed. Needs
// root; make it first thing in a test.
class UpdateMachine {
 public:
  // How long the application's fixed pauses take: as they are shipped, or a hundredth of that for
  // those that it spins through, which leaves the one second before the registration and, in a
  // silent run, the one at the end.
  enum class Pauses { real, quick };

  explicit UpdateMachine(Pauses pauses = Pauses::real);
  // Unmounts what is still mounted and ends what was started and still runs.
  ~UpdateMachine();
  UpdateMachine(const UpdateMachine&) = delete;
  UpdateMachine& operator=(const UpdateMachine&) = delete;

  Sandbox& sandbox() { return sandbox_; }

  // Where the new bundle is, where the old one is installed, and where the disk image is mounted.
  std::string source() const { return mountPoint() + "/Sample.app"; }
  std::string destination() const { return sandbox_.path("Applications/Sample.app"); }
  std::string mountPoint() const { return sandbox_.path("Volumes/Sample 2.0"); }

  // Makes a sample bundle of a version at `path`, which belongs to the person at the console. Its
  // program writes who started it and how into the file launchRecord().
  void makeBundle(const std::string& path, const std::string& version) const;
  // Makes a disk image with a bundle of version 2.0 and mounts it, so that source() exists.
  void attachDiskImage();
  bool diskImageIsAttached() const;

  // "" when no bundle is there.
  static std::string versionOf(const std::string& bundle);
  std::string trashedBundle() const;
  std::string launchRecord() const { return sandbox_.homeOf(Sandbox::kConsoleUser) + "/opened"; }

  // Starts a process with the name of one of the updater's; answers its id.
  int startUpdater(const std::string& name);

  // The application is run as superuser. These have it run otherwise from now on: as a person of
  // the sandbox; as that person by an updater that hands an administrator's rights down to it; with
  // somebody at the desktop who behaves as tests/programs/PolkitAgent.cpp says when it asks for
  // rights; by way of another program that becomes it, such as env(1) with its arguments.
  void runAs(const std::string& user);
  void runWithRightsHandedDownTo(const std::string& user);
  void answerAsPerson(const std::vector<std::string>& behaviour);
  void runBy(const std::vector<std::string>& command);

  // Runs the application to its end and answers its exit status, or 128 and the number of the
  // signal that ended it. Fails the test when it takes longer than 30 seconds.
  int run(const std::vector<std::string>& arguments);
  // The same in two steps.
  void start(const std::vector<std::string>& arguments);
  int waitForEnd();
  int pid() const { return application_; }
  // The programs of ours, and tools that they start, that still run.
  static std::vector<std::string> programsThatRun();
  // The id of a process whose program has that name, 0 when there is none.
  static int processNamed(const std::string& name);
  // What the application printed on standard output and error.
  std::string output() const { return readFile(sandbox_.path("output.txt")); }

  // The log of whoever runs the application, and its messages behind the header.
  std::string log() const;
  std::vector<std::string> messages() const { return withoutHeader(messagesOf(log())); }

  // Where the superuser's log of a program of this name is.
  static std::string logPath(const std::string& program = "QVUpdateHelper");
  // The messages of a log file without their dates, a line without one being the continuation of
  // the message before; and those that follow the log's header.
  static std::vector<std::string> messagesOf(const std::string& log);
  static std::vector<std::string> withoutHeader(std::vector<std::string> messages);

 private:
  void letPersonWatch();
  std::vector<std::string> commandFor(const std::vector<std::string>& arguments) const;

  Sandbox sandbox_;
  const Pauses pauses_;
  std::string user_;  // empty for the superuser
  bool rightsAreHandedDown_ = false;
  std::vector<std::string> person_;
  std::unique_ptr<ChildProgram> agent_;
  std::vector<std::string> wayIn_;
  std::vector<int> started_;
  int application_ = -1;
};

// Whether the process still runs; a zombie does not.
bool isRunning(int pid);

}  // namespace test
