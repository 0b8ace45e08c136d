#pragma once

#include <string>
#include <vector>

// What happened in this process, in order: stand-ins for what a test does not want to happen note
// that they were called. Any thread.
namespace test {

void note(std::string what);
std::vector<std::string> notes();

// Notes a pause as "sleeps 0.5 s"; for observePauses in QuickClock.h.
void notePause(const char* how, double seconds);

}  // namespace test
