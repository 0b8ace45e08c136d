#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/linux/SessionHelperVerbs.h"
#include "sessionhelper/Person.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {

int become(const Arguments& arguments) {
  const auto order = platform::helper_verb::parsed<platform::helper_verb::Become>(arguments);
  if (!order || order->command.empty() || !order->command.front().starts_with('/')) {
    return kUsageError;
  }
  if (!becomePerson()) return kFailure;
  std::vector<char*> words;
  for (const std::string& word : order->command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  ::execv(words[0], words.data());
  std::fprintf(stderr, "session-helper: cannot become %s: %s\n", words[0], std::strerror(errno));
  return kFailure;
}

}  // namespace session_helper
