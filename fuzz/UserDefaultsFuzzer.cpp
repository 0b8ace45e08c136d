#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/UserDefaults.h"

namespace {

namespace defaults = platform::user_defaults;

// The words between zero bytes.
std::vector<std::string> wordsOf(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      words.emplace_back();
    } else {
      words.back() += static_cast<char>(data[i]);
    }
  }
  return words;
}

// Every key that is followed by a word has a value.
void check(const std::vector<std::string>& words) {
  for (std::size_t i = 1; i + 1 < words.size(); ++i) {
    const bool isKey = words[i].size() > 1 && words[i][0] == '-';
    if (!isKey) continue;
    if (!defaults::string(words[i].substr(1))) std::abort();
    defaults::boolean(words[i].substr(1));
    ++i;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // No file: what is looked up comes from the arguments.
  ::setenv("HOME", "/nonexistent", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto words = wordsOf(data, size);
  std::vector<const char*> argv;
  for (const auto& word : words) argv.push_back(word.c_str());
  argv.push_back(nullptr);
  defaults::setArguments(static_cast<int>(words.size()), argv.data());
  check(words);
  return 0;
}
