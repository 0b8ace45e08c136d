#pragma once

// Alerts. Main thread, with a live display; see QVWindowModule.
namespace window::alert_view {

void show(const char* windowTitle, const char* title, const char* message,
          void (*dismissed)(void* context), void* context);

}  // namespace window::alert_view
