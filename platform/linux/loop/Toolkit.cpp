#include <csetjmp>
#include <cstdlib>

#include "platform/linux/loop/MainLoop.h"

// Out of the toolkit there is one way only that does not pass through it: a jump. What it leaves
// half done, locked or allocated stays so, which is harmless because nobody goes back.
namespace platform::main_loop {
namespace {

// All of it belongs to the main thread.
bool left = false;
void (*leftHandler)() = nullptr;
// Where the innermost call into the toolkit was made; null outside the toolkit.
std::jmp_buf* innermost = nullptr;

// Apart from its caller, whose variables a jump would make indeterminate. Whether it came back.
bool callUntilLeft(const std::function<void()>& call, std::jmp_buf& here) {
  if (setjmp(here) != 0) return false;
  innermost = &here;
  call();
  return true;
}

}  // namespace

bool callToolkit(const std::function<void()>& call) {
  if (left) return false;
  std::jmp_buf* const outer = innermost;
  std::jmp_buf here;
  const bool cameBack = callUntilLeft(call, here);
  innermost = outer;
  if (!cameBack && leftHandler != nullptr) leftHandler();
  return cameBack;
}

void leaveToolkit() {
  if (innermost == nullptr) std::abort();
  left = true;
  std::longjmp(*innermost, 1);
}

void setToolkitLeftHandler(void (*handler)()) {
  leftHandler = handler;
}

}  // namespace platform::main_loop
