#include "app/LogOnMainThread.h"

#include <utility>

#include "Shared/QVLog.h"
#include "platform/MainThread.h"

void logOnMainThread(std::string line) {
  using platform::main_thread::Wait;
  platform::main_thread::perform([line = std::move(line)] { QVLog::appendLog(line); },
                                 Wait::untilDone);
}
