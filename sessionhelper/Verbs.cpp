#include "sessionhelper/Verbs.h"

#include <cstdio>
#include <string_view>

#include "platform/linux/SessionHelperVerbs.h"

namespace session_helper {
namespace {

namespace verb = platform::helper_verb;

struct Verb {
  std::string_view name;
  int (*run)(const Arguments& arguments);
};

// One line a verb, in the order of their names.
// clang-format off
constexpr Verb kVerbs[] = {
    {verb::After::kName, after},
    {verb::Become::kName, become},
    {verb::Detach::kName, detach},
    {verb::Files::kName, files},
    {verb::Open::kName, open},
    {verb::OpenFile::kName, openFile},
    {verb::OpenFileWith::kName, openFileWith},
    {verb::OpenWith::kName, openWith},
    {verb::Register::kName, registerApplication},
    {verb::Remote::kName, remote},
    {verb::Start::kName, start},
};
// clang-format on

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
