#include "platform/ProcessInfo.h"

#include <glib.h>
#include <sys/utsname.h>
#include <systemd/sd-id128.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "platform/Path.h"

namespace platform::process_info {
namespace {

std::string kernelVersion() {
  utsname names{};
  if (::uname(&names) != 0) return "Linux";
  return std::string(names.sysname) + " " + names.release;
}

}  // namespace

std::string processName() {
  return path::lastComponent(executablePath());
}

std::string operatingSystemVersion() {
  const std::unique_ptr<char, decltype(&g_free)> name(g_get_os_info(G_OS_INFO_KEY_PRETTY_NAME),
                                                      g_free);
  return name ? std::string(name.get()) : kernelVersion();
}

long processorCount() {
  return ::sysconf(_SC_NPROCESSORS_ONLN);
}

std::uint64_t physicalMemory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long pageSize = ::sysconf(_SC_PAGESIZE);
  if (pages < 0 || pageSize < 0) return 0;
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

std::string globallyUniqueString() {
  sd_id128_t id{};
  if (sd_id128_randomize(&id) < 0) {
    const std::unique_ptr<char, decltype(&g_free)> fallback(g_uuid_string_random(), g_free);
    return fallback.get();
  }
  std::array<char, SD_ID128_UUID_STRING_MAX> text{};
  return sd_id128_to_uuid_string(id, text.data());
}

UserId userId() {
  return ::getuid();
}

bool setUserId(UserId id) {
  return ::setresuid(id, id, id) == 0;
}

}  // namespace platform::process_info
