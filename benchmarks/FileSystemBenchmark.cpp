// Copying, removing, sizing, listing and recycling beside the system's own programs: cp -a, rm -rf,
// du -sb, glob(3). Each pair is measured in turns on the same tree, so that a busy machine slows
// both; what is printed are the medians and their ratio (more than 1: faster than the peer).
//
//   FileSystemBenchmark [FOLDER ...]    default: /dev/shm, which is in memory; name one on a disk

#include <fcntl.h>
#include <glob.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Shared/QVFileManager.h"
#include "benchmarks/FileTrees.h"
#include "benchmarks/Timing.h"
#include "platform/FileSystem.h"
#include "platform/Workspace.h"

namespace {

namespace fs = platform::file_system;

using benchmark_trees::check;
using benchmark_trees::makeBundle;
using benchmark_trees::makeFiles;
using benchmark_trees::writeFile;
using timing::median;
using timing::milliseconds;
using timing::Work;

constexpr int kRounds = 3;
constexpr std::size_t kTreeSizes[] = {1000, 10000, 100000};

void run(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = -1;
  const int error =
      ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  check(error == 0 && ::waitpid(child, &status, 0) == child && status == 0, command[0]);
}

// Of this process, up to now.
long peakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// `prepare` makes, and `clear` takes away, what an action needs and leaves; neither is measured.
void pair(const std::string& what, const Work& ours, const Work& peers, const Work& prepare,
          const Work& clear) {
  std::vector<double> our;
  std::vector<double> their;
  for (int round = 0; round < kRounds; ++round) {
    for (const bool first : {round % 2 == 0, round % 2 != 0}) {
      prepare();
      (first ? our : their).push_back(milliseconds(first ? ours : peers));
      clear();
    }
  }
  std::printf("%-40s %8.1f ms  peer %8.1f ms  ratio %.2f  peak %ld KB\n", what.c_str(), median(our),
              median(their), median(their) / median(our), peakMemory());
  std::fflush(stdout);
}

void nothing() {}

class Measurements {
 public:
  explicit Measurements(std::string root) : root_(std::move(root)) {
    check(fs::createDirectory(root_));
  }
  ~Measurements() { static_cast<void>(fs::remove(root_).ok()); }
  Measurements(const Measurements&) = delete;
  Measurements& operator=(const Measurements&) = delete;

  void run() {
    makeBundle(at("bundle"));
    copying("copy 8,000 files and 3 of 120 MB", at("bundle"));
    check(fs::remove(at("bundle")));
    for (const std::size_t count : kTreeSizes) {
      const std::string tree = treeOf(count);
      makeFiles(tree, count, 1024);
      copying("copy " + std::to_string(count) + " files of 1 KiB", tree);
    }
    for (const std::size_t count : kTreeSizes) {
      sizing(count);
      removing(count);
    }
    listing();
    recycling();
  }

 private:
  std::string at(const std::string& name) const { return root_ + "/" + name; }

  std::string treeOf(std::size_t count) const { return at("tree" + std::to_string(count)); }

  void copying(const std::string& what, const std::string& tree) const {
    const std::string copy = at("copy");
    pair(
        what, [&] { check(fs::copy(tree, copy)); },
        [&] {
          ::run({"cp", "-a", tree, copy});
        },
        nothing, [&] { check(fs::remove(copy)); });
  }

  void sizing(std::size_t count) const {
    const std::string tree = treeOf(count);
    pair(
        "size of " + std::to_string(count) + " files",
        [&] { check(QVFileManager::fileSize(tree) > 0, tree); },
        [&] {
          ::run({"du", "-sb", tree});
        },
        nothing, nothing);
  }

  void removing(std::size_t count) const {
    const std::string tree = treeOf(count);
    const std::string copy = at("copy");
    pair(
        "remove " + std::to_string(count) + " files", [&] { check(fs::remove(copy)); },
        [&] {
          ::run({"rm", "-rf", copy});
        },
        [&] { check(fs::copy(tree, copy)); }, nothing);
  }

  void listing() const {
    const std::string folder = at("flat");
    check(fs::createDirectory(folder));
    for (int i = 0; i < 100000; ++i) {
      writeFile(folder + "/name of a file " + std::to_string(i * 7919 % 100000) + ".txt", "");
    }
    pair(
        "names like *1*.txt among 100,000",
        [&] {
          check(!QVFileManager::filesMatchingWildcardPath("*1*.txt", folder).empty(), folder);
        },
        [&] {
          glob_t found{};
          check(::glob((folder + "/*1*.txt").c_str(), 0, nullptr, &found) == 0, folder);
          ::globfree(&found);
        },
        nothing, nothing);
    check(fs::remove(folder));
  }

  void recycling() const {
    const std::string home = at("home");
    check(fs::createDirectory(home));
    std::vector<double> times;
    for (int i = 0; i < 100; ++i) {
      makeFiles(at("A.app"), 100, 1024);
      times.push_back(milliseconds(
          [&] { check(platform::workspace::recycle(root_, home + "/.Trash", {"A.app"}), home); }));
    }
    std::printf("%-44s %9.3f ms\n", "recycle one bundle, its name taken 0 to 99 times",
                median(times));
  }

  const std::string root_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> folders(argv + 1, argv + argc);
  if (folders.empty()) folders = {"/dev/shm"};
  try {
    for (const std::string& folder : folders) {
      std::printf("in %s\n", folder.c_str());
      Measurements(folder + "/qv-benchmark-" + std::to_string(::getpid())).run();
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  return 0;
}
