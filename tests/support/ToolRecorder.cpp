#include "tests/support/ToolRecorder.h"

#include <sys/mount.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "tests/support/WaitFor.h"

namespace test {
namespace fs = std::filesystem;

ToolRecorder::ToolRecorder(const Sandbox& sandbox)
    : sandbox_(sandbox), record_(sandbox.makeFile("tools/record")) {
  fs::permissions(record_, fs::perms(0666));
}

void ToolRecorder::standInFor(const std::string& tool, const std::string& then) {
  makeChangeable(fs::canonical(fs::path(tool).parent_path()));
  fs::remove(tool);
  // One write for the whole line: tools run beside each other.
  std::ofstream(tool) << "#!/bin/sh\n"
                      << "read -r now rest </proc/uptime\n"
                      << "line=\"$now $$ " << tool << "\"\n"
                      << "for word; do line=\"$line [$word]\"; done\n"
                      << "printf '%s\\n' \"$line\" >>'" << record_ << "'\n"
                      << then << "\n";
  fs::permissions(tool, fs::perms(0755));
}

void ToolRecorder::takeAway(const std::string& tool) {
  makeChangeable(fs::canonical(fs::path(tool).parent_path()));
  fs::remove(tool);
}

// Shows the folder as it is; changes stay in the scratch directory.
void ToolRecorder::makeChangeable(const std::string& folder) {
  if (!changeable_.insert(folder).second) return;
  const std::string options = "lowerdir=" + folder +
                              ",upperdir=" + sandbox_.makeDirectory("tools/upper" + folder) +
                              ",workdir=" + sandbox_.makeDirectory("tools/work" + folder);
  if (::mount("overlay", folder.c_str(), "overlay", 0, options.c_str()) != 0) {
    throw std::system_error(errno, std::generic_category(), "overlay " + folder);
  }
}

std::vector<ToolRecorder::Run> ToolRecorder::runs() const {
  std::vector<Run> runs;
  std::istringstream lines(readFile(record_));
  Run run{};
  while (lines >> run.begin >> run.pid && std::getline(lines >> std::ws, run.command)) {
    runs.push_back(run);
  }
  return runs;
}

std::vector<std::string> ToolRecorder::commands() const {
  std::vector<std::string> commands;
  for (Run& run : runs()) commands.push_back(std::move(run.command));
  return commands;
}

std::vector<std::string> ToolRecorder::waitForCommands(std::size_t count) const {
  waitFor([&] { return runs().size() >= count; });
  return commands();
}

}  // namespace test
