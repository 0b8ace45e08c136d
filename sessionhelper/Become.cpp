#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "sessionhelper/Person.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {

int become(const Arguments& arguments) {
  if (arguments.empty() || !arguments.front().starts_with('/')) return kUsageError;
  if (!becomePerson()) return kFailure;
  std::vector<char*> words;
  for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  ::execv(words[0], words.data());
  std::fprintf(stderr, "session-helper: cannot become %s: %s\n", words[0], std::strerror(errno));
  return kFailure;
}

}  // namespace session_helper
