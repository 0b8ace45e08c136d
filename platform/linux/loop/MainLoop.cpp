#include "platform/linux/loop/MainLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "platform/Console.h"
#include "platform/Exception.h"
#include "platform/NoDestructor.h"
#include "platform/linux/loop/WorkQueue.h"

namespace platform::main_loop {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kForEver = -1;

void wake();

struct Watch {
  short events = 0;
  std::function<void()> ready;
};

struct State {
  WorkQueue work{wake};
  // Readable when work was added.
  const int wakeEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  // The rest belongs to the main thread.
  std::map<int, Watch> watches;  // by their descriptors
  bool running = false;
  int nested = 0;  // how many calls of `iterate` are under way
};

State& state() {
  static NoDestructor<State> instance;
  return *instance;
}

// The event stays readable if it cannot count any further.
void wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(state().wakeEvent, &one, sizeof one);
}

void takeWake() {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t taken = ::read(state().wakeEvent, &count, sizeof count);
}

// What one round of the loop waits for; the event of new work comes first.
std::vector<pollfd> descriptors() {
  std::vector<pollfd> all = {{state().wakeEvent, POLLIN, 0}};
  for (const auto& [descriptor, watch] : state().watches) {
    all.push_back({descriptor, watch.events, 0});
  }
  return all;
}

void wait(std::vector<pollfd>& all, int limit) {
  const int timeout = state().work.empty() ? limit : 0;
  if (::poll(all.data(), all.size(), timeout) < 0) all.clear();  // a signal
}

// Calls what is ready; one of them may have ended the watch of another. Whether there was anything.
bool callReady(const std::vector<pollfd>& all) {
  bool called = false;
  for (const pollfd& each : all) {
    const auto found = state().watches.find(each.fd);
    if (each.revents == 0 || found == state().watches.end()) continue;
    const std::function<void()> ready = found->second.ready;
    callGuarded(ready);
    called = true;
  }
  return called;
}

// One round of the loop, waiting at most `limit` milliseconds: what is ready at the descriptors and
// the first piece of work, so that neither keeps the other waiting. Whether there was anything. No
// exception comes out of here: the process ends where it was thrown.
bool serveOnce(int limit) noexcept {
  std::vector<pollfd> all = descriptors();
  wait(all, limit);
  if (!all.empty() && all.front().revents != 0) takeWake();
  const bool called = callReady(all);
  return state().work.runFirst() || called;
}

int remaining(steady_clock::time_point end) {
  const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now()).count();
  return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, INT_MAX));
}

std::function<void()> guarded(std::function<void()> work) {
  return [work = std::move(work)] { callGuarded(work); };
}

}  // namespace

void callGuarded(const std::function<void()>& work) {
  try {
    work();
  } catch (const Exception& exception) {
    console::log("Exception on the main thread: %@ - %@", exception.name(), exception.reason());
  }
}

void add(std::function<void()> work) {
  state().work.add(guarded(std::move(work)));
}

void addAndWait(std::function<void()> work) {
  state().work.addAndWait(guarded(std::move(work)));
}

void run(std::function<void()> first) {
  State& main = state();
  main.work.addFirst(guarded(std::move(first)));
  main.running = true;
  while (main.running) serveOnce(kForEver);
}

bool iterate(milliseconds limit) {
  State& main = state();
  const auto end = steady_clock::now() + limit;
  bool served = false;
  ++main.nested;
  do {
    served = serveOnce(remaining(end));
  } while (!served && steady_clock::now() < end);
  --main.nested;
  return served;
}

bool quit() {
  State& main = state();
  if (!main.running || main.nested > 0) return false;
  main.running = false;
  return true;
}

void close() {
  state().work.close();
}

bool isClosed() {
  return state().work.isClosed();
}

void watch(int descriptor, short events, std::function<void()> ready) {
  state().watches.insert_or_assign(descriptor, Watch{events, std::move(ready)});
}

void unwatch(int descriptor) {
  state().watches.erase(descriptor);
}

}  // namespace platform::main_loop
