#include "elevator/Jobs.h"

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "channel/NamedPaths.h"
#include "elevator/Spawn.h"
#include "posix/Escaped.h"

namespace elevator {
namespace {

// The tool and the paths that it was given.
std::string described(const Job& job) {
  std::string text;
  for (const std::string& word : job.words) {
    if (word.starts_with('/')) text += (text.empty() ? "" : " ") + posix::escaped(word);
  }
  return text;
}

}  // namespace

// static
std::size_t Jobs::bytesOf(const Job& job) {
  std::size_t bytes = 0;
  for (const std::string& word : job.words) bytes += word.size() + sizeof(std::string);
  return bytes;
}

bool Jobs::hasRoomFor(const Job& job) const {
  return jobs_.size() - running_ < kMostWaiting && waitingBytes_ + bytesOf(job) < kMostWaitingBytes;
}

int Jobs::add(Job job) {
  job.paths = channel::namedPaths({job.words.begin() + 1, job.words.end()});
  job.blockers = static_cast<std::size_t>(std::ranges::count_if(
      jobs_, [&job](const Job& earlier) { return channel::overlap(job.paths, earlier.paths); }));
  if (job.blockers > 0) job.ends.output = posix::FileDescriptor();
  if (job.blockers == 0 && running_ < kMostRunning) {
    const int status = start(job);
    if (status != 0) return status;
    ++running_;
  } else {
    waitingBytes_ += bytesOf(job);
  }
  jobs_.push_back(std::move(job));
  return 0;
}

int Jobs::start(Job& job) {
  const int status = spawn(job.tool, job.words, job.ends, job.process);
  if (status == 0) {
    syslog(LOG_NOTICE, "runs %s", posix::escaped(job.words.front()).c_str());
  } else {
    syslog(LOG_ERR, "cannot run %s: %s", described(job).c_str(), std::strerror(status));
  }
  // Only the tool writes there: the reader must see the end when the tool ends.
  job.ends = {};
  job.tool.file = posix::FileDescriptor();
  return status;
}

void Jobs::finish(int process) {
  const auto job = std::ranges::find_if(
      jobs_, [process](const Job& each) { return each.process.get() == process; });
  if (job == jobs_.end()) return;
  --running_;
  const channel::TermStatus status = collect(job->process);
  if (status != 0) syslog(LOG_WARNING, "%s: ended with status %d", described(*job).c_str(), status);
  remove(job, status);
  startWhatMay();
}

void Jobs::remove(Place job, channel::TermStatus status) {
  if (job->report) {
    report(job->report, status);
  } else {
    remember(*job, status);
  }
  for (auto later = std::next(job); later != jobs_.end(); ++later) {
    if (channel::overlap(later->paths, job->paths)) --later->blockers;
  }
  jobs_.erase(job);
}

void Jobs::remember(const Job& job, channel::TermStatus status) {
  for (const auto& observer : job.observers) observer->note(status);
  ended_.push_back({job.paths, status});
  if (ended_.size() > kMostRemembered) ended_.pop_front();
}

void Jobs::startWhatMay() {
  for (auto job = jobs_.begin(); job != jobs_.end() && running_ < kMostRunning;) {
    const auto next = std::next(job);
    if (!job->process && job->blockers == 0) {
      waitingBytes_ -= bytesOf(*job);
      if (start(*job) == 0) {
        ++running_;
      } else {
        remove(job, -1);
      }
    }
    job = next;
  }
}

int Jobs::observe(const std::string& path, posix::FileDescriptor report) {
  std::erase_if(observers_, [](const auto& each) { return each.expired(); });
  if (observers_.size() >= kMostObservers) return EAGAIN;
  const auto paths = channel::namedPaths({path});
  const auto last = std::find_if(ended_.rbegin(), ended_.rend(), [&](const Ended& each) {
    return channel::overlap(each.paths, paths);
  });
  const auto observer =
      std::make_shared<Observer>(std::move(report), last == ended_.rend() ? 0 : last->status);
  for (Job& job : jobs_) {
    if (channel::overlap(job.paths, paths)) job.observers.push_back(observer);
  }
  observers_.push_back(observer);
  return 0;
}

std::vector<int> Jobs::running() const {
  std::vector<int> processes;
  for (const Job& job : jobs_) {
    if (job.process) processes.push_back(job.process.get());
  }
  return processes;
}

std::vector<int> Jobs::reports() const {
  std::vector<int> pipes;
  for (const Job& job : jobs_) {
    if (job.report) pipes.push_back(job.report.get());
  }
  for (const auto& each : observers_) {
    if (const auto observer = each.lock()) pipes.push_back(observer->pipe());
  }
  return pipes;
}

}  // namespace elevator
