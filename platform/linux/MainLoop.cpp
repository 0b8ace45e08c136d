#include "platform/linux/MainLoop.h"

#include <glib.h>

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

#include "platform/Console.h"
#include "platform/Exception.h"
#include "platform/NoDestructor.h"
#include "platform/linux/WorkQueue.h"

namespace platform::main_loop {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The priority at which the toolkit repaints. Above it, a thread that sends much work would freeze
// the window; below it, an animation would hold up the work.
constexpr int kWorkPriority = G_PRIORITY_HIGH_IDLE + 20;

void wake();
void serveWorkIn(GMainContext* context);

struct State {
  State() { serveWorkIn(context); }

  WorkQueue work{wake};
  // Stored by the main thread alone. The toolkit knows no context but the default one.
  std::atomic<GMainContext*> context = g_main_context_default();
  // The rest belongs to the main thread.
  bool running = false;
  int nested = 0;  // how many calls of `iterate` are under way
};

State& state() {
  static NoDestructor<State> instance;
  return *instance;
}

void wake() {
  g_main_context_wakeup(state().context);
}

gboolean hasWork() {
  return state().work.empty() ? FALSE : TRUE;
}

gboolean prepareWork(GSource* /*source*/, gint* timeout) {
  *timeout = -1;
  return hasWork();
}

gboolean checkWork(GSource* /*source*/) {
  return hasWork();
}

// No exception may cross the frames of the loop: they are C. The process ends where it was thrown.
gboolean dispatchWork(GSource* /*source*/, GSourceFunc /*callback*/, gpointer /*data*/) noexcept {
  state().work.runFirst();
  return G_SOURCE_CONTINUE;
}

void serveWorkIn(GMainContext* context) {
  static GSourceFuncs functions = {prepareWork, checkWork, dispatchWork, nullptr, nullptr, nullptr};
  GSource* source = g_source_new(&functions, sizeof(GSource));
  g_source_set_priority(source, kWorkPriority);
  g_source_set_can_recurse(source, TRUE);  // work may itself serve events
  g_source_attach(source, context);
  g_source_unref(source);
}

std::function<void()> guarded(std::function<void()> work) {
  return [work = std::move(work)] { callGuarded(work); };
}

int remaining(steady_clock::time_point end) {
  const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now()).count();
  return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, G_MAXINT));
}

// One round of the loop as g_main_context_iteration(3) makes it, with a limit to its wait.
bool serveOnce(GMainContext* context, int limit) {
  gint priority = 0;
  g_main_context_prepare(context, &priority);
  std::vector<GPollFD> descriptors(8);
  gint timeout = 0;
  gint count = 0;
  while ((count = g_main_context_query(context, priority, &timeout, descriptors.data(),
                                       static_cast<gint>(descriptors.size()))) >
         static_cast<gint>(descriptors.size())) {
    descriptors.resize(static_cast<std::size_t>(count));
  }
  const int wait = timeout < 0 ? limit : std::min(timeout, limit);
  g_poll(descriptors.data(), static_cast<guint>(count), wait);
  if (g_main_context_check(context, priority, descriptors.data(), count) == FALSE) return false;
  g_main_context_dispatch(context);
  return true;
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
  while (main.running) g_main_context_iteration(main.context, TRUE);
}

bool iterate(milliseconds limit) {
  State& main = state();
  const auto end = steady_clock::now() + limit;
  bool served = false;
  ++main.nested;
  do {
    GMainContext* context = main.context;
    g_main_context_acquire(context);
    served = serveOnce(context, remaining(end));
    g_main_context_release(context);
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

void abandonToolkit() {
  GMainContext* context = g_main_context_new();
  serveWorkIn(context);
  state().context = context;
}

void close() {
  state().work.close();
}

}  // namespace platform::main_loop
