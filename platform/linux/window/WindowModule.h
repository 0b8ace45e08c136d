#pragma once

// How the application uses its window module, a shared object that it opens only when it has
// something to show. Everything here belongs to the main thread, and every call is made through
// main_loop::callToolkit. Texts are valid UTF-8 and are copied.
extern "C" {

struct QVWindowModule {
  // Connects to the display and answers whether there is one; call once, before all else. When the
  // display dies, then or later, `leave` is called and must not return.
  bool (*openDisplay)(void (*leave)());

  // Makes the status window, hidden; call once, before the functions below.
  void (*makeStatusWindow)(const char* title, const char* heading, const char* status);
  // Shows the status window in front.
  void (*showStatusWindow)();
  // Brings the status window over those of other applications, if it is shown.
  void (*activate)();
  // Sets the status window's indicator moving.
  void (*startAnimation)();
  // Replaces the status line.
  void (*setStatus)(const char* status);
  void (*hideStatusWindow)();

  // Shows an alert with one button and returns at once. `dismissed` is called with `context`, once,
  // when the person has dismissed it.
  void (*showAlert)(const char* windowTitle, const char* title, const char* message,
                    void (*dismissed)(void* context), void* context);
};

// The number is that of this interface: another bundle's module, put in place of ours while we run,
// is not mistaken for it.
inline constexpr char kQVWindowModuleSymbol[] = "qvWindowModule1";
using QVWindowModuleFunction = const QVWindowModule* (*)();

}  // extern "C"
