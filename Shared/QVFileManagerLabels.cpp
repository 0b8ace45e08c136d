#include <array>

#include "Shared/QVFileManager.h"
#include "platform/FinderInformation.h"

namespace {

namespace finder_information = platform::finder_information;
using platform::Colour;

constexpr unsigned kColourMask = 0x000E;

// By the number in the mask's bits, from 1 on.
constexpr std::array<Colour, 7> kColours = {{
    {0, 0, 0.72, 1},          // grey
    {0.2056, 0.5, 0.85, 1},   // green
    {0.7917, 0.26, 0.86, 1},  // purple
    {0.5789, 0.56, 0.98, 1},  // blue
    {0.1388, 0.54, 0.95, 1},  // yellow
    {0.0083, 0.54, 1, 1},     // red
    {0.0888, 0.52, 0.98, 1},  // orange
}};

}  // namespace

// static
int QVFileManager::finderColorIndexForPath(const std::string& path) {
  return finder_information::flags(stringToFSRef(path)).value_or(0);
}

// static
void QVFileManager::setFinderColorIndex(int index, const std::optional<std::string>& path) {
  if (!path) return;
  const platform::FileReference item = stringToFSRef(*path);
  const std::optional<std::uint16_t> old = finder_information::flags(item);
  if (!old) return;
  const unsigned flags = (static_cast<unsigned>(index) & kColourMask) | (*old & ~kColourMask);
  // Nobody is told whether it could be written.
  static_cast<void>(finder_information::setFlags(item, static_cast<std::uint16_t>(flags)).ok());
}

// static
std::optional<Colour> QVFileManager::finderColorForColorIndex(int index) {
  const unsigned label = static_cast<unsigned>(index) / 2;
  if (label < 1 || label > kColours.size()) return std::nullopt;
  return kColours[label - 1];
}

// static
std::optional<Colour> QVFileManager::finderColorForPath(const std::string& path) {
  return finderColorForColorIndex(finderColorIndexForPath(path));
}
