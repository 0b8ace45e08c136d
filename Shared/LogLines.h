#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Lines for the log file, gathered so that one write takes them all.
class LogLines {
 public:
  // Adds the line of a text: the present date, " - ", the text, a newline.
  void add(std::string_view text);

  const std::string& bytes() const noexcept { return bytes_; }
  std::size_t size() const noexcept { return ends_.size(); }
  // Where the first `count` lines end in bytes().
  std::size_t endOf(std::size_t count) const { return count == 0 ? 0 : ends_[count - 1]; }
  // How many lines are whole in the first `byteCount` of bytes().
  std::size_t wholeIn(std::size_t byteCount) const;

 private:
  std::string bytes_;
  std::vector<std::size_t> ends_;
};
