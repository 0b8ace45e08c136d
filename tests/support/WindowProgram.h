#pragma once

#include <sys/types.h>

#include "tests/support/Sandbox.h"

// The program that shows a process's windows, for tests of those.
namespace test {

// Has the superuser's windows shown to one of the sandbox's people, as they are shown to nobody
// without a person at the console; an ordinary user's are shown to that user.
void putPersonAtScreen(Sandbox& sandbox);

// The window program of a process, this one by default; 0 when it has none, or none any more.
pid_t windowProgram();
pid_t windowProgramOf(pid_t process);

// Waits until this process has no window program any more and has noticed that, while its main loop
// runs; answers whether that came.
bool waitForEndOfWindowProgram();

}  // namespace test
