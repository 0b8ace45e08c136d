#include <dirent.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// A child that does what a test of program runs asks it for by its first argument.
namespace {

using Words = std::vector<std::string>;

void write(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0) ::_exit(3);
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Bytes that repeat with a period prime to every block size, so that lost or swapped blocks show.
int writePattern(int descriptor, std::uint64_t count) {
  std::array<char, 251 * 256> block;
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i % 251);
  while (count > 0) {
    const std::uint64_t part = std::min<std::uint64_t>(count, block.size());
    write(descriptor, {block.data(), static_cast<std::size_t>(part)});
    count -= part;
  }
  return 0;
}

int echo(const Words& words) {
  for (const std::string& word : words) write(STDOUT_FILENO, word + "\n");
  return 0;
}

int listEnvironment() {
  for (char** entry = environ; *entry != nullptr; ++entry) std::puts(*entry);
  return 0;
}

int listDescriptors() {
  DIR* const directory = ::opendir("/proc/self/fd");
  while (const dirent* entry = ::readdir(directory)) {
    const int number = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && number != ::dirfd(directory)) std::printf("%d\n", number);
  }
  ::closedir(directory);
  return 0;
}

int listSignals() {
  sigset_t blocked;
  ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action = {};
    if (::sigaction(number, nullptr, &action) != 0) continue;
    if (action.sa_handler != SIG_DFL) std::printf("%d is not at its default\n", number);
    if (::sigismember(&blocked, number) == 1) std::printf("%d is blocked\n", number);
  }
  return 0;
}

// "open" when the standard input is open and holds nothing; "ended" otherwise.
int describeInput() {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  std::puts(::poll(&input, 1, 0) == 0 ? "open" : "ended");
  return 0;
}

// Gives up when the folder goes, as it does at the end of the test, so that nobody is left behind.
void waitForFile(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  while (::access(path.c_str(), F_OK) != 0 && ::access(folder.c_str(), F_OK) == 0) ::usleep(1000);
}

int waitForEver() {
  write(STDOUT_FILENO, "ready");
  for (;;) ::pause();
}

int ignoreTermination(const std::string& path) {
  std::signal(SIGTERM, SIG_IGN);
  write(STDOUT_FILENO, "ready");
  waitForFile(path);
  return 5;
}

// A child of this program keeps the standard ends after this program's end, until `path` is there.
int leaveGrandchild(const std::string& path) {
  if (::fork() != 0) return 0;
  waitForFile(path);
  write(STDOUT_FILENO, "grandchild");
  ::_exit(0);
}

int outputFirst(const Words& words) {
  writePattern(STDOUT_FILENO, std::stoull(words.at(0)));
  return writePattern(STDERR_FILENO, std::stoull(words.at(1)));
}

int errorFirst(const Words& words) {
  writePattern(STDERR_FILENO, std::stoull(words.at(0)));
  return writePattern(STDOUT_FILENO, std::stoull(words.at(1)));
}

const std::map<std::string, std::function<int(const Words&)>> verbs = {
    {"exit", [](const Words& words) { return std::stoi(words.at(0)); }},
    {"signal", [](const Words& words) { return std::raise(std::stoi(words.at(0))); }},
    {"output", [](const Words& w) { return writePattern(STDOUT_FILENO, std::stoull(w.at(0))); }},
    {"output-first", outputFirst},
    {"error-first", errorFirst},
    {"echo", echo},
    {"echo-error", [](const Words& words) { return write(STDERR_FILENO, words.at(0)), 0; }},
    {"environment", [](const Words&) { return listEnvironment(); }},
    {"descriptors", [](const Words&) { return listDescriptors(); }},
    {"signals", [](const Words&) { return listSignals(); }},
    {"input", [](const Words&) { return describeInput(); }},
    {"wait", [](const Words&) { return waitForEver(); }},
    {"wait-for-file", [](const Words& words) { return waitForFile(words.at(0)), 0; }},
    {"ignore", [](const Words& words) { return ignoreTermination(words.at(0)); }},
    {"grandchild", [](const Words& words) { return leaveGrandchild(words.at(0)); }},
    {"grandchild-and-wait",
     [](const Words& words) { return leaveGrandchild(words.at(0)), waitForEver(); }},
};

}  // namespace

int main(int argc, char** argv) {
  const Words words(argv + 1, argv + argc);
  const auto verb = words.empty() ? verbs.end() : verbs.find(words.front());
  if (verb == verbs.end()) {
    std::fputs("TaskProbe: unknown verb\n", stderr);
    return 64;
  }
  return verb->second({words.begin() + 1, words.end()});
}
