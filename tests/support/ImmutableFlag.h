#pragma once

#include <string>

namespace test {

// Keeps an item immutable for as long as it lives, where the file system can.
class ImmutableFlag {
 public:
  explicit ImmutableFlag(std::string path);
  ~ImmutableFlag();
  ImmutableFlag(const ImmutableFlag&) = delete;
  ImmutableFlag& operator=(const ImmutableFlag&) = delete;

  bool isSet() const { return isSet_; }

 private:
  std::string path_;
  bool isSet_;
};

}  // namespace test
