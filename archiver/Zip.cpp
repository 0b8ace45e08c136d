#include "archiver/Zip.h"

#include <cerrno>
#include <string>

namespace archiver {

using platform::Status;

Status statusOf(zip_error_t* error, std::string_view subject) {
  const bool fromSystem = zip_error_system_type(error) == ZIP_ET_SYS;
  const int code = fromSystem ? zip_error_code_system(error) : EINVAL;
  return Status::failure(code == 0 ? EIO : code,
                         std::string(subject) + ": " + zip_error_strerror(error));
}

Status statusOf(const ZipHandle& zip, std::string_view subject) {
  return statusOf(zip_get_error(zip.get()), subject);
}

Status statusOfCode(int code, std::string_view subject) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  Status status = statusOf(&error, subject);
  zip_error_fini(&error);
  return status;
}

}  // namespace archiver
