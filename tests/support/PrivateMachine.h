#pragma once

#include <functional>

namespace test {

// Keeps what a test does away from the machine that it runs on. As root, and where mount namespaces
// can be made, everything that is mounted becomes read-only for the tests and what they start, but
// for a scratch folder in which TMPDIR then is, and for folders that are theirs alone: /tmp, /run,
// /dev/shm, /home and /root are empty ones, /var and /usr/local are changed in memory. Elsewhere,
// as in an ordinary container, what root starts runs as an ordinary user. Others than root cannot
// harm the machine; their tests run as they are.
class PrivateMachine {
 public:
  PrivateMachine() = delete;

  // Runs `tests` in one and answers what they answer, for the main function of test programs. In a
  // process that has been started inside one, they run where they are.
  //
  // They run in a child of this process, which stays outside, removes the scratch folder in the
  // end, and then ends as the child did, if that was by a signal.
  static int run(const std::function<int()>& tests);

  // Whether this process is inside one, which it may have left the superuser's rights in.
  static bool isEntered();
};

}  // namespace test
