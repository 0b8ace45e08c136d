#include "platform/StatusWindow.h"

#include <functional>
#include <string>

#include "platform/Text.h"
#include "platform/linux/loop/WindowModule.h"

namespace platform::status_window {
namespace {

constexpr char kTitle[] = "Quorvale Software Update";
constexpr char kHeading[] = "Installing the update";
constexpr char kFirstStatus[] = "Putting the new version in place...";

bool made = false;

void onWindow(const std::function<void(const QVWindowModule&)>& use) {
  window_module::call([&use](const QVWindowModule& module) {
    if (!made) module.makeStatusWindow(kTitle, kHeading, kFirstStatus);
    made = true;
    use(module);
  });
}

}  // namespace

void makeKeyAndOrderFront() {
  onWindow([](const QVWindowModule& module) { module.showStatusWindow(); });
}

void activateApplication() {
  onWindow([](const QVWindowModule& module) { module.activate(); });
}

void startAnimation() {
  onWindow([](const QVWindowModule& module) { module.startAnimation(); });
}

void setStatusText(std::string_view text) {
  const std::string valid = text::validUtf8(text);
  onWindow([&valid](const QVWindowModule& module) { module.setStatus(valid.c_str()); });
}

void orderOut() {
  if (made) onWindow([](const QVWindowModule& module) { module.hideStatusWindow(); });
}

}  // namespace platform::status_window
