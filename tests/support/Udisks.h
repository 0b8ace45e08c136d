#pragma once

#include <optional>
#include <string>

#include "tests/support/ChildProgram.h"
#include "tests/support/Polkit.h"
#include "tests/support/Sandbox.h"

namespace test {

// A real device manager and a real udisks daemon on a system bus of their own, for a sandbox's
// simulated machine, with /dev, /run and /media of the sandbox's own and without the machine's
// network, over which device managers speak. They look only at loop devices whose image is in the
// sandbox; the console user may attach images. All of it goes with the object.
class Udisks {
 public:
  // After simulateMachine, before any thread. Throws with the reason when this machine cannot do
  // it.
  explicit Udisks(const Sandbox& sandbox);
  // Frees the loop device if nobody has.
  ~Udisks();
  Udisks(const Udisks&) = delete;
  Udisks& operator=(const Udisks&) = delete;

  // Where the file system of an image is.
  enum class On { device, firstPartition };

  // Has udisksctl(1), as the console user, set up a loop device for the image file and mount it;
  // throws with the reason when that fails. Once.
  void attach(const std::string& image, On on = On::device);

  // Where the image is mounted.
  const std::string& mountPoint() const { return mountPoint_; }
  bool isMounted() const;
  // Whether the kernel still keeps the loop device for the image.
  bool hasLoopDevice() const;

 private:
  std::optional<Polkit> polkit_;
  std::optional<ChildProgram> deviceManager_;
  std::optional<ChildProgram> daemon_;
  std::string image_;
  std::string mountPoint_;
};

}  // namespace test
