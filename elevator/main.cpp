#include <syslog.h>

#include <cstdlib>
#include <utility>

#include "elevator/Inheritance.h"
#include "elevator/Server.h"

int main() {
  openlog("qv-elevator", LOG_PID, LOG_AUTHPRIV);
  const char* why = nullptr;
  posix::FileDescriptor channel = elevator::takeChannel(why);
  if (!channel) {
    syslog(LOG_ERR, "refuses to start: %s", why);
    return EXIT_FAILURE;
  }
  elevator::shedInheritance(channel);
  elevator::Server(std::move(channel)).run();
  return EXIT_SUCCESS;
}
