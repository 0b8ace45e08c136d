#pragma once

#include <string>
#include <vector>

// What the follow-up program can be asked to do, one source file a verb. Each takes the words after
// the verb and answers the program's exit status.
namespace followup {

using Arguments = std::vector<std::string>;

// The command line was wrong.
inline constexpr int kUsageError = 64;
// What was asked for could not be done; standard error says why.
inline constexpr int kFailure = 1;

// detach PATH [-force]: unmounts what is mounted at the absolute PATH, which must itself be a mount
// point and never "/"; a link to one is not. While it is busy, -force tries again until it is not,
// or until this program is ended by a signal; without -force that is a failure. Nothing is ever
// unmounted lazily: what somebody reads from the image stays readable. A loop device is freed by
// the kernel.
int detach(const Arguments& arguments);

// open-file PATH: opens a file with the person's default application.
int openFile(const Arguments& arguments);
// open-file-with IDENTIFIER PATH: opens a file with the application of an identifier.
int openFileWith(const Arguments& arguments);
// remote: speaks to an object on the person's session bus for a process that may not, asked by
// messages on standard input, see platform/linux/RemoteWire.h; ends when they do.
int remote(const Arguments& arguments);
// start PROGRAM [ARGUMENT ...]: starts a program as the person, see Start.h, and leaves it running.
int start(const Arguments& arguments);

}  // namespace followup
