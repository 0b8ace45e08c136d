#pragma once

namespace platform {

// What the items of a file system may do where it is mounted: whoever mounts a disk that others
// have written takes these from it, and a copy elsewhere must not have them back.
struct MountRights {
  // Programs may run as their owner or group, or with capabilities.
  bool changeIdentity = false;
  // Device nodes are devices.
  bool devices = false;
};

// The rights where the open `item`, which may be open only as a place (O_PATH), is. None on a file
// system in user space, whose items are what some program says, and none where it cannot be told.
MountRights rightsOfMount(int item);

}  // namespace platform
