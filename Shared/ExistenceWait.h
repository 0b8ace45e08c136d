#pragma once

#include <chrono>
#include <string>

// Waiting until the file system shows what an operation was to do: the tools that run with
// administrator rights are not waited for, so only the disk tells how they ended. Where a link
// leads counts, not the link.
//
// Both wait at most `timeout`, looking again and again, and answer what the last look showed; with
// zero or less they look without waiting. On the main thread the events of the application are
// handled meanwhile, so that its windows stay alive; any other thread sleeps for 0.3 seconds
// between two looks, and may exceed the time-out by one such pause.
bool existsWithin(const std::string& path, std::chrono::seconds timeout);
bool isGoneWithin(const std::string& path, std::chrono::seconds timeout);
