#include "Shared/QVException.h"

#include "Shared/QVLog.h"
#include "platform/Format.h"

// static
std::string QVException::logException(const platform::Exception& exception,
                                      std::string_view method) {
  std::string message = platform::formatted("Exception in %s. %@ - %@.", method, exception.name(),
                                            exception.reason());
  QVLog::appendLogAndPrint(message);
  return message;
}

// static
bool QVException::didTimeout(const platform::Exception& exception) {
  return exception.name() == platform::exception_name::kPortTimeout;
}
