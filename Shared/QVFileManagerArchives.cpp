#include "Shared/QVFileManager.h"
#include "Shared/QVTaskEx.h"
#include "Shared/RecycleItem.h"

namespace {

constexpr char kArchiver[] = "/usr/bin/ditto";

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
  QVTaskEx::runTask(kArchiver, arguments);
  // What the program says of itself is not looked at.
  return fileExistsAtPath(archive);
}

// static
bool QVFileManager::decompressFile(const std::string& archive, const std::string& folder) {
  // Not as the archive above: never with administrator rights.
  if (fileExistsAtPath(folder)) recycleItem(folder);
  QVTaskEx::runTask(kArchiver, QVTaskEx::Arguments{"-xk", archive, folder});
  return fileExistsAtPath(folder);
}
