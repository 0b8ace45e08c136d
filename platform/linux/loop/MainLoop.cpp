#include "platform/linux/loop/MainLoop.h"

#include <glib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
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

struct State {
  WorkQueue work{wake};
  // Readable when work was added.
  const int wakeEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  // The rest belongs to the main thread.
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

// What one round of the toolkit's context waits for.
struct ToolkitRound {
  gint priority = 0;
  gint timeout = kForEver;
  // Beyond the first `count` they are spare.
  std::vector<GPollFD> descriptors = std::vector<GPollFD>(8);
  gint count = 0;

  gint size() const { return static_cast<gint>(descriptors.size()); }
};

void prepare(ToolkitRound& round) {
  GMainContext* context = g_main_context_default();
  g_main_context_acquire(context);
  g_main_context_prepare(context, &round.priority);
  while ((round.count = g_main_context_query(context, round.priority, &round.timeout,
                                             round.descriptors.data(), round.size())) >
         round.size()) {
    round.descriptors.resize(static_cast<std::size_t>(round.count));
  }
}

// Whether an event was handled.
bool dispatch(ToolkitRound& round) {
  GMainContext* context = g_main_context_default();
  const bool ready =
      g_main_context_check(context, round.priority, round.descriptors.data(), round.count) != FALSE;
  if (ready) g_main_context_dispatch(context);
  g_main_context_release(context);
  return ready;
}

int shorter(int timeout, int other) {
  if (timeout < 0 || other < 0) return std::max(timeout, other);
  return std::min(timeout, other);
}

// Waits for an event of the toolkit's or for work.
void wait(ToolkitRound& round, int limit) {
  round.descriptors.resize(static_cast<std::size_t>(round.count));
  round.descriptors.push_back({state().wakeEvent, G_IO_IN, 0});
  const int timeout = state().work.empty() ? shorter(round.timeout, limit) : 0;
  g_poll(round.descriptors.data(), static_cast<guint>(round.descriptors.size()), timeout);
  if (round.descriptors.back().revents != 0) takeWake();
}

// One round of the loop, waiting at most `limit` milliseconds: the toolkit's most urgent events and
// the first piece of work, so that neither keeps the other waiting. Whether there was anything.
// No exception crosses the toolkit's frames or comes out of here: the process ends where it was
// thrown.
bool serveOnce(int limit) noexcept {
  ToolkitRound round;
  const bool prepared = callToolkit([&round] { prepare(round); });
  if (!prepared) round = {};
  wait(round, limit);
  bool served = false;
  if (prepared) callToolkit([&] { served = dispatch(round); });
  return state().work.runFirst() || served;
}

int remaining(steady_clock::time_point end) {
  const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now()).count();
  return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, G_MAXINT));
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

}  // namespace platform::main_loop
