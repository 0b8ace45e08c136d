#include "platform/StatusWindow.h"

#include "platform/Text.h"
#include "platform/linux/WindowModule.h"

namespace platform::status_window {
namespace {

constexpr char kTitle[] = "Quorvale Software Update";
constexpr char kHeading[] = "Installing the update";
constexpr char kFirstStatus[] = "Putting the new version in place...";

bool made = false;

// The module with the window made, or null without a display.
const QVWindowModule* window() {
  const QVWindowModule* module = window_module::open();
  if (module != nullptr && !made) {
    module->makeStatusWindow(kTitle, kHeading, kFirstStatus);
    made = true;
  }
  return module;
}

}  // namespace

void makeKeyAndOrderFront() {
  if (const QVWindowModule* module = window()) module->showStatusWindow();
}

void activateApplication() {
  if (const QVWindowModule* module = window()) module->activate();
}

void startAnimation() {
  if (const QVWindowModule* module = window()) module->startAnimation();
}

void setStatusText(std::string_view text) {
  if (const QVWindowModule* module = window()) module->setStatus(text::validUtf8(text).c_str());
}

void orderOut() {
  if (made && window_module::isOpen()) window_module::open()->hideStatusWindow();
}

}  // namespace platform::status_window
