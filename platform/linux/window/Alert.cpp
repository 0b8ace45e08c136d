#include "platform/Alert.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/Application.h"
#include "platform/Console.h"
#include "platform/Format.h"
#include "platform/MainThread.h"
#include "platform/NoDestructor.h"
#include "platform/Text.h"
#include "platform/linux/window/WindowProcess.h"

namespace platform::alert {
namespace {

// An alert that somebody waits for. The wait ends when `dismissed` is set, and also when the main
// thread has ended without taking the alert: it was the only owner.
struct Alert {
  std::string title;
  std::string message;
  std::promise<void> dismissed;
};

using Alerts = std::map<std::uint32_t, std::shared_ptr<Alert>>;

// The alerts that wait to be dismissed, by their numbers. Main thread only.
Alerts& shown() {
  static NoDestructor<Alerts> alerts;
  return *alerts;
}

bool dismiss(std::uint32_t number) {
  const auto alert = shown().extract(number);
  if (alert.empty()) return false;
  alert.mapped()->dismissed.set_value();
  return true;
}

void printAndReleaseAll() {
  for (const auto& [number, alert] : std::exchange(shown(), {})) {
    console::log("Alert: %@ - %@", alert->title, alert->message);
    alert->dismissed.set_value();
  }
}

// Nobody is left waiting for an alert that can no longer be answered.
void watchForTheEnd() {
  static const bool watching = [] {
    application::addTerminationObserver([] {
      for (const auto& [number, alert] : std::exchange(shown(), {})) alert->dismissed.set_value();
    });
    WindowProcess::shared().setAlertListener({dismiss, printAndReleaseAll});
    return true;
  }();
  static_cast<void>(watching);
}

void show(const std::shared_ptr<Alert>& alert) {
  static std::uint32_t lastNumber = 0;
  watchForTheEnd();
  const std::uint32_t number = ++lastNumber;
  shown().emplace(number, alert);
  const window::ShowAlert request = {number, alert->title, alert->message};
  if (!WindowProcess::shared().send(request)) printAndReleaseAll();
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
