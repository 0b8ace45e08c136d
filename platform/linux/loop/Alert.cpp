#include "platform/Alert.h"

#include <chrono>
#include <future>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "platform/Application.h"
#include "platform/Console.h"
#include "platform/Format.h"
#include "platform/MainThread.h"
#include "platform/NoDestructor.h"
#include "platform/Text.h"
#include "platform/linux/loop/WindowModule.h"

namespace platform::alert {
namespace {

constexpr char kWindowTitle[] = "Quorvale Software Update";

// An alert that somebody waits for. The wait ends when `dismissed` is set, and also when the main
// thread has ended without taking the alert: it was the only owner.
struct Alert {
  std::string title;
  std::string message;
  std::promise<void> dismissed;
};

using Alerts = std::list<std::shared_ptr<Alert>>;

// The alerts on the screen. Main thread only.
Alerts& shown() {
  static NoDestructor<Alerts> alerts;
  return *alerts;
}

void dismiss(void* context) {
  shown().remove_if([context](const auto& alert) {
    if (alert.get() != context) return false;
    alert->dismissed.set_value();
    return true;
  });
}

void printAndReleaseAll() {
  for (const auto& alert : std::exchange(shown(), {})) {
    console::log("Alert: %@ - %@", alert->title, alert->message);
    alert->dismissed.set_value();
  }
}

// Nobody is left waiting for an alert that can no longer be answered.
void watchForTheEnd() {
  static const bool watching = [] {
    application::addTerminationObserver([] {
      for (const auto& alert : std::exchange(shown(), {})) alert->dismissed.set_value();
    });
    window_module::setDisplayLostHandler(printAndReleaseAll);
    return true;
  }();
  static_cast<void>(watching);
}

void show(const std::shared_ptr<Alert>& alert) {
  watchForTheEnd();
  shown().push_back(alert);
  const bool isShown = window_module::call([&alert](const QVWindowModule& module) {
    module.showAlert(kWindowTitle, alert->title.c_str(), alert->message.c_str(), dismiss,
                     alert.get());
  });
  if (!isShown) printAndReleaseAll();
}

bool isOver(const std::future<void>& dismissed) {
  return dismissed.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

}  // namespace

void run(std::string_view title, std::string_view messageFormat) {
  auto alert = std::make_shared<Alert>();
  alert->title = text::validUtf8(title);
  alert->message = text::validUtf8(formatted(messageFormat));
  const std::future<void> dismissed = alert->dismissed.get_future();
  if (!main_thread::isCurrent()) {
    main_thread::perform([alert = std::move(alert)] { show(alert); }, main_thread::Wait::no);
    dismissed.wait();
    return;
  }
  show(alert);
  while (!isOver(dismissed)) main_thread::pumpOneEvent(std::chrono::hours(1));
}

}  // namespace platform::alert
