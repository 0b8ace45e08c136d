#include "sessionhelper/Verbs.h"

#include <cstdio>
#include <string_view>

namespace session_helper {
namespace {

struct Verb {
  std::string_view name;
  int (*run)(const Arguments& arguments);
};

// One line a verb, in the order of their names.
constexpr Verb kVerbs[] = {
    {"after", after},        {"become", become},
    {"detach", detach},      {"open", open},
    {"open-file", openFile}, {"open-file-with", openFileWith},
    {"open-with", openWith}, {"register", registerApplication},
    {"remote", remote},      {"start", start},
};

int usage() {
  std::fputs("usage: session-helper VERB [ARGUMENT ...]\nVerbs:\n", stderr);
  for (const Verb& verb : kVerbs) {
    std::fprintf(stderr, "  %.*s\n", static_cast<int>(verb.name.size()), verb.name.data());
  }
  return kUsageError;
}

}  // namespace

int perform(const Arguments& words) {
  if (words.empty()) return usage();
  for (const Verb& verb : kVerbs) {
    if (verb.name == words.front()) return verb.run({words.begin() + 1, words.end()});
  }
  return usage();
}

}  // namespace session_helper
