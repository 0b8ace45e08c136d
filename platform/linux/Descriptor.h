#pragma once

#include "platform/linux/FileDescriptor.h"

namespace platform {

using Descriptor = FileDescriptor;

}  // namespace platform
