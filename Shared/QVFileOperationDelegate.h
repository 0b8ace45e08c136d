#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/FileOperation.h"

// Who wants to be told of a copy with progress. An unset function is not called; of each pair the
// one that takes the operation is preferred. Which are set is looked up for every message, so they
// may be changed while a copy runs, on the main thread. All are called on the main thread.
struct QVFileOperationDelegate {
  // What is known of the copy, by the keys below.
  using Status = std::map<std::string, std::any>;
  using Operation = std::shared_ptr<platform::FileOperation>;

  // While the copy runs, at most once a second. The status also has the entries that
  // platform/FileOperation.h names: std::int64_t, and std::string for the current item.
  std::function<void(const Status& status, const Operation& operation)>
      fileOperationProgressWithOperation;
  std::function<void(const Status& status)> fileOperationProgress;
  // Once, at the end of every copy that was started: a complete, a failed and a cancelled one look
  // the same.
  std::function<void(const Status& status, const Operation& operation)>
      fileOperationFinishedWithOperation;
  std::function<void(const Status& status)> fileOperationFinished;

  // std::string: the source, the full destination, and kCopy.
  static constexpr char kSource[] = "source";
  static constexpr char kDestination[] = "destination";
  static constexpr char kOperationType[] = "operationtype";
  static constexpr char kCopy[] = "copy";
  // std::shared_ptr<QVFileOperationDelegate>.
  static constexpr char kDelegate[] = "delegate";
  // The caller's own as they were given; without an entry where none was.
  static constexpr char kObject[] = "object";
  static constexpr char kObject2[] = "object2";
  // long: a number of platform::FileOperation::Stage.
  static constexpr char kStage[] = "stage";
};
