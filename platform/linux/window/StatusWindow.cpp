#include "platform/StatusWindow.h"

#include <string>

#include "platform/Text.h"
#include "platform/linux/window/WindowProcess.h"

namespace platform::status_window {
namespace {

// Whether there is a window to be taken off the screen.
bool made = false;

void request(const window::Request& request) {
  made = WindowProcess::shared().send(request);
}

}  // namespace

void makeKeyAndOrderFront() {
  request(window::ShowStatusWindow{});
}

void activateApplication() {
  request(window::Activate{});
}

void startAnimation() {
  request(window::StartAnimation{});
}

void setStatusText(std::string_view text) {
  request(window::SetStatus{text::validUtf8(text)});
}

void orderOut() {
  if (made) request(window::HideStatusWindow{});
}

}  // namespace platform::status_window
