#pragma once

#include <string>
#include <vector>

namespace test {

// One line for every item of a tree, the root first, then by path: its kind, permissions, owner,
// group, time of modification to the nanosecond, size, whether a file has holes, its device number,
// its link's target, its extended attributes with access lists, a checksum of its contents, and
// which of the tree's items it is the same file as. Two trees with equal descriptions are copies of
// each other.
std::vector<std::string> describeTree(const std::string& root);

// Gives every item of a tree, links themselves too, one and the same whole second as its time.
void setTimesToASecond(const std::string& root);

// Makes, at `root`, a tree with one of everything that is easily lost in copying. Devices and
// foreign owners are in it when this process is root.
void makeHostileTree(const std::string& root);

}  // namespace test
