#pragma once

#include <string>
#include <vector>

// What the session helper can be asked to do, one source file a verb. Each takes the words after
// the verb, see platform/linux/SessionHelperVerbs.h, and answers the program's exit status.
namespace session_helper {

using Arguments = std::vector<std::string>;

// Carries out a verb with its arguments; says on standard error what there is when there is no such
// verb.
int perform(const Arguments& words);

// The command line was wrong.
inline constexpr int kUsageError = 64;
// What was asked for could not be done; standard error says why.
inline constexpr int kFailure = 1;

// after: unless the verb is detach, it is not carried out after a tool that failed, and after one
// whose end nobody knows detach does not force anything. A process of its own does all this;
// whoever ends this one ends only the waiting for it.
int after(const Arguments& arguments);

// become: see Person.h. The status is then that program's.
int become(const Arguments& arguments);

// detach PATH [-force]: unmounts what is mounted at the absolute PATH, which must itself be a mount
// point and never "/"; a link to one is not. While it is busy, -force tries again for some seconds
// and then takes it out of the tree of files, so that who has a file of it open can still read
// that; without -force that is a failure. A loop device is freed by the kernel.
int detach(const Arguments& arguments);

// files: ends when the socket does.
int files(const Arguments& arguments);
int open(const Arguments& arguments);
int openWith(const Arguments& arguments);
int registerApplication(const Arguments& arguments);
int openFile(const Arguments& arguments);
int openFileWith(const Arguments& arguments);
int remote(const Arguments& arguments);
// start: see Start.h.
int start(const Arguments& arguments);

}  // namespace session_helper
