#include "platform/RemoteObject.h"

#include "platform/ProcessInfo.h"
#include "platform/linux/bus/BusObject.h"
#include "platform/linux/bus/RemoteProcess.h"

namespace platform {

// static
std::unique_ptr<RemoteObject> RemoteObject::lookUp(const std::string& name) {
  return process_info::isSuperuser() ? RemoteProcess::lookUp(name) : BusObject::lookUp(name);
}

}  // namespace platform
