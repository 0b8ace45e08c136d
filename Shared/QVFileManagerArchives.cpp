#include <memory>

#include "Shared/QVFileManager.h"
#include "Shared/QVTaskEx.h"
#include "Shared/RecycleItem.h"
#include "platform/Task.h"

namespace {

constexpr char kArchiver[] = "/usr/bin/ditto";

bool succeeds(const QVTaskEx::Arguments& arguments) {
  std::shared_ptr<platform::Task> task;
  return QVTaskEx::runTask(kArchiver, arguments, &task) && task && task->terminationStatus() == 0;
}

// Whether the archiver leaves something at `path`. What it says of itself only counts where
// something could not be taken away from there, which would be mistaken for its work.
bool makes(const std::string& path, const QVTaskEx::Arguments& arguments) {
  const bool wasThere = QVFileManager::fileExistsAtPath(path);
  const bool succeeded = succeeds(arguments);
  return (succeeded || !wasThere) && QVFileManager::fileExistsAtPath(path);
}

}  // namespace

// static
bool QVFileManager::compressFile(const std::string& source, const std::string& archive) {
  return compressFile(source, archive, true);
}

// static
bool QVFileManager::compressFile(const std::string& source, const std::string& archive,
                                 bool includeParent) {
  if (fileExistsAtPath(archive)) trashFile(archive);
  QVTaskEx::Arguments arguments = {"-ck", source, archive};
  if (includeParent) arguments.insert(arguments.begin() + 1, "--keepParent");
  return makes(archive, arguments);
}

// static
bool QVFileManager::decompressFile(const std::string& archive, const std::string& folder) {
  // Not as the archive above: never with administrator rights.
  if (fileExistsAtPath(folder)) recycleItem(folder);
  return makes(folder, {"-xk", archive, folder});
}
