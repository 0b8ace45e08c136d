#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/Privilege.h"

// Usage: QuorvaleUpdater PROGRAM [ARGUMENT ...]
//
// Plays an updater that has an administrator's rights, because it is root or because the person at
// the desktop grants them, and runs a program that inherits them. Exits as the program does.
int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: QuorvaleUpdater PROGRAM [ARGUMENT ...]\n", stderr);
    return EXIT_FAILURE;
  }
  platform::privilege::protectProcess();
  const auto session = platform::privilege::Session::create().session;
  if (session == nullptr || session->askForRights() != platform::privilege::Outcome::granted) {
    std::fputs("There are no administrator's rights to hand down.\n", stderr);
    return EXIT_FAILURE;
  }
  return session->runInheriting(argv[1], std::vector<std::string>(argv + 2, argv + argc));
}
