#include "platform/CrashLog.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "platform/Bundle.h"
#include "platform/FileSystem.h"
#include "platform/Format.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/crash/CrashWriter.h"
#include "platform/linux/personal/PersonsChild.h"
#include "platform/linux/users/PlaceOwner.h"

namespace platform::crash_log {
namespace {

posix::FileDescriptor openFolder(const std::string& folder) {
  if (process_info::isSuperuser()) {
    const auto owner = reach(folder).owner;
    if (owner) return personal::PersonsChild::of(*owner).openFolder(folder);
  }
  static_cast<void>(file_system::createDirectory(folder));
  return posix::FileDescriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// Never a standard descriptor, free as it may be: what others print would be lost.
posix::FileDescriptor aboveStandardEnds(const posix::FileDescriptor& descriptor) {
  return posix::FileDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// As a part of a file's name.
std::string part(std::string name) {
  std::ranges::replace(name, '/', '-');
  return name;
}

std::string applicationName() {
  return Bundle::main().infoString("CFBundleName").value_or(process_info::processName());
}

// Without the domain.
std::string hostName(const utsname& names) {
  const std::string host = names.nodename;
  return host.substr(0, host.find('.'));
}

std::string header(const utsname& names) {
  const Bundle& bundle = Bundle::main();
  return formatted("Process:         %@ [%d]\n", process_info::processName(), ::getpid()) +
         formatted("Path:            %@\n", process_info::executablePath()) +
         formatted("Identifier:      %@\n", bundle.identifier()) +
         formatted("Version:         %@\n", bundle.infoString("CFBundleVersion")) +
         formatted("System:          %@, %s\n", process_info::operatingSystemVersion(),
                   names.machine) +
         formatted("Started by:      process %d, user %u\n\n", ::getppid(), ::getuid());
}

// Of this moment: a process that crashes half a year later is an hour out.
std::chrono::seconds zone() {
  const std::time_t now = std::time(nullptr);
  std::tm fields{};
  ::tzset();
  ::localtime_r(&now, &fields);
  return std::chrono::seconds(fields.tm_gmtoff);
}

}  // namespace

bool installWriter(const std::string& folder) {
  posix::FileDescriptor opened = aboveStandardEnds(openFolder(folder));
  if (!opened) return false;
  utsname names{};
  ::uname(&names);
  crash::install({.folder = std::move(opened),
                  .nameStart = part(applicationName()) + "_",
                  .nameEnd = part("_" + hostName(names) + ".crash"),
                  .header = header(names),
                  .program = process_info::executablePath(),
                  .zone = zone()});
  return true;
}

}  // namespace platform::crash_log
