#include <sys/inotify.h>
#include <unistd.h>

#include <cstdio>

// Prints "ready", then a line for each change in the folder that is its argument, as any program
// beside the one under test is told of them: what happened and the item's name.
namespace {

const char* describe(unsigned mask) {
  if ((mask & IN_ATTRIB) != 0) return "attributes of";
  if ((mask & IN_CREATE) != 0) return "created";
  if ((mask & (IN_DELETE | IN_MOVED_FROM)) != 0) return "gone";
  if ((mask & IN_MOVED_TO) != 0) return "arrived";
  return "something of";
}

}  // namespace

int main(int argc, char** argv) {
  constexpr unsigned kEvents = IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
  const int watch = ::inotify_init1(IN_CLOEXEC);
  if (argc != 2 || ::inotify_add_watch(watch, argv[1], kEvents) < 0) return 1;
  std::puts("ready");
  std::fflush(stdout);
  alignas(inotify_event) char buffer[4096];
  for (ssize_t size = 0; (size = ::read(watch, buffer, sizeof buffer)) > 0;) {
    for (const char* next = buffer; next < buffer + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(next);
      std::printf("%s %s\n", describe(event->mask), event->len > 0 ? event->name : "");
      next += sizeof *event + event->len;
    }
    std::fflush(stdout);
  }
  return 0;
}
