#include "platform/FinderInformation.h"

#include <sys/xattr.h>

#include <cerrno>
#include <string>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/FinderInformationAttribute.h"

namespace platform::finder_information {
namespace {

// Zeros for an item that has no such attribute; none, with errno set, when it cannot be read. One
// that is too long does not fit (ERANGE).
std::optional<std::string> attributeOf(const FileReference& item) {
  std::string value(kAttributeSize, '\0');
  const ssize_t size = ::lgetxattr(item.path().c_str(), kAttribute, value.data(), kAttributeSize);
  if (size < 0 && errno != ENODATA) return std::nullopt;
  if (size >= 0) value.resize(static_cast<std::size_t>(size));
  return value;
}

}  // namespace

std::optional<std::uint16_t> flags(const FileReference& item) {
  const std::optional<std::string> value = attributeOf(item);
  return value ? flagsIn(*value) : std::nullopt;
}

Status setFlags(const FileReference& item, std::uint16_t flags) {
  const std::optional<std::string> old = attributeOf(item);
  if (!old) return statusFromErrno(errno, item.path());
  const std::optional<std::string> value = withFlags(*old, flags);
  if (!value) return statusFromErrno(EINVAL, item.path());
  const int result = ::lsetxattr(item.path().c_str(), kAttribute, value->data(), value->size(), 0);
  return result == 0 ? Status() : statusFromErrno(errno, item.path());
}

}  // namespace platform::finder_information
