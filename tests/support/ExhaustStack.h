#pragma once

namespace test {

// Calls itself until the stack has no room left, which is a fault.
inline int exhaustStack(int depth = 0) {
  // By way of this, so that the compiler does not see that it never ends.
  static int (*volatile next)(int depth) = exhaustStack;
  volatile char frame[512] = {};
  frame[0] = static_cast<char>(depth);
  return next(depth + 1) + frame[0];
}

}  // namespace test
