#pragma once

#include <chrono>
#include <string>

#include "posix/FileDescriptor.h"

namespace platform::crash {

// What a crash log says and needs that is known beforehand.
struct Preparation {
  // Where it is written.
  posix::FileDescriptor folder;
  // The file's name is <nameStart><date><nameEnd>.
  std::string nameStart;
  std::string nameEnd;
  // The first lines, each with its end.
  std::string header;
  // The program's file.
  std::string program;
  // Local time minus UTC.
  std::chrono::seconds zone{};
};

// From now on each fatal signal of this process writes a crash log before the process dies of it.
// A signal that somebody handles or ignores already, such as a sanitizer, is left to them. Call
// once, on the main thread, which gets a stack for it.
void install(Preparation preparation);

bool isInstalled() noexcept;

}  // namespace platform::crash
