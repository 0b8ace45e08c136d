// A module that tells who has loaded it: a line with process and user id in a file beside itself.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

__attribute__((constructor)) void tell() {
  Dl_info here{};
  if (::dladdr(reinterpret_cast<void*>(tell), &here) == 0) return;
  const std::string path = std::string(here.dli_fname) + ".loaded";
  std::FILE* file = std::fopen(path.c_str(), "a");
  if (file == nullptr) return;
  std::fprintf(file, "%d %u\n", ::getpid(), ::geteuid());
  std::fclose(file);
}

}  // namespace
