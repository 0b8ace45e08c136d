#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "archiver/Interruption.h"
#include "archiver/Pack.h"
#include "archiver/Unpack.h"

namespace {

using platform::Status;

constexpr int kFailure = 1;
constexpr int kUsageError = 64;

int usage() {
  std::fputs(
      "usage: archiver -ck [--keepParent] SOURCE ARCHIVE\n"
      "       archiver -xk ARCHIVE FOLDER\n"
      "All paths are absolute.\n",
      stderr);
  return kUsageError;
}

int report(const Status& status) {
  if (status.ok()) return 0;
  std::fprintf(stderr, "archiver: %s\n", status.description().c_str());
  return kFailure;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  const bool packing = !words.empty() && words.front() == "-ck";
  const bool unpacking = !words.empty() && words.front() == "-xk";
  const bool keepParent = packing && words.size() > 1 && words[1] == "--keepParent";
  if (!packing && !unpacking) return usage();
  words.erase(words.begin(), words.begin() + (keepParent ? 2 : 1));
  if (words.size() != 2 || !words[0].starts_with('/') || !words[1].starts_with('/')) return usage();

  archiver::deferInterruption();
  return report(packing ? archiver::pack(words[0], words[1], keepParent)
                        : archiver::unpack(words[0], words[1]));
}
