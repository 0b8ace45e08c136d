#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

// An application for tests that writes into $HOME/launched who started it and how, and ends.
int main() {
  const char* home = std::getenv("HOME");
  if (home == nullptr) return EXIT_FAILURE;
  const std::string record = std::string(home) + "/launched";
  std::ofstream file(record + ".part");
  file << "user " << getuid() << '\n'
       << "effective user " << geteuid() << '\n'
       << "group " << getgid() << '\n'
       << "leads its session " << (getsid(0) == getpid()) << '\n'
       << "folder " << std::filesystem::current_path().string() << '\n';
  for (char** variable = environ; *variable != nullptr; ++variable) {
    file << "variable " << *variable << '\n';
  }
  file.close();
  std::filesystem::rename(record + ".part", record);
  return EXIT_SUCCESS;
}
