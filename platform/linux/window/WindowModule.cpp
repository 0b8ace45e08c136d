#include "platform/linux/window/WindowModule.h"

#include "platform/linux/window/AlertView.h"
#include "platform/linux/window/Display.h"
#include "platform/linux/window/StatusView.h"

namespace window {
namespace {

constexpr QVWindowModule kModule = {
    display::open,
    status_view::make,
    status_view::show,
    status_view::activate,
    status_view::startAnimation,
    status_view::setStatus,
    status_view::hide,
    alert_view::show,
};

}  // namespace
}  // namespace window

extern "C" __attribute__((visibility("default"))) const QVWindowModule* qvWindowModule1() {
  return &window::kModule;
}
