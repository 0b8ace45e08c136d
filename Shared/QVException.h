#pragma once

#include <string>
#include <string_view>

#include "platform/Exception.h"

// How caught exceptions are reported. Any thread; nothing is raised.
class QVException {
 public:
  QVException() = delete;

  // Logs and prints "Exception in <method>. <name> - <reason>." and answers that text. `method` is
  // the full name of the operation that caught it, as in "-[QVTaskEx launchAsyncTask]". In what is
  // logged and printed a percent sign is read as a directive, in the answer it is not. May wait for
  // the disk as QVLog::appendLogAndPrint does.
  static std::string logException(const platform::Exception& exception, std::string_view method);

  // Whether the exception tells that a message to another process was not answered in time.
  static bool didTimeout(const platform::Exception& exception);
};
