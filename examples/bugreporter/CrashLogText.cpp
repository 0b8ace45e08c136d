#include "examples/bugreporter/CrashLogText.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace bug_reporter {
namespace {

using Text = std::unique_ptr<char, decltype(&g_free)>;

// What a file's contents could not be shown for.
std::string because(const std::string& reason) {
  return "The crash log cannot be shown: " + reason + ".";
}

std::string validText(const std::string& bytes) {
  return Text(g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size())), g_free).get();
}

std::string displayName(const std::string& path) {
  return Text(g_filename_display_name(path.c_str()), g_free).get();
}

// <application>_<date>_<host>.crash
std::string applicationOf(const std::string& path) {
  const std::string name = Text(g_filename_display_basename(path.c_str()), g_free).get();
  const std::size_t end = name.find('_');
  return end != std::string::npos ? name.substr(0, end) : "";
}

// One byte more than is shown, if there is one.
std::string readBeginning(int file) {
  std::string bytes(kLargestShown + 1, '\0');
  std::size_t size = 0;
  ssize_t count = 1;
  while (count > 0 && size < bytes.size()) {
    count = ::read(file, bytes.data() + size, bytes.size() - size);
    if (count > 0) size += static_cast<std::size_t>(count);
  }
  bytes.resize(size);
  return bytes;
}

std::string shown(std::string bytes) {
  const bool longer = bytes.size() > kLargestShown;
  if (longer) bytes.resize(kLargestShown);
  return validText(bytes) + (longer ? "\n[The rest of the file is not shown.]\n" : "");
}

CrashLogText contentsOf(int file) {
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    return {.text = because("It is not a file")};
  }
  return {.text = shown(readBeginning(file)), .readable = true};
}

// Without O_NONBLOCK a pipe of that name would hold the window back until somebody writes to it.
CrashLogText open(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (file < 0) return {.text = because(std::strerror(errno))};
  CrashLogText contents = contentsOf(file);
  ::close(file);
  return contents;
}

}  // namespace

CrashLogText readCrashLog(const std::string& path) {
  CrashLogText log = open(path);
  log.application = applicationOf(path);
  log.path = displayName(path);
  return log;
}

}  // namespace bug_reporter
