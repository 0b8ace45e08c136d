#pragma once

#include <string>
#include <vector>

// What the session helper can be asked to do, one source file a verb. Each takes the words after
// the verb and answers the program's exit status.
namespace session_helper {

using Arguments = std::vector<std::string>;

// Carries out a verb with its arguments; says on standard error what there is when there is no such
// verb.
int perform(const Arguments& words);

// The command line was wrong.
inline constexpr int kUsageError = 64;
// What was asked for could not be done; standard error says why.
inline constexpr int kFailure = 1;

// after WRITERS TURNS VERB [ARGUMENT ...]: carries out the verb when what the descriptors tell has
// ended, see platform/linux/desktop/Turn.h: the third is held meanwhile, then come WRITERS
// of tools and TURNS of earlier deferred verbs. Unless the verb is detach, it is not carried out
// after a tool that failed. A process of its own does all this; whoever ends this one ends only the
// waiting for it.
int after(const Arguments& arguments);

// become PROGRAM [ARGUMENT ...]: turns this process into a program of the person's, see Person.h,
// which keeps its standard ends and all descriptors. The status is then that program's.
int become(const Arguments& arguments);

// detach PATH [-force]: unmounts what is mounted at the absolute PATH, which must itself be a mount
// point and never "/"; a link to one is not. While it is busy, -force tries again for some seconds
// and then takes it out of the tree of files, so that who has a file of it open can still read
// that; without -force that is a failure. A loop device is freed by the kernel.
int detach(const Arguments& arguments);

// open PATH, open-with APPLICATION PATH, register PATH: the operations of platform/Workspace.h.
int open(const Arguments& arguments);
int openWith(const Arguments& arguments);
int registerApplication(const Arguments& arguments);
// open-file PATH: opens a file with the person's default application.
int openFile(const Arguments& arguments);
// open-file-with IDENTIFIER PATH: opens a file with the application of an identifier.
int openFileWith(const Arguments& arguments);
// remote: speaks to an object on the person's session bus for a process that may not, asked by
// messages on standard input, see platform/linux/bus/RemoteWire.h; ends when they do.
int remote(const Arguments& arguments);
// start PROGRAM [ARGUMENT ...]: starts a program as the person, see Start.h, and leaves it running.
int start(const Arguments& arguments);

}  // namespace session_helper
