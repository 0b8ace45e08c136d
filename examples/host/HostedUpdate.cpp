#include "examples/host/HostedUpdate.h"

#include <cstdio>
#include <utility>

namespace host {
namespace {

// A successful update makes two steps, before the copy and after it, and then finishes.
constexpr int kSteps = 2;

}  // namespace

HostedUpdate::HostedUpdate(HostWindow& window, std::vector<std::string> command)
    : window_(window),
      command_(std::move(command)),
      object_({.ready = [this] { start(); },
               .progressed = [this] { showStep(); },
               .finished = [this] { showFinish(); },
               .failed = [this](const std::string& error) { error_ = error; },
               .disconnected = [this] { end("The helper has taken its leave."); },
               .unavailable =
                   [this] { end("No update: there is no session bus, or another host."); }}) {
  window_.showStatus("Looking for the session bus\u2026");
}

void HostedUpdate::start() {
  std::vector<const char*> words;
  for (const std::string& word : command_) words.push_back(word.c_str());
  words.insert(words.end(), {"-silent", "YES", nullptr});
  GError* error = nullptr;
  GSubprocess* helper = g_subprocess_newv(words.data(), G_SUBPROCESS_FLAGS_STDOUT_SILENCE, &error);
  if (helper == nullptr) {
    end(std::string("The helper cannot be started: ") + error->message);
    g_error_free(error);
    return;
  }
  window_.showStatus("Preparing the update\u2026");
  g_subprocess_wait_async(helper, nullptr, helperEnded, this);
  g_object_unref(helper);
}

void HostedUpdate::showStep() {
  ++steps_;
  window_.showProgress(static_cast<double>(steps_) / (kSteps + 1));
  window_.showStatus(steps_ < kSteps ? "Copying the new version\u2026" : "Finishing\u2026");
}

// The helper says that it has finished, not how: a run that failed has made fewer steps.
void HostedUpdate::showFinish() {
  if (steps_ < kSteps) return end("The update was not installed. " + error_);
  window_.showProgress(1);
  end("The update is installed.");
}

// static
void HostedUpdate::helperEnded(GObject* helper, GAsyncResult* result, gpointer self) {
  g_subprocess_wait_finish(G_SUBPROCESS(helper), result, nullptr);
  static_cast<HostedUpdate*>(self)->end("The helper ended without a word. Its log says more.");
}

void HostedUpdate::end(const std::string& text) {
  if (std::exchange(ended_, true)) return;
  window_.showEnd(text);
  // For whoever started this in a terminal.
  std::puts(text.c_str());
  std::fflush(stdout);
}

}  // namespace host
