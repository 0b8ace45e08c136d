#include "platform/linux/SessionHelperVerbs.h"

#include <charconv>
#include <system_error>

namespace platform::helper_verb {

void append(Words& words, const std::string& field) {
  words.push_back(field);
}

void append(Words& words, int field) {
  words.push_back(std::to_string(field));
}

void append(Words& words, const Words& field) {
  words.insert(words.end(), field.begin(), field.end());
}

bool take(std::span<const std::string>& words, std::string& field) {
  if (words.empty()) return false;
  field = words.front();
  words = words.subspan(1);
  return true;
}

bool take(std::span<const std::string>& words, int& field) {
  std::string text;
  if (!take(words, text)) return false;
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), field);
  return error == std::errc() && stopped == text.data() + text.size() && field >= 0;
}

bool take(std::span<const std::string>& words, Words& field) {
  field.assign(words.begin(), words.end());
  words = {};
  return true;
}

}  // namespace platform::helper_verb
