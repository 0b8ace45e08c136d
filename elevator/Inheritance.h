#pragma once

#include "posix/FileDescriptor.h"

// What a program that was started by an ordinary user's process has from it, and gets rid of before
// it does anything as root.
namespace elevator {

// The channel to the process that started this one, which must be standard input: a channel whose
// other end was made by this process's parent, and by the very user for whom pkexec(1) started it,
// or by root. Empty, with the reason in `why`, when anything is otherwise. Standard input, output
// and error lead nowhere then.
posix::FileDescriptor takeChannel(const char*& why);

// Resets what survives execve(2) and is not the parent's to choose: open descriptors other than
// `kept`, environment, directory, umask, session and terminal, signals, timers, limits, priorities,
// the signal at the parent's death, and being given the orphans of others.
void shedInheritance(const posix::FileDescriptor& kept);

}  // namespace elevator
