// The copy with progress beside the plain copy of the same engine, in turns on the same tree. What
// is printed are the medians and by how much the progress makes the copy longer, by the medians and
// by the best of both, which a busy machine disturbs least.
//
//   QVFileManagerProgressBenchmark [FOLDER]    default: /dev/shm, which is in memory

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Shared/QVFileManager.h"
#include "Shared/QVFileOperationDelegate.h"
#include "benchmarks/FileTrees.h"
#include "benchmarks/Timing.h"
#include "platform/FileSystem.h"
#include "platform/MainThread.h"

namespace {

namespace fs = platform::file_system;
using benchmark_trees::check;
using timing::median;
using timing::milliseconds;

void copyWithProgress(const std::string& source, const std::string& destination) {
  bool ended = false;
  const auto delegate = std::make_shared<QVFileOperationDelegate>();
  delegate->fileOperationProgress = [](const QVFileOperationDelegate::Status&) {};
  delegate->fileOperationFinished = [&](const QVFileOperationDelegate::Status&) { ended = true; };
  check(QVFileManager::copyFileWithProgress(source, destination, delegate, {}), source);
  while (!ended) platform::main_thread::pumpOneEvent(std::chrono::seconds(1));
  check(fs::exists(destination), destination);
}

void compare(const char* what, const std::string& tree, const std::string& copy, int rounds = 15) {
  std::vector<double> plain;
  std::vector<double> progress;
  for (int round = 0; round < rounds; ++round) {
    for (const bool first : {round % 2 == 0, round % 2 != 0}) {
      (first ? plain : progress).push_back(milliseconds([&] {
        if (first) check(fs::copy(tree, copy));
        if (!first) copyWithProgress(tree, copy);
      }));
      check(fs::remove(copy));
    }
  }
  std::printf("%-28s %8.1f ms  plain %8.1f ms  %.3f times  the best %.3f times\n", what,
              median(progress), median(plain), median(progress) / median(plain),
              std::ranges::min(progress) / std::ranges::min(plain));
  std::fflush(stdout);
}

void run(const std::string& root) {
  const std::string copy = root + "/copy";
  benchmark_trees::makeBundle(root + "/bundle");
  compare("8,000 files and 3 of 120 MB", root + "/bundle", copy);
  check(fs::remove(root + "/bundle"));
  benchmark_trees::makeFiles(root + "/small", 100000, 1024);
  compare("100,000 files of 1 KiB", root + "/small", copy);
  check(fs::remove(root + "/small"));
  // This one alone takes so long that somebody is told of it, for which its files are counted.
  benchmark_trees::makeFiles(root + "/many", 400000, 1024);
  compare("400,000 files of 1 KiB", root + "/many", copy, 5);
  check(fs::remove(root + "/many"));
  benchmark_trees::writeLargeFile(root + "/large", 1000);
  compare("one file of 1 GB", root + "/large", copy);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : "/dev/shm";
  const std::string root = folder + "/qv-benchmark-" + std::to_string(::getpid());
  int status = 0;
  try {
    check(fs::createDirectory(root));
    run(root);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    status = 1;
  }
  check(fs::remove(root));
  return status;
}
