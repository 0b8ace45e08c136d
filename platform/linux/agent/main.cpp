#include <glib-unix.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/linux/agent/Agent.h"
#include "platform/linux/agent/Credentials.h"

// Usage: authentication-agent, with a stream socket as standard input whose other end its parent
// made.
//
// Reads a name and a password from it, registers as the authentication agent of its parent process
// alone, says so with one byte, and stays until the other end of the socket is closed.

namespace {

// Whether the other end of standard input was made by this program's parent, who may be another by
// now: it must not be answered for whoever takes in the orphans of the one who asked.
bool isParentsSocket() {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(STDIN_FILENO, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.pid == ::getppid();
}

// What is to be given back at the end; null when the authority does not take the agent.
gpointer registerAgent(PolkitAgentListener* agent) {
  PolkitSubject* parent =
      polkit_unix_process_new_for_owner(::getppid(), 0, static_cast<gint>(::getuid()));
  const gpointer registration = polkit_agent_listener_register(
      agent, POLKIT_AGENT_REGISTER_FLAGS_NONE, parent, nullptr, nullptr, nullptr);
  g_object_unref(parent);
  return registration;
}

gboolean onParentDone(gint, GIOCondition, gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

}  // namespace

int main() {
  // Other processes of the same user must not read the password here.
  ::prctl(PR_SET_DUMPABLE, 0);
  authentication_agent::Credentials credentials;
  if (!credentials.read(STDIN_FILENO) || !isParentsSocket()) return EXIT_FAILURE;
  const gpointer registration = registerAgent(authentication_agent::makeAgent(credentials));
  if (registration == nullptr) return EXIT_FAILURE;
  if (::send(STDIN_FILENO, "r", 1, MSG_NOSIGNAL) != 1) return EXIT_FAILURE;
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), onParentDone, loop);
  g_main_loop_run(loop);
  // The authority would notice the end of the connection by itself, but too late for the parent's
  // next try.
  polkit_agent_listener_unregister(registration);
  return EXIT_SUCCESS;
}
