#include "Shared/QVTaskNotification.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "tests/support/CallbackHost.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"

// A post beside the same calls made bare, with the same pause after both, whose own length is taken
// off; and the memory of 10,000 posts. Needs root, for a machine of its own; the posts are made as
// an ordinary user.
namespace {

using std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr int kRounds = 301;
constexpr int kPosts = 10'000;
constexpr int kThreads = 8;
constexpr std::chrono::milliseconds kPause{15};
constexpr char kHost[] = "com.quorvale.QVProClientCallback";
constexpr char kObject[] = "/com/quorvale/QVProClientCallback";

void require(int result) {
  if (result >= 0) return;
  std::fputs("a bare call failed\n", stderr);
  std::exit(1);
}

std::string ask(sd_bus* bus, const char* owner, const char* object, const char* interface,
                const char* method, const char* argument) {
  sd_bus_message* reply = nullptr;
  const char* text = "";
  require(sd_bus_call_method(bus, owner, object, interface, method, nullptr, &reply,
                             argument == nullptr ? "" : "s", argument));
  require(sd_bus_message_read(reply, "s", &text));
  std::string answer = text;
  sd_bus_message_unref(reply);
  return answer;
}

void postBare() {
  sd_bus* bus = nullptr;
  require(sd_bus_open_user(&bus));
  const std::string owner = ask(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus", "GetNameOwner", kHost);
  ask(bus, owner.c_str(), kObject, "org.freedesktop.DBus.Introspectable", "Introspect", nullptr);
  sd_bus_message* message = nullptr;
  require(sd_bus_message_new_method_call(bus, &message, owner.c_str(), kObject,
                                         "com.quorvale.QVVELMErrorCallbackProtocol",
                                         "incrementRemoteProgress"));
  require(sd_bus_message_set_expect_reply(message, 0));
  require(sd_bus_send(bus, message, nullptr));
  require(sd_bus_flush(bus));
  sd_bus_message_unref(message);
  platform::clock::sleep(kPause);
  sd_bus_close_unref(bus);
}

template <class Work>
Microseconds timeOf(Work work) {
  const auto start = steady_clock::now();
  work();
  return steady_clock::now() - start;
}

double median(std::vector<Microseconds> times) {
  std::ranges::sort(times);
  return times[times.size() / 2].count();
}

double residentMegabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::stod(line.substr(6)) / 1024;
  }
  return 0;
}

void postMany(int posts) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([posts] {
      for (int j = 0; j < posts / kThreads; ++j) QVTaskNotification::postIncrementProgress();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

void measureTime() {
  std::vector<Microseconds> posts;
  std::vector<Microseconds> bare;
  std::vector<Microseconds> pauses;
  for (int round = 0; round <= kRounds; ++round) {
    const Microseconds post = timeOf(QVTaskNotification::postIncrementProgress);
    const Microseconds calls = timeOf(postBare);
    const Microseconds pause = timeOf([] { platform::clock::sleep(kPause); });
    if (round == 0) continue;  // warms the caches
    posts.push_back(post);
    bare.push_back(calls);
    pauses.push_back(pause);
  }
  const double pause = median(pauses);
  const double ours = median(posts) - pause;
  const double theirs = median(bare) - pause;
  std::printf(
      "beyond the pause: a post %.0f us, the same calls bare %.0f us (medians of %d): "
      "%.2f times\n",
      ours, theirs, kRounds, ours / theirs);
}

void measureMemory() {
  postMany(kPosts / 10);
  const double before = residentMegabytes();
  postMany(kPosts);
  std::printf("memory before %d posts %.2f MB, after them %.2f MB\n", kPosts, before,
              residentMegabytes());
}

}  // namespace

int main() {
  if (!test::Sandbox::canSimulateMachine()) {
    std::fprintf(stderr, "this benchmark %s\n", test::Sandbox::kNeedsRoot);
    return 1;
  }
  test::Sandbox sandbox;
  sandbox.simulateMachine();
  sandbox.becomeUser(test::Sandbox::kConsoleUser);
  const test::SessionBus bus(sandbox);
  bus.announce();
  const test::CallbackHost host(
      {"--name", "QVProClientCallback", "--answers", "incrementRemoteProgress", "--prints", "no"});
  measureTime();
  measureMemory();
}
