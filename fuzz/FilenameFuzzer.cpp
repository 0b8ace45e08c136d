#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Shared/QVFileManager.h"
#include "platform/linux/trash/TrashInformation.h"

// A name as a person might type it. What comes out is a single component, or nothing; in the Trash
// it has room for its information whatever its length, and never becomes another folder's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name(reinterpret_cast<const char*>(data), size);
  const std::string valid = QVFileManager::validateFilename(name);
  if (valid.find_first_of("/:") != std::string::npos || valid.size() > name.size()) std::abort();

  if (valid.empty()) return 0;
  for (const unsigned attempt : {1U, 2U, 4000000000U}) {
    const std::string inTrash = platform::nameInTrash(valid, attempt);
    if (inTrash.empty() || inTrash.find('/') != std::string::npos) std::abort();
    if (platform::trashInformationName(inTrash).size() > NAME_MAX) std::abort();
  }
  return 0;
}
