#pragma once

#include <functional>
#include <thread>
#include <utility>

#include "platform/Application.h"

namespace test {

// Runs the application with `body` on a thread of its own beside the main loop, and ends it when
// `body` returns. Answers the application's exit status. On the main thread, once in a process.
inline int besideMainLoop(std::function<void()> body) {
  class Delegate : public platform::ApplicationDelegate {
   public:
    explicit Delegate(std::function<void()> body) : body_(std::move(body)) {}
    void applicationDidFinishLaunching() override {
      std::thread([this] {
        body_();
        platform::application::terminate();
      }).detach();
    }

   private:
    const std::function<void()> body_;
  };

  Delegate delegate(std::move(body));
  const char* const arguments[] = {"program"};
  return platform::application::run(1, arguments, delegate);
}

}  // namespace test
