#include "platform/linux/window/WindowModule.h"

#include "platform/linux/window/AlertView.h"
#include "platform/linux/window/Display.h"
#include "platform/linux/window/StatusView.h"

namespace window {
namespace {

// Calls `function` as long as there is a display to show its effect.
template <auto function, class... Arguments>
void onDisplay(Arguments... arguments) {
  if (display::isAlive()) function(arguments...);
}

constexpr QVWindowModule kModule = {
    display::open,
    onDisplay<status_view::make>,
    onDisplay<status_view::show>,
    onDisplay<status_view::activate>,
    onDisplay<status_view::startAnimation>,
    onDisplay<status_view::setStatus>,
    onDisplay<status_view::hide>,
    onDisplay<alert_view::show>,
};

}  // namespace
}  // namespace window

extern "C" __attribute__((visibility("default"))) const QVWindowModule* qvWindowModule1() {
  return &window::kModule;
}
