#include <utility>

#include "Shared/QVException.h"
#include "Shared/QVLog.h"
#include "Shared/QVTaskEx.h"
#include "platform/DetachedThread.h"
#include "platform/Exception.h"

using platform::Data;
using platform::Task;

// static
void QVTaskEx::refuseObject(const std::any& object) {
  if (!object.has_value()) return;
  throw platform::Exception(platform::exception_name::kInvalidArgument,
                            "the delegate's operation takes no object");
}

void QVTaskEx::startAsyncTask(const std::string& path, const std::optional<Arguments>& arguments,
                              Listener listener,
                              const std::optional<platform::Environment>& environment) {
  setListener(std::move(listener));
  const auto task = Task::create();
  task->setStandardOutput(Task::End::pipe);
  task->setStandardError(Task::End::nullDevice);
  if (environment) task->setEnvironment(*environment);
  task->setLaunchPath(path);
  task->setArguments(arguments.value_or(Arguments{}));
  setTheTask(task);
  platform::detachThread([instance = shared_from_this(), task] {
    instance->launchTask(instance->theTask() == nullptr ? nullptr : task);
  });
}

void QVTaskEx::launchAsyncTask() {
  launchTask(theTask());
}

void QVTaskEx::launchTask(const std::shared_ptr<Task>& task) {
  try {
    if (task == nullptr) {
      QVLog::appendLogAndPrint("Unable to launch async task - no task set");
    } else if (!Task::canLaunch(task->launchPath())) {
      QVLog::appendLog("Unable to launch async task - task does not exist or is not executable");
    } else {
      task->launch();
      deliverOutput(task);
    }
  } catch (const platform::Exception& exception) {
    QVException::logException(exception, "-[QVTaskEx launchAsyncTask]");
  }
}

void QVTaskEx::deliverOutput(const std::shared_ptr<Task>& task) {
  const auto pipe = task->standardOutputPipe();
  for (bool ended = false; !ended;) {
    Data data = pipe->availableData();
    ended = data.empty();
    asyncTaskReturnData({.name = kAsyncTaskDataNotification,
                         .userInfo = {{kNotificationDataItem, std::move(data)}}});
  }
}

void QVTaskEx::asyncTaskReturnData(const AsyncTaskNotification& notification) {
  const auto item = notification.userInfo.find(kNotificationDataItem);
  const Data nothing;
  const Data& data = item == notification.userInfo.end() ? nothing : item->second;
  Listener listener;
  {
    const std::lock_guard lock(mutex_);
    listener = listener_;
  }
  if (listener.notify) listener.notify(data, *this, listener.object);
  if (data.empty()) terminateAsyncTask();
}

void QVTaskEx::terminateAsyncTask() {
  const auto task = theTask();
  setTheTask(nullptr);
  setListener({});
  if (task == nullptr) return;
  if (const auto pipe = task->standardOutputPipe()) pipe->closeReadingEnd();
  task->terminate();
}

void QVTaskEx::setListener(Listener listener) {
  const std::lock_guard lock(mutex_);
  // The previous delegate is let go after the lock.
  std::swap(listener_, listener);
}
