#pragma once

namespace archiver {

// From here on a signal that asks the program to end lets it clear up what is half made first.
void deferInterruption();

// Whether one has come. Asked between entries and every few kilobytes.
bool isInterrupted() noexcept;

}  // namespace archiver
