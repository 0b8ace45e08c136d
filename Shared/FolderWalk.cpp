#include "Shared/FolderWalk.h"

#include <set>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace {

namespace file_system = platform::file_system;

class Walk {
 public:
  explicit Walk(const std::function<void(const std::string& path)>& visit) : visit_(visit) {}

  void goThrough(const std::string& folder) {
    const auto identity = file_system::identity(folder);
    if (!identity || !visited_.insert(*identity).second) return;
    for (const std::string& name : file_system::list(folder).value_or(std::vector<std::string>())) {
      const std::string full = platform::path::appending(folder, name);
      if (file_system::isDirectory(full)) {
        goThrough(full);
      } else {
        visit_(full);
      }
    }
  }

 private:
  const std::function<void(const std::string& path)>& visit_;
  std::set<file_system::Identity> visited_;
};

}  // namespace

void forEachFileIn(const std::string& folder,
                   const std::function<void(const std::string& path)>& visit) {
  Walk(visit).goThrough(folder);
}
