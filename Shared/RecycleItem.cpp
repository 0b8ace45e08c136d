#include "Shared/RecycleItem.h"

#include "Shared/QVLocalPaths.h"
#include "platform/Path.h"
#include "platform/Workspace.h"

bool recycleItem(const std::string& path) {
  const auto trash = QVLocalPaths::trashDirectory();
  return trash && platform::workspace::recycle(platform::path::deletingLastComponent(path), *trash,
                                               {platform::path::lastComponent(path)});
}
