#include <fcntl.h>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

// A login manager for tests: it takes the real one's name on the system bus and hands out locks as
// that one does, printing "what|who|why|mode" for each that is asked for and "(released)" for each
// whose last holder has let go.
//
//     LoginManagerHost grant|only-delay|refuse|hang|no-descriptor
namespace {

constexpr char kName[] = "org.freedesktop.login1";
constexpr char kRefusal[] = "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired";

std::string behaviour;
std::vector<int> locks;

void say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

int handOutLock(sd_bus_message* call) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return -1;
  locks.push_back(ends[0]);
  const int result = sd_bus_reply_method_return(call, "h", ends[1]);
  ::close(ends[1]);
  return result;
}

int inhibit(sd_bus_message* call) {
  std::array<const char*, 4> words{};
  sd_bus_message_read(call, "ssss", &words[0], &words[1], &words[2], &words[3]);
  const std::string_view mode = words[3];
  say(std::string(words[0]) + "|" + words[1] + "|" + words[2] + "|" + words[3]);
  if (behaviour == "hang") return 1;
  if (behaviour == "no-descriptor") return sd_bus_reply_method_return(call, "s", "none");
  const bool granted = behaviour == "grant" || (behaviour == "only-delay" && mode == "delay");
  if (granted) return handOutLock(call);
  return sd_bus_reply_method_errorf(call, kRefusal, "Interactive authentication required.");
}

int receive(sd_bus_message* message, void*, sd_bus_error*) {
  if (sd_bus_message_is_method_call(message, "org.freedesktop.login1.Manager", "Inhibit") > 0) {
    return inhibit(message);
  }
  return 0;
}

void reportReleased() {
  std::erase_if(locks, [](int lock) {
    pollfd end = {lock, POLLIN, 0};
    if (::poll(&end, 1, 0) <= 0) return false;
    say("(released)");
    ::close(lock);
    return true;
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 64;
  behaviour = argv[1];
  sd_bus* bus = nullptr;
  int result = sd_bus_open_system(&bus);
  if (result >= 0)
    result = sd_bus_add_object(bus, nullptr, "/org/freedesktop/login1", receive, nullptr);
  if (result >= 0) result = sd_bus_request_name(bus, kName, 0);
  if (result >= 0) say("(ready)");
  constexpr std::uint64_t kLookEvery = 5000;  // microseconds
  while (result >= 0) {
    result = sd_bus_process(bus, nullptr);
    reportReleased();
    if (result == 0) result = sd_bus_wait(bus, kLookEvery);
  }
  return 1;
}
