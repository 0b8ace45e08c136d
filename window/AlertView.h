#pragma once

#include "window/Messages.h"

// Alerts, with a live display.
namespace window::alert_view {

// Shows an alert and returns at once. `dismissed` is called with its number, once, when the person
// has dismissed it.
void show(const ShowAlert& alert, void (*dismissed)(std::uint32_t number));

}  // namespace window::alert_view
