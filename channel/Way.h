#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace channel {

// How root gets to a path that a command names, as found by walking there one opened folder after
// the other.
struct Way {
  // As the command has it, without what means nothing: doubled and trailing slashes and "."; where
  // it leads when ".." is part of it.
  std::string written;
  // The same place without a link in any folder on the way, nor at the end where that was followed.
  std::string resolved;
  // The first folder on the way, or the folder at its end, in which somebody else than root may
  // change what root finds there; empty when there is none.
  std::string border;
  // Whether its end is a folder that the command works in, so that a link to it does as well.
  bool isEntered = false;
  // Which of a command's words it is.
  std::size_t word = 0;
  // 0, or why root must not go there (errno(3)): EACCES when somebody else's link leads out of the
  // folders of whoever made it.
  int status = 0;

  bool isRootsAlone() const { return status == 0 && border.empty(); }
};

// Whether the end of a path is itself what is meant, or, if it is one, the folder to enter, then
// also through a link.
enum class End { meant, entered };

// The way to an absolute path, which need not exist. A folder is root's alone when it belongs to
// root, root alone may write to it, and its file system is trusted with set-user-ID programs, as a
// user's own is not; in a folder where everybody may make items but not take away those of others,
// root's items count as such. Links of root's are followed; those of others only into a folder of
// their owner's, and never back by "..".
Way wayTo(const std::string& path, End end);

// The ways to the absolute paths among a command's words, its tool first; the folder into which the
// tool copies or moves is entered.
std::vector<Way> waysOf(const std::vector<std::string>& words);

// Whether that tool only works on the files that its arguments name.
bool isFileTool(const std::string& tool);

}  // namespace channel
