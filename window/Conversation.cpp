#include "window/Conversation.h"

#include <glib-unix.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <variant>

#include "window/AlertView.h"
#include "window/Display.h"
#include "window/Messages.h"
#include "window/StatusView.h"

namespace window::conversation {
namespace {

// At once: what the toolkit would still do at an orderly exit may wait for the display.
[[noreturn]] void end() {
  ::_exit(0);
}

void answer(const Answer& answer) {
  if (send(kSocket, encoded(answer)) != Sent::whole) end();
}

// The alert is off the screen before anything goes on.
void tellDismissed(std::uint32_t number) {
  display::flush();
  answer(Dismissed{number});
}

struct CarryOut {
  void operator()(const ShowStatusWindow& /*request*/) const { status_view::show(); }
  void operator()(const Activate& /*request*/) const { status_view::activate(); }
  void operator()(const StartAnimation& /*request*/) const { status_view::startAnimation(); }
  void operator()(const SetStatus& request) const { status_view::setStatus(request.text.c_str()); }
  void operator()(const HideStatusWindow& /*request*/) const { status_view::hide(); }
  void operator()(const ShowAlert& request) const { alert_view::show(request, tellDismissed); }
  void operator()(const Ping& /*request*/) const {
    display::roundTrip();
    answer(Alive{});
  }
};

gboolean serve(gint /*socket*/, GIOCondition /*condition*/, gpointer /*data*/) {
  const Received received = receive(kSocket, kLongestRequest);
  if (!received.open) end();
  if (received.packet.empty()) return G_SOURCE_CONTINUE;
  const std::optional<Request> request = requestIn(received.packet);
  if (!request) end();
  std::visit(CarryOut(), *request);
  return G_SOURCE_CONTINUE;
}

}  // namespace

void begin() {
  answer(Ready{});
  g_unix_fd_add(kSocket, GIOCondition(G_IO_IN | G_IO_HUP | G_IO_ERR), serve, nullptr);
}

}  // namespace window::conversation
