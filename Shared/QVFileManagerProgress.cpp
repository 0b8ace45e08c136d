#include <utility>
#include <variant>

#include "Shared/QVFileManager.h"
#include "Shared/QVFileOperationDelegate.h"
#include "platform/Console.h"
#include "platform/FileOperation.h"
#include "platform/MainThread.h"
#include "platform/Path.h"

using platform::FileOperation;
using platform::PropertyList;

namespace {

namespace console = platform::console;

using Keys = QVFileOperationDelegate;
using Delegate = std::shared_ptr<QVFileOperationDelegate>;
using Operation = QVFileOperationDelegate::Operation;
using Status = QVFileOperationDelegate::Status;

constexpr std::chrono::seconds kFolderTimeout{10};
constexpr std::chrono::seconds kReportInterval{1};

using Message = std::function<void(const Status&)>;
using MessageWithOperation = std::function<void(const Status&, const Operation&)>;

// Sends the delegate the message that it responds to, without waiting.
void send(const MessageWithOperation& preferred, const Message& other, Status status,
          const Operation& operation) {
  std::function<void()> call;
  if (preferred) {
    call = [preferred, status = std::move(status), operation] { preferred(status, operation); };
  } else if (other) {
    call = [other, status = std::move(status)] { other(status); };
  }
  if (call) platform::main_thread::perform(std::move(call), platform::main_thread::Wait::no);
}

void addEntries(Status& status, const PropertyList::Dictionary& entries) {
  for (const auto& entry : entries) {
    std::visit([&](const auto& value) { status[entry.first] = value; }, entry.second.value());
  }
}

void sendProgress(const QVFileOperationDelegate& delegate, Status status,
                  const Operation& operation) {
  send(delegate.fileOperationProgressWithOperation, delegate.fileOperationProgress,
       std::move(status), operation);
}

void sendFinished(const QVFileOperationDelegate& delegate, Status status,
                  const Operation& operation) {
  send(delegate.fileOperationFinishedWithOperation, delegate.fileOperationFinished,
       std::move(status), operation);
}

void unschedule(FileOperation& operation) {
  const platform::Status status = operation.unschedule();
  if (status.ok()) return;
  console::log("Failed to unschedule operation from run loop: %d", status.code());
}

// Why a copy failed is not passed on: a failed one has only finished.
void statusCallback(const Operation& operation, const FileOperation::Report& report,
                    const Status& information, const Delegate& delegate) {
  Status status = information;
  status[Keys::kStage] = static_cast<long>(report.stage);
  if (report.stage == FileOperation::Stage::running && delegate) {
    addEntries(status, report.status);
    sendProgress(*delegate, std::move(status), operation);
  } else if (report.stage == FileOperation::Stage::complete) {
    if (delegate) sendFinished(*delegate, std::move(status), operation);
    unschedule(*operation);
  }
}

Status information(const std::string& source, const std::string& destination,
                   const Delegate& delegate, std::any object, std::any object2) {
  Status result = {{Keys::kSource, source},
                   {Keys::kDestination, destination},
                   {Keys::kOperationType, std::string(Keys::kCopy)}};
  if (delegate) result[Keys::kDelegate] = delegate;
  if (object.has_value()) result[Keys::kObject] = std::move(object);
  if (object2.has_value()) result[Keys::kObject2] = std::move(object2);
  return result;
}

// Whether both ends are there, the destination's folder made if need be.
bool prepare(const std::string& source, const std::string& folder) {
  if (!QVFileManager::fileExistsAtPath(source)) {
    console::log("Error: File %@ doesn't exist. Aborting copy process...", source);
    return false;
  }
  if (QVFileManager::fileExistsAtPath(folder) ||
      QVFileManager::createDirectory(folder, kFolderTimeout)) {
    return true;
  }
  console::log(
      "Unable to copy file %@ - destination directory %@ doesn't exist. Aborting copy process...",
      source, folder);
  return false;
}

}  // namespace

// static
bool QVFileManager::copyFileWithProgress(const std::string& source, const std::string& destination,
                                         const Delegate& delegate, const std::any& object) {
  return copyFileWithProgress(source, destination, delegate, object, {});
}

// static
bool QVFileManager::copyFileWithProgress(const std::string& source, const std::string& destination,
                                         const Delegate& delegate, const std::any& object,
                                         const std::any& object2) {
  const std::string folder = platform::path::deletingLastComponent(destination);
  if (!prepare(source, folder)) return false;
  const Operation operation = FileOperation::create();
  if (const auto status = operation->schedule(); !status.ok()) {
    console::log("Failed to schedule operation with run loop: %ld", status.code());
    return false;
  }
  const auto status = operation->beginCopy(
      source, folder, platform::path::lastComponent(destination),
      [known = information(source, destination, delegate, object, object2), delegate](
          const Operation& reporting, const FileOperation::Report& report) {
        statusCallback(reporting, report, known, delegate);
      },
      kReportInterval);
  if (status.ok()) return true;
  console::log("Failed to begin asynchronous object copy: %ld", status.code());
  return false;
}

// static
void QVFileManager::cancelFileOperation(const Operation& operation) {
  if (operation) operation->cancel();
}
