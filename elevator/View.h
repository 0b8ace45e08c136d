#pragma once

#include <string>
#include <vector>

namespace elevator {

// Gives this process a view of the files in which no link is followed on the way to what a file
// tool's words name, nor below it: a private mount namespace (mount_namespaces(7)) with a root of
// links, which lead the named paths into a copy of the tree of mounts that is `nosymfollow`, and
// everything else into an ordinary one. So a rename stays a rename, and the words stay what they
// are, but for a path that leads through a link out of a folder that is named itself: that one is
// replaced by where it leads. Tools that are no file tools, and paths that are root's alone, need
// no view; then nothing changes.
//
// Answers 0, or why the tool must not be started (errno(3)): ELOOP when there is no way that root
// may go, EPERM when this system gives no such view. To be called in a process of its own.
int enterView(std::vector<std::string>& words);

}  // namespace elevator
