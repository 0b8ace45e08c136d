#include <dirent.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

// An application for tests that writes into $HOME/opened as whom, where and with what it was
// started, and ends.
namespace {

void writeIds(std::ofstream& file) {
  uid_t user[3];
  gid_t group[3];
  ::getresuid(&user[0], &user[1], &user[2]);
  ::getresgid(&group[0], &group[1], &group[2]);
  file << "users " << user[0] << ' ' << user[1] << ' ' << user[2] << '\n'
       << "groups " << group[0] << ' ' << group[1] << ' ' << group[2] << '\n';
  std::vector<gid_t> others(64);
  others.resize(
      static_cast<std::size_t>(::getgroups(static_cast<int>(others.size()), others.data())));
  for (const gid_t other : others) file << "supplementary group " << other << '\n';
}

void writeDescriptors(std::ofstream& file) {
  DIR* descriptors = ::opendir("/proc/self/fd");
  while (const dirent* entry = ::readdir(descriptors)) {
    char target[4096] = {};
    const std::string path = std::string("/proc/self/fd/") + entry->d_name;
    const bool listing = std::atoi(entry->d_name) == ::dirfd(descriptors);
    if (listing || ::readlink(path.c_str(), target, sizeof target - 1) < 0) continue;
    if (std::string(target).ends_with("/opened.part")) continue;
    file << "descriptor " << entry->d_name << ' ' << target << '\n';
  }
  ::closedir(descriptors);
}

void writeSignals(std::ofstream& file) {
  sigset_t blocked;
  ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
  for (int number = 1; number < SIGSYS; ++number) {
    struct sigaction action = {};
    ::sigaction(number, nullptr, &action);
    if (action.sa_handler == SIG_IGN) file << "ignored signal " << number << '\n';
    if (::sigismember(&blocked, number) == 1) file << "blocked signal " << number << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* home = std::getenv("HOME");
  if (home == nullptr) return EXIT_FAILURE;
  const std::string record = std::string(home) + "/opened";
  std::ofstream file(record + ".part");
  writeIds(file);
  file << "session leader " << (::getsid(0) == ::getpid()) << '\n';
  char folder[4096] = {};
  if (::getcwd(folder, sizeof folder) != nullptr) file << "folder " << folder << '\n';
  const mode_t mask = ::umask(0);
  file << "umask " << std::oct << mask << std::dec << '\n';
  writeDescriptors(file);
  writeSignals(file);
  char program[4096] = {};
  if (::readlink("/proc/self/exe", program, sizeof program - 1) > 0) {
    file << "program " << program << '\n';
  }
  for (int i = 1; i < argc; ++i) file << "argument " << argv[i] << '\n';
  for (char** variable = environ; *variable != nullptr; ++variable) {
    file << "variable " << *variable << '\n';
  }
  file.close();
  return std::rename((record + ".part").c_str(), record.c_str()) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
