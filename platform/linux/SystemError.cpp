#include "platform/linux/SystemError.h"

#include <cstring>

namespace platform {
namespace {

std::string about(std::string_view subject, int error) {
  std::string text(subject);
  if (!text.empty()) text += ": ";
  return text + errorText(error);
}

}  // namespace

std::string errorText(int error) {
  const char* description = ::strerrordesc_np(error);
  if (description == nullptr) return "Unknown error " + std::to_string(error);
  return description;
}

Status statusFromErrno(int error) {
  return statusFromErrno(error, {});
}

Status statusFromErrno(int error, std::string_view subject) {
  if (error == 0) return {};
  return Status::failure(error, about(subject, error));
}

}  // namespace platform
