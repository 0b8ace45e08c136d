#include "platform/FileOperation.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <new>
#include <utility>

#include "platform/Application.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/CopyItem.h"
#include "platform/linux/files/CopyProgress.h"
#include "platform/linux/files/CountBesideCopy.h"
#include "platform/linux/loop/MainLoop.h"
#include "platform/linux/processes/SignalMaskedThread.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

// How long the end of the application waits for what a copy leaves to be removed.
constexpr std::chrono::seconds kLongestCleanUp{10};

constexpr std::chrono::duration<double> kLongestInterval = std::chrono::hours(24);

bool isPath(const std::string& text) {
  return !text.empty() && text.find('\0') == std::string::npos;
}

class BackgroundCopy final : public FileOperation,
                             public file_system::CopyObserver,
                             public std::enable_shared_from_this<BackgroundCopy> {
 public:
  Status schedule() override;
  Status unschedule() override;
  Status beginCopy(const std::string& source, const std::string& folder, const std::string& name,
                   Callback callback, std::chrono::duration<double> minimumInterval) override;
  void cancel() override { cancelled_ = true; }

  void bytesCopied(std::uint64_t bytes, const Item& item) override;
  void itemCopied(const Item& item) override;
  bool isCancelled() override { return cancelled_.load(std::memory_order_relaxed); }

 private:
  Status start();
  void endWithApplication();
  void ended();

  // On the thread of the copy.
  void run();
  Status copy();
  void reportAllCopied();

  // On the threads that copy.
  void advanced(const Item& item);

  // On the thread that counts.
  bool goOnCounting(const CopyTotals& soFar);
  void counted(const CopyTotals& totals);

  // On any of these.
  bool isDue();
  void report();

  // On the main thread.
  void deliver();
  void complete(const Status& result, bool scheduled);

  // Set when the copy begins and not changed any more.
  std::string source_;
  std::string destination_;
  Clock::duration interval_{};
  application::ObserverId endOfApplication_ = 0;

  CopyProgress progress_;
  CountBesideCopy* count_ = nullptr;  // while something is copied
  std::atomic<bool> scheduled_ = false;
  std::atomic<bool> begun_ = false;
  std::atomic<bool> cancelled_ = false;
  std::atomic<Stage> stage_ = Stage::undefined;
  std::atomic<bool> reportQueued_ = false;
  std::atomic<bool> reported_ = false;  // that it is running
  std::atomic<Clock::time_point> nextReport_{};
  std::promise<void> ended_;
  Callback callback_;  // the main thread's, once the copy has begun
};

Status BackgroundCopy::schedule() {
  if (main_loop::isClosed()) return statusFromErrno(ESHUTDOWN);
  return statusFromErrno(scheduled_.exchange(true) ? EALREADY : 0);
}

Status BackgroundCopy::unschedule() {
  return statusFromErrno(scheduled_.exchange(false) ? 0 : EINVAL);
}

Status BackgroundCopy::beginCopy(const std::string& source, const std::string& folder,
                                 const std::string& name, Callback callback,
                                 std::chrono::duration<double> minimumInterval) {
  if (!isPath(source) || !isPath(folder) || !isPath(name)) return statusFromErrno(EINVAL);
  if (begun_.exchange(true)) return statusFromErrno(EALREADY);
  source_ = source;
  destination_ = path::appending(folder, name);
  interval_ = std::chrono::duration_cast<Clock::duration>(
      std::clamp(minimumInterval, std::chrono::duration<double>::zero(), kLongestInterval));
  callback_ = std::move(callback);
  nextReport_ = Clock::now() + interval_;
  return start();
}

// The main loop closes before the application's observers are called, so a copy that sees it open
// after it has entered its own is ended with the application.
Status BackgroundCopy::start() {
  const auto self = shared_from_this();
  endOfApplication_ = application::addTerminationObserver([self] { self->endWithApplication(); });
  std::thread thread;
  if (!main_loop::isClosed()) thread = startSignalMaskedThread([self] { self->run(); });
  if (thread.joinable()) {
    thread.detach();
    return {};
  }
  ended();
  callback_ = nullptr;
  return statusFromErrno(main_loop::isClosed() ? ESHUTDOWN : EAGAIN);
}

void BackgroundCopy::endWithApplication() {
  cancel();
  ended_.get_future().wait_for(kLongestCleanUp);
}

void BackgroundCopy::ended() {
  application::removeTerminationObserver(endOfApplication_);
  ended_.set_value();
}

void BackgroundCopy::run() {
  Status result;
  try {
    result = copy();
  } catch (const std::bad_alloc&) {
    result = statusFromErrno(ENOMEM);
  }
  if (result.ok()) reportAllCopied();
  ended();
  main_loop::add([self = shared_from_this(), result, scheduled = scheduled_.load()] {
    self->complete(result, scheduled);
  });
}

Status BackgroundCopy::copy() {
  const Location from = locate(source_);
  if (!from) return statusFromErrno(errno, source_);
  const Location to = locate(destination_);
  if (!to) return statusFromErrno(errno, destination_);
  stage_ = Stage::preflighting;
  progress_.setCurrentItem(source_);
  CountBesideCopy count(
      from, Clock::now() + interval_ / 2,
      [this](const CopyTotals& soFar) { return goOnCounting(soFar); },
      [this](const CopyTotals& totals) { counted(totals); });
  count_ = &count;
  return copyItem(from, to, this);
}

// Whoever follows the copy is told of it at least once.
void BackgroundCopy::reportAllCopied() {
  progress_.settle();
  stage_ = Stage::running;
  if (!reported_) report();
}

void BackgroundCopy::bytesCopied(std::uint64_t bytes, const Item& item) {
  progress_.addBytes(bytes);
  advanced(item);
}

void BackgroundCopy::itemCopied(const Item& item) {
  progress_.addItem();
  advanced(item);
}

void BackgroundCopy::advanced(const Item& item) {
  if (stage_.load(std::memory_order_relaxed) == Stage::preflighting) {
    count_->beginIfDue();
  } else if (isDue()) {
    progress_.setCurrentItem(item.path());
    report();
  }
}

bool BackgroundCopy::goOnCounting(const CopyTotals& soFar) {
  if (isDue()) {
    progress_.setTotals(soFar);
    report();
  }
  return !isCancelled();
}

void BackgroundCopy::counted(const CopyTotals& totals) {
  if (isCancelled()) return;
  progress_.setTotals(totals);
  stage_ = Stage::running;
  if (isDue()) report();
}

// True for one of the threads that ask, once in an interval.
bool BackgroundCopy::isDue() {
  const auto now = Clock::now();
  auto due = nextReport_.load(std::memory_order_relaxed);
  return now >= due && nextReport_.compare_exchange_strong(due, now + interval_);
}

void BackgroundCopy::report() {
  if (stage_ == Stage::running) reported_ = true;
  if (!scheduled_ || reportQueued_.exchange(true)) return;
  main_loop::add([self = shared_from_this()] { self->deliver(); });
}

void BackgroundCopy::deliver() {
  nextReport_ = Clock::now() + interval_;
  reportQueued_ = false;
  // A callback that serves the main loop may be let go meanwhile.
  const Callback callback = callback_;
  callback(shared_from_this(), {.stage = stage_, .result = {}, .status = progress_.status()});
}

void BackgroundCopy::complete(const Status& result, bool scheduled) {
  const Callback callback = std::move(callback_);
  if (!scheduled) return;
  callback(shared_from_this(),
           {.stage = Stage::complete, .result = result, .status = progress_.status()});
}

}  // namespace

// static
std::shared_ptr<FileOperation> FileOperation::create() {
  return std::make_shared<BackgroundCopy>();
}

}  // namespace platform
