#include <fcntl.h>
#include <gtk/gtk.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "window/Conversation.h"
#include "window/Display.h"
#include "window/Messages.h"

namespace {

constexpr int kUsageError = 64;
constexpr int kNoDisplay = 1;

bool isStartedRightly(int argc, char** argv) {
  return argc == 3 && argv[1] == std::string_view(window::kVersion) &&
         ::fcntl(window::kSocket, F_GETFD) >= 0;
}

bool isApplicationGone() {
  pollfd socket = {window::kSocket, 0, 0};
  return ::poll(&socket, 1, 0) != 0;
}

// Nothing that a terminal sends to the application concerns its window, and a window on a display
// that has stopped answering must not outlast the application either.
bool standApart() {
  ::setsid();
  return ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && !isApplicationGone();
}

}  // namespace

// See Messages.h. Whatever rights the application has, this program has the person's only.
int main(int argc, char** argv) {
  if (!isStartedRightly(argc, argv)) {
    std::fputs("this program is started by the application whose window it shows\n", stderr);
    return kUsageError;
  }
  if (!standApart()) return 0;
  ::fcntl(window::kSocket, F_SETFD, FD_CLOEXEC);
  g_set_prgname(argv[2]);
  if (!window::display::open()) return kNoDisplay;
  window::conversation::begin();
  gtk_main();
}
