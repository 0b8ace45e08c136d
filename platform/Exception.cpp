#include "platform/Exception.h"

#include <atomic>
#include <cstdlib>
#include <utility>

namespace platform {
namespace {

std::atomic<UncaughtExceptionHandler> uncaughtExceptionHandler = nullptr;
std::atomic<std::terminate_handler> previousTerminateHandler = nullptr;

void showToHandler(const std::exception_ptr& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (const Exception& exception) {
    if (UncaughtExceptionHandler handler = uncaughtExceptionHandler) handler(exception);
  } catch (...) {
    // Not ours to describe; the process dies of it all the same.
    return;
  }
}

[[noreturn]] void onTerminate() {
  if (std::exception_ptr thrown = std::current_exception()) showToHandler(thrown);
  if (std::terminate_handler previous = previousTerminateHandler) previous();
  std::abort();
}

}  // namespace

Exception::Exception(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)) {}

void setUncaughtExceptionHandler(UncaughtExceptionHandler handler) noexcept {
  uncaughtExceptionHandler = handler;
  std::terminate_handler current = std::get_terminate();
  if (current == onTerminate) return;
  previousTerminateHandler = current;
  std::set_terminate(onTerminate);
}

}  // namespace platform
