#include "platform/FileReference.h"

#include "platform/FileSystem.h"

namespace platform {

// static
FileReference FileReference::to(const std::string& path) {
  return file_system::attributes(path) ? FileReference(path) : FileReference();
}

}  // namespace platform
