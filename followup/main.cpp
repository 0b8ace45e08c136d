#include <cstdio>
#include <span>
#include <string_view>
#include <vector>

#include "followup/Verbs.h"

namespace {

struct Verb {
  std::string_view name;
  int (*run)(const followup::Arguments& arguments);
};

// One line a verb, in the order of their names.
const std::vector<Verb> verbs = {
    {"detach", followup::detach},
    {"open-file", followup::openFile},
    {"open-file-with", followup::openFileWith},
    {"remote", followup::remote},
    {"start", followup::start},
};

int usage() {
  std::fputs("usage: followup VERB [ARGUMENT ...]\nVerbs:\n", stderr);
  for (const Verb& verb : verbs) {
    std::fprintf(stderr, "  %.*s\n", static_cast<int>(verb.name.size()), verb.name.data());
  }
  return followup::kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  if (words.size() < 2) return usage();
  for (const Verb& verb : verbs) {
    if (verb.name == words[1]) return verb.run({words.begin() + 2, words.end()});
  }
  return usage();
}
