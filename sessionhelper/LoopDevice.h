#pragma once

#include <optional>
#include <string>

namespace session_helper {

// The loop device, such as "/dev/loop0", of the image that is mounted at `mountPoint`, also when
// only one of its partitions is, if the device would outlast the unmounting. What mount(8) sets up
// goes by itself; what a person sets up through udisks stays.
std::optional<std::string> lastingLoopDeviceAt(const std::string& mountPoint);

// Whether the device, as "major:minor", is a loop device or a partition of one.
bool isLoopDevice(const std::string& number);

// Has udisks free the loop device: at once, or when what else of it is mounted has gone. Everybody
// may have that done with a device that they set up, root with each. Nobody is asked for a password
// and nothing is told when it cannot be done.
void deleteLoopDevice(const std::string& device);

}  // namespace session_helper
