#pragma once

namespace test {

// Told of each pause by the thread that takes it, before it does: "spins" or "sleeps", and how many
// seconds were asked for. None at first. Only where QuickClock.cpp is linked.
using PauseObserver = void (*)(const char* how, double seconds);
void observePauses(PauseObserver observer);

}  // namespace test
