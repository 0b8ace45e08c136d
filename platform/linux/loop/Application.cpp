#include "platform/Application.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/MainThread.h"
#include "platform/NoDestructor.h"
#include "platform/UserDefaults.h"
#include "platform/linux/loop/MainLoop.h"

namespace platform::application {
namespace {

struct Observers {
  std::mutex mutex;  // guards the rest
  ObserverId lastId = 0;
  std::map<ObserverId, std::function<void()>> byId;
};

Observers& observers() {
  static NoDestructor<Observers> instance;
  return *instance;
}

// The observer that was added first, taken out; none when all have been.
std::optional<std::function<void()>> takeFirstObserver() {
  Observers& all = observers();
  const std::lock_guard lock(all.mutex);
  if (all.byId.empty()) return std::nullopt;
  return std::move(all.byId.extract(all.byId.begin()).mapped());
}

// Waiting threads go first, so that an observer may wait for one of them.
void finish() noexcept {
  main_loop::close();
  while (const auto observer = takeFirstObserver()) {
    main_loop::callGuarded(*observer);
  }
}

constexpr std::initializer_list<int> kTerminationRequests = {SIGHUP, SIGINT, SIGTERM};

void handle(std::initializer_list<int> signals, void (*handler)(int)) {
  for (const int number : signals) std::signal(number, handler);
}

[[noreturn]] void exitNow() {
  finish();
  std::exit(EXIT_SUCCESS);
}

void endMainLoop() {
  if (!main_loop::quit()) exitNow();
}

}  // namespace

int run(int argc, const char* const* argv, ApplicationDelegate& delegate) {
  user_defaults::setArguments(argc, argv);
  handle({SIGPIPE, SIGXFSZ}, SIG_IGN);
  // Whoever started this process may have left it ignored, and a child's status is lost then.
  std::signal(SIGCHLD, SIG_DFL);
  main_loop::run([&delegate] { delegate.applicationDidFinishLaunching(); });
  finish();
  return EXIT_SUCCESS;
}

void terminate() {
  if (main_thread::isCurrent()) exitNow();
  main_loop::add(endMainLoop);
  // The process exits under this thread. A signal handler that returns must not set it free.
  for (;;) ::pause();
}

// Not blocked: a thread that is there already would still receive them.
void ignoreTerminationRequests() {
  handle(kTerminationRequests, SIG_IGN);
}

void heedTerminationRequests() {
  handle(kTerminationRequests, SIG_DFL);
}

ObserverId addTerminationObserver(std::function<void()> observer) {
  Observers& all = observers();
  const std::lock_guard lock(all.mutex);
  all.byId.emplace(++all.lastId, std::move(observer));
  return all.lastId;
}

void removeTerminationObserver(ObserverId id) {
  Observers& all = observers();
  std::function<void()> removed;  // destroyed outside the lock: it may own what comes back here
  const std::lock_guard lock(all.mutex);
  if (const auto entry = all.byId.find(id); entry != all.byId.end()) {
    removed = std::move(entry->second);
    all.byId.erase(entry);
  }
}

}  // namespace platform::application
