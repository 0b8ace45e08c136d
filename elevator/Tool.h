#pragma once

#include <string>

#include "posix/FileDescriptor.h"

namespace elevator {

struct Tool {
  // 0, or why it may not be run (errno(3)).
  int status = 0;
  // The very file that was examined.
  posix::FileDescriptor file;
  // Whether an interpreter will have to open the file for itself.
  bool isScript = false;
};

// Finds the file at an absolute path and answers it when nobody but root can have changed it: it is
// regular and executable, and it and every folder and link on the way to it, "/" included, belong
// to root, can be written by root alone, and lie on file systems that are trusted with set-user-ID
// programs, as a user's image is not. What is examined is what was opened, never the path again.
// The status is EACCES when somebody else could have.
Tool openTool(const std::string& path);

}  // namespace elevator
